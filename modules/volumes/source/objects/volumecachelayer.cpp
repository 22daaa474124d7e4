#include "modules/volumes/source/objects/volumecachelayer.h"

#include <cmath>
#include <new>

#include "host/core/diagnostics.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/execution.h"
#include "host/scene/hyperfile.h"
#include "host/scene/itemtree.h"
#include "host/scene/messages.h"
#include "host/ui/progressdialog.h"
#include "modules/volumes/source/helper/volumeblock.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumeobject.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kInfoFlags = 0x30000000;
constexpr zta::Int32 kDiskLevel = 0;
constexpr zta::Int32 kNameResource = 10087;
constexpr zta::Int32 kResetNameResource = 10120;
constexpr zta::Int32 kBakeTitleResource = 10121;
constexpr zta::Int32 kIconEmpty = 1019458;
constexpr zta::Int32 kIconCached = 1019485;
constexpr zta::Int32 kVolumeBuilderType = 1039859;
constexpr zta::Int32 kBuilderLayersParameter = 6016;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

// The builder that owns the list head the layer lives in.
zta::BaseObject* OwningBuilder(zta::BaseObject* layer) {
  zta::GeListHead* head = layer ? layer->GetListHead() : nullptr;
  auto* owner = head ? dynamic_cast<zta::BaseObject*>(head->GetOwner()) : nullptr;
  return owner && owner->GetType() == kVolumeBuilderType ? owner : nullptr;
}

// Steps the document through the frames; each step's evaluation makes the
// builder hand its result to the layer.
class CacheDialog final : public zta::ProgressDialog {
 public:
  CacheDialog(zta::BaseDocument* doc, zta::Int64 first, zta::Int64 last) : doc_(doc), first_(first), last_(last) {
    SetTitle(Text(kBakeTitleResource));
  }

 protected:
  void Main(zta::ZTAThread* thread) override {
    const zta::ThreadRef ref(thread, [](zta::ZTAThread*) {});
    for (zta::Int64 frame = first_; frame <= last_; ++frame) {
      if (thread->TestBreak()) return;
      doc_->SetTime(zta::BaseTime(frame, doc_->GetFps()));
      if (!zta::ExecutePasses(doc_, ref)) {
        if (!thread->TestBreak()) SetError(zta::IllegalStateError("the scene could not be evaluated at frame " +
                                                                   std::to_string(frame)));
        return;
      }
      SetPercent(last_ > first_ ? double(frame - first_) / double(last_ - first_) : 0.0);
    }
  }

 private:
  zta::BaseDocument* doc_;
  zta::Int64 first_, last_;
};

}  // namespace

std::unique_ptr<zta::NodeData> VolumeCacheLayerData::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeCacheLayerData());
}

bool VolumeCacheLayerData::Register() {
  return zta::RegisterObjectPlugin(ID_VOLUMECACHELAYER, Text(kNameResource), kInfoFlags,
                                   &VolumeCacheLayerData::Alloc, "ovolumecachelayer", kDiskLevel) &&
         zta::RegisterCommandPlugin(ID_RESETCACHESCOMMAND, Text(kResetNameResource), 0,
                                    std::make_shared<ResetCachesCommand>());
}

VolumeCacheLayerData* VolumeCacheLayerData::Of(zta::BaseObject* op) {
  return op && op->GetType() == ID_VOLUMECACHELAYER ? op->GetNodeData<VolumeCacheLayerData>() : nullptr;
}

bool VolumeCacheLayerData::InitNode(zta::GeListNode* node) {
  owner_ = static_cast<zta::BaseObject*>(node);
  return owner_ != nullptr;
}

zta::Int64 VolumeCacheLayerData::FrameOf(const zta::BaseDocument* doc) {
  if (!doc) return 0;
  const zta::BaseTime t = doc->GetTime();
  return zta::Int64(std::floor(double(doc->GetFps()) * double(t.GetNumerator())) /
                    std::floor(double(t.GetDenominator())));
}

Result<zta::Int64> VolumeCacheLayerData::ResolveFrame(CacheFrame frame) const {
  if (!owner_) return zta::IllegalStateError("bakenodedata was not bound to object");
  const zta::BaseDocument* doc = owner_->GetDocument();
  if (!doc) return zta::IllegalStateError("bakenodedata is not in a document");
  return frame.useFrame ? frame.frame : FrameOf(doc);
}

