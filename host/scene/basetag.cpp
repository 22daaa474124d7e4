#include "host/scene/basetag.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "host/scene/baseobject.h"
#include "host/scene/plugins.h"

namespace zta {

std::unique_ptr<BaseTag> AllocPluginTag(Int32 type) {
  const PluginInfo* info = FindPlugin(type);
  if (!info || info->type != PLUGINTYPE::TAG || !info->alloc) return nullptr;
  std::unique_ptr<BaseTag> tag(new BaseTag(type));
  if (!tag->AttachNodeData(info->alloc())) return nullptr;
  return tag;
}

std::unique_ptr<BaseTag> BaseTag::Alloc(Int32 type) {
  if (auto tag = AllocHostTag(type)) return tag;
  return AllocPluginTag(type);
}

std::unique_ptr<BaseList2D> BaseTag::AllocSame() const { return Alloc(GetType()); }

BaseObject* BaseTag::GetObject() const {
  GeListHead* head = GetListHead();
  return head ? dynamic_cast<BaseObject*>(head->GetOwner()) : nullptr;
}

VariableTag::VariableTag(Int32 type, Int32 elementSize, Int32 count) : BaseTag(type), elementSize_(elementSize) {
  if (!Resize(count)) throw std::bad_alloc();
}

bool VariableTag::Resize(Int32 count) {
  if (count < 0) return false;
  if (count == count_ && (bytes_ || count == 0)) return true;
  std::unique_ptr<unsigned char[]> bytes;
  const size_t size = size_t(count) * size_t(elementSize_);
  if (size > 0) {
    bytes.reset(new (std::nothrow) unsigned char[size]);
    if (!bytes) return false;
    std::memset(bytes.get(), 0, size);
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
