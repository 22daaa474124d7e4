#include "host/scene/basetag.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>

#include "host/scene/baseobject.h"
#include "host/scene/opaquenodedata.h"
#include "host/scene/plugins.h"

namespace zta {

std::unique_ptr<BaseTag> AllocPluginTag(Int32 type) {
  const PluginInfo* info = FindPlugin(type);
  if (!info || info->type != PLUGINTYPE::TAG || !info->alloc) return nullptr;
  std::unique_ptr<BaseTag> tag(new BaseTag(type));
  tag->info_ = info->info;
  if (!tag->AttachNodeData(info->alloc())) return nullptr;
  return tag;
}

std::unique_ptr<BaseTag> BaseTag::Alloc(Int32 type) {
  if (auto tag = AllocHostTag(type)) return tag;
  return AllocPluginTag(type);
}

std::unique_ptr<BaseTag> BaseTag::AllocWithData(Int32 type, std::unique_ptr<NodeData> data) {
  std::unique_ptr<BaseTag> tag(new (std::nothrow) BaseTag(type));
  if (!tag) return nullptr;
  if (data && !tag->AttachNodeData(std::move(data))) return nullptr;
  return tag;
}

std::unique_ptr<BaseList2D> BaseTag::AllocSame() const {
  if (auto tag = Alloc(GetType())) return tag;
  // A tag of a type nobody registers keeps the plug-in data a scene file kept.
  if (dynamic_cast<const OpaqueNodeData*>(GetNodeData())) return AllocWithData(GetType(), std::make_unique<OpaqueNodeData>());
  return nullptr;
}

BaseObject* BaseTag::GetObject() const {
  GeListHead* head = GetListHead();
  return head ? dynamic_cast<BaseObject*>(head->GetOwner()) : nullptr;
}

VariableTag::VariableTag(Int32 type, Int32 elementSize, Int32 count) : BaseTag(type), elementSize_(elementSize) {
  if (!Resize(count)) throw std::bad_alloc();
}

namespace {
// Blocks from here up come straight from the kernel, zeroed and backed by
// huge pages where it has them: meshes of millions of polygons then fill
// their records without a clearing pass and with few page faults.
constexpr size_t kMappedBytes = size_t(4) << 20;
}  // namespace

void TagBytesFree::operator()(unsigned char* p) const {
  if (size >= kMappedBytes) munmap(p, size);
  else std::free(p);
}

VariableTag::Bytes VariableTag::AllocZeroed(size_t size) {
  if (size < kMappedBytes) return {static_cast<unsigned char*>(std::calloc(size, 1)), TagBytesFree{size}};
  void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) return {nullptr, TagBytesFree{size}};
  madvise(p, size, MADV_HUGEPAGE);
  return {static_cast<unsigned char*>(p), TagBytesFree{size}};
}

bool VariableTag::Resize(Int32 count) {
  if (count < 0) return false;
  if (count == count_ && (bytes_ || count == 0)) return true;
  Bytes bytes;
  const size_t size = size_t(count) * size_t(elementSize_);
  if (size > 0) {
    bytes = AllocZeroed(size);
    if (!bytes) return false;
    if (bytes_) std::memcpy(bytes.get(), bytes_.get(), std::min(size, size_t(count_) * size_t(elementSize_)));
  }
  bytes_ = std::move(bytes);
  count_ = count;
  SetDirty(DIRTYFLAGS_DATA);
  return true;
}

bool VariableTag::SwapData(VariableTag& other) {
  if (other.elementSize_ != elementSize_) return false;
  std::swap(bytes_, other.bytes_);
  std::swap(count_, other.count_);
  SetDirty(DIRTYFLAGS_DATA);
  other.SetDirty(DIRTYFLAGS_DATA);
  return true;
}

bool VariableTag::CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const {
  if (!BaseTag::CopyTo(dest, flags, trans)) return false;
  auto* d = static_cast<VariableTag*>(dest);
  if (!d->Resize(count_)) return false;
  if (count_ > 0) std::memcpy(d->bytes_.get(), bytes_.get(), size_t(count_) * size_t(elementSize_));
  return true;
}

}  // namespace zta