bool VolumeCacheLayerData::HasCache(const zta::BaseDocument* doc) const {
  return !baking_ && volumes_.count(FrameOf(doc)) > 0;
}

Result<Volume> VolumeCacheLayerData::GetVolume(const zta::BaseDocument*, CacheFrame frame) const {
  Result<zta::Int64> f = ResolveFrame(frame);
  if (!f) return f.GetError();
  const auto it = volumes_.find(*f);
  return it == volumes_.end() ? Volume() : it->second;
}

Result<void> VolumeCacheLayerData::SetVolume(const Volume& volume, CacheFrame frame) {
  if (!baking_) return zta::IllegalStateError("trying to set volumes in a non bake setup");
  Result<zta::Int64> f = ResolveFrame(frame);
  if (!f) return f.GetError();
  volumes_[*f] = volume;
  return {};
}

Result<void> VolumeCacheLayerData::FinishBake(zta::BaseDocument* doc) {
  zta::BaseObject* builder = OwningBuilder(owner_);
  if (!builder) return zta::IllegalStateError("layer is not in a volumebuilder sublist");
  zta::BaseObject* cache = builder->GetCache();
  // A builder with several results keeps them under a Null; the first one is baked.
  if (cache && cache->GetType() != ID_VOLUMEOBJECT) cache = cache->GetDown();
  const Volume volume = VolumeObjectData::GetVolume(cache);
  if (!volume.HasGrid()) return {};
  return SetVolume(volume, {true, FrameOf(doc)});
}

void VolumeCacheLayerData::Clear() {
  volumes_.clear();
  if (owner_) owner_->SetDirty(zta::DIRTYFLAGS_DESCRIPTION);
}

std::pair<zta::Int64, zta::Int64> VolumeCacheLayerData::GetBakeRange(const zta::BaseDocument* doc) const {
  zta::Int64 first = 0, last = 0;
  const zta::BaseContainer* bc = owner_ ? owner_->GetDataInstance() : nullptr;
  if (bc && bc->GetInt32(VOLUMECACHE_FRAMEMODE) == VOLUMECACHE_FRAMES_CUSTOM) {
    first = bc->GetInt32(VOLUMECACHE_START);
    last = bc->GetInt32(VOLUMECACHE_END);
  } else if (doc) {
    first = doc->GetMinTime().GetFrame(doc->GetFps());
    last = doc->GetMaxTime().GetFrame(doc->GetFps());
  }
  if (first > last) first = last = 0;
  return {first, last};
}

Result<void> VolumeCacheLayerData::Bake(zta::BaseDocument* doc, bool clearRange, const zta::ThreadRef& stop) {
  if (!owner_) return zta::IllegalStateError("bakenodedata was not bound to object");
  if (!doc) return zta::IllegalStateError("bakenodedata is not in a document");
  zta::BaseObject* builder = OwningBuilder(owner_);
  if (!builder) return zta::IllegalStateError("layer is not in a volumebuilder sublist");
  const auto [first, last] = GetBakeRange(doc);
  if (clearRange) {
    for (zta::Int64 f = first; f <= last; ++f) volumes_.erase(f);
  }
  baking_ = true;
  BakeTargetData target{true, owner_};
  builder->Message(MSG_VOLUMEBUILDER_BAKETARGET, &target);

  // Only the builder's own hierarchy should be evaluated for it: a builder
  // under another object moves to the top level while it bakes.
  const bool wasEnabled = builder->GetDeformMode();
  builder->SetDeformMode(true);
  zta::BaseObject* parent = builder->GetUp();
  auto* pred = static_cast<zta::BaseObject*>(builder->GetPrev());
  if (parent) {
    std::unique_ptr<zta::GeListNode> taken = builder->Remove();
    zta::BaseObject* lastTop = doc->GetFirstObject();
    while (lastTop && lastTop->GetNext()) lastTop = lastTop->GetNext();
    doc->InsertObject(static_cast<zta::BaseObject*>(taken.release()), nullptr, lastTop);
  }
  owner_->SetDirty(zta::DIRTYFLAGS_DATA);
  const zta::BaseTime time = doc->GetTime();

  CacheDialog dialog(doc, first, last);
  dialog.Open(stop);

  doc->SetTime(time);
  target.set = false;
  builder->Message(MSG_VOLUMEBUILDER_BAKETARGET, &target);
  builder->SetDeformMode(wasEnabled);
  if (parent) {
    std::unique_ptr<zta::GeListNode> taken = builder->Remove();
    doc->InsertObject(static_cast<zta::BaseObject*>(taken.release()), parent, pred);
  }
  baking_ = false;
  owner_->SetDirty(zta::DIRTYFLAGS_DESCRIPTION);
  zta::ExecutePasses(doc, nullptr);
  if (std::optional<zta::Error> error = dialog.GetError()) return *error;
  return {};
}

bool VolumeCacheLayerData::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  auto* op = static_cast<zta::BaseObject*>(node);
  if (!op) return false;
  switch (type) {
    case zta::MSG_DESCRIPTION_COMMAND: {
      const auto* command = static_cast<const zta::DescriptionCommand*>(data);
      if (!command) break;
      switch (command->id.GetId()) {
        case VOLUMECACHE_CLEAR: Clear(); op->SetDirty(zta::DIRTYFLAGS_DESCRIPTION); break;
        case VOLUMECACHE_BAKE_RANGE:
        case VOLUMECACHE_BAKE: {
          const Result<void> baked = Bake(op->GetDocument(), command->id.GetId() == VOLUMECACHE_BAKE_RANGE);
          if (!baked) {
            zta::DiagnosticLine(baked.GetError().GetMessage());
            return false;
          }
          break;
        }
        default: break;
      }
      break;
    }
    case MSG_GETCUSTOMICON: {
      auto* icon = static_cast<GetCustomIconData*>(data);
      if (!icon) break;
      icon->iconId = HasCache(op->GetDocument()) ? kIconCached : kIconEmpty;
      icon->filled = true;
      break;
    }
    default: break;
  }
  return ObjectData::HandleMessage(node, type, data);
}

bool VolumeCacheLayerData::WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const {
  if (!ObjectData::WriteNode(node, hf)) return false;
  if (!hf->WriteInt64(zta::Int64(volumes_.size()))) return false;
  for (const auto& [frame, volume] : volumes_) {
    Result<std::vector<char>> block = EncodeVolumeBlock({volume});
    if (!block) return hf->SetError("the cached volume of frame " + std::to_string(frame) +
                                    " could not be written: " + block.GetError().GetMessage());
    if (!hf->WriteInt64(frame) || !hf->WriteMemory(block->data(), zta::Int64(block->size()))) return false;
  }
  return true;
}

bool VolumeCacheLayerData::ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) {
  if (!ObjectData::ReadNode(node, hf, level)) return false;
  zta::Int64 count = 0;
  if (!hf->ReadInt64(&count) || count < 0) return false;
  volumes_.clear();
  for (zta::Int64 i = 0; i < count; ++i) {
    zta::Int64 frame = 0;
    std::vector<char> block;
    if (!hf->ReadInt64(&frame) || !hf->ReadMemory(&block)) return false;
    // A frame that does not read back is left out; the others still serve.
    Result<std::vector<Volume>> volumes = DecodeVolumeBlock(std::move(block));
    if (volumes && volumes->size() == 1) volumes_[frame] = (*volumes)[0];
  }
  return true;
}

bool VolumeCacheLayerData::CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode,
                                    zta::Int32 flags, zta::AliasTrans* trans) const {
  auto* target = dynamic_cast<VolumeCacheLayerData*>(dest);
  if (!target || !ObjectData::CopyNode(dest, snode, dnode, flags, trans)) return false;
  target->volumes_ = volumes_;  // the grids are shared until one side changes
  return true;
}

bool ResetCachesCommand::Execute(zta::BaseDocument* doc) {
  if (!doc) return false;
  for (zta::BaseObject* op : doc->GetActiveObjects()) {
    if (op->GetType() != kVolumeBuilderType) continue;
    const zta::ItemTree* tree =
        op->GetDataInstance()->GetCustomDataWritableTyped<zta::ItemTree>(kBuilderLayersParameter);
    if (!tree) continue;
    for (zta::ItemTreeItem* item = tree->GetFirst(); item; item = tree->GetNextInTree(item)) {
      auto* layer = static_cast<zta::BaseObject*>(item->GetLink().GetLink(doc));
      if (VolumeCacheLayerData* data = VolumeCacheLayerData::Of(layer)) data->Clear();
    }
  }
  doc->EventAdd();
  return true;
}

}  // namespace zelmar
