#include "modules/volumes/source/objects/volumebuilder.h"

#include <new>
#include <vector>

#include "host/scene/basecontainer.h"
#include "host/scene/basedocument.h"
#include "host/scene/basetag.h"
#include "host/scene/hosttypes.h"
#include "host/scene/hyperfile.h"
#include "host/scene/itemtree.h"
#include "host/scene/messages.h"
#include "host/scene/plugins.h"
#include "host/ui/dialogs.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumebuildertag.h"
#include "modules/volumes/source/objects/volumeobject.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kInfoFlags = 0x1000800c;
constexpr zta::Int32 kDiskLevel = 3;
constexpr zta::Int32 kNameResource = 10006;
constexpr zta::Int32 kFilterHeadResource = 10005;
constexpr zta::Int32 kCacheHeadResource = 10068;
constexpr zta::Int32 kChildCommentResource = 10023;
constexpr zta::Int32 kLinkCommentResource = 10024;
constexpr zta::Int32 kLargeVolumeQuestion = 10058;
constexpr zta::Int32 kFilterTypeParameter = 1001;
constexpr zta::Int32 kIconFog = 1040740;
constexpr zta::Int32 kIconVector = 1051275;
constexpr zta::Int32 kDocumentInfoRebind = 1000;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

zta::Int32 ModeKey(zta::Int32 builderType) {
  return builderType == BUILDERTYPE_FOG ? LAYER_FOGMODE : builderType == BUILDERTYPE_VECTOR ? LAYER_VECTORMODE : LAYER_SDFMODE;
}

zta::Int32 ModeLimit(zta::Int32 builderType) {
  return builderType == BUILDERTYPE_FOG ? 7 : builderType == BUILDERTYPE_VECTOR ? 4 : 3;
}

}  // namespace

VolumeBuilderData::VolumeBuilderData() = default;
VolumeBuilderData::~VolumeBuilderData() {
  // Results refer to nothing outside; drop them before the heads go.
  evalNodes_.clear();
  collectedInputs_.clear();
}

std::unique_ptr<zta::NodeData> VolumeBuilderData::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeBuilderData());
}

bool VolumeBuilderData::Register() {
  const bool builder = zta::RegisterObjectPlugin(ID_VOLUMEBUILDER, Text(kNameResource), kInfoFlags,
                                                 &VolumeBuilderData::Alloc, "ovolumebuilder", kDiskLevel);
  const bool tag = VolumeBuilderTag::Register();
  return builder && tag;
}

zta::ItemTree* VolumeBuilderData::GetTree(zta::BaseObject* op) {
  return op ? op->GetDataInstance()->GetCustomDataWritableTyped<zta::ItemTree>(VOLUMEBUILDER_LAYERS) : nullptr;
}

void VolumeBuilderData::BindTree(zta::BaseObject* op) {
  if (zta::ItemTree* tree = GetTree(op)) tree->SetOwner(op);
}

void VolumeBuilderData::RefreshVolumeType(const zta::BaseObject* op) {
  switch (op->GetDataInstance()->GetInt32(VOLUMEBUILDER_VOLUMETYPE)) {
    case 1: volumeType_ = BUILDERTYPE_FOG; break;
    case 2: volumeType_ = BUILDERTYPE_VECTOR; break;
    default: volumeType_ = BUILDERTYPE_SDF; break;
  }
}

bool VolumeBuilderData::InitNode(zta::GeListNode* node) {
  if (!node) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  zta::BaseContainer* bc = op->GetDataInstance();
  bc->SetFloat(VOLUMEBUILDER_VOXELSIZE, 10.0);
  bc->SetInt32(VOLUMEBUILDER_MESH_EXTERIOR_BAND, 2);
  bc->SetInt32(VOLUMEBUILDER_MESH_INTERIOR_BAND, 2);
  bc->SetInt32(VOLUMEBUILDER_SPLINE_BAND, 2);
  bc->SetInt32(VOLUMEBUILDER_PARTICLE_BAND, 2);
  bc->SetInt32(VOLUMEBUILDER_VOLUMETYPE, 0);
  bc->SetString(VOLUMEBUILDER_INFO, "");
  bc->SetInt32(VOLUMEBUILDER_LIST_SIZE, 1);
  bc->SetInt32(VOLUMEBUILDER_ADD, 0);
  bc->SetBool(VOLUMEBUILDER_AUTOUPDATE, true);
  bc->SetBool(VOLUMEBUILDER_CREATEGRADIENT, false);
  bc->SetBool(VOLUMEBUILDER_CREATECURL, false);
  if (zta::BaseContainer* host = bc->GetContainerInstance(VOLUMEOBJECT_HOSTFLAGS)) host->SetBool(1, true);
  bc->SetCustomData(VOLUMEBUILDER_LAYERS, std::make_shared<zta::ItemTree>());
  BindTree(op);
  filterHead_.reset(new (std::nothrow) zta::GeListHead());
  cacheHead_.reset(new (std::nothrow) zta::GeListHead());
  if (!filterHead_ || !cacheHead_) return false;
  filterHead_->SetOwner(node);
  cacheHead_->SetOwner(node);
  filterHead_->FlushAll();
  cacheHead_->FlushAll();
  filterHeadName_ = Text(kFilterHeadResource);
  cacheHeadName_ = Text(kCacheHeadResource);
  return true;
}

void VolumeBuilderData::FreeNode(zta::GeListNode*) { Unlock(); }

zta::Int32 VolumeBuilderData::ListBranches(zta::GeListNode*, zta::BranchInfo* info, zta::Int32 max, zta::Int32) const {
  if (!info || !filterHead_ || !cacheHead_) return 0;
  zta::Int32 n = 0;
  if (n < max) info[n++] = {filterHead_.get(), filterHeadName_, ID_VOLUMEFILTER, 1};
  if (n < max) info[n++] = {cacheHead_.get(), cacheHeadName_, ID_VOLUMEFILTER, 1};
  return n;
}

// ---- rows

void VolumeBuilderData::InitLayerContainer(zta::ItemTreeItem* item, bool isChild, bool hasObject) {
  if (!item) return;
  zta::BaseContainer* bc = item->GetContainerInstance();
  if (!bc) return;
  auto mode = [&](zta::Int32 key, std::initializer_list<zta::Int32> texts) {
    zta::BaseContainer sub(key);
    sub.SetInt32(key, 1);
    zta::BaseContainer popup;
    zta::Int32 i = 1;
    for (zta::Int32 t : texts) popup.SetString(i++, Text(t));
    sub.SetContainer(LAYER_POPUPTEXTS, popup);
    bc->SetContainer(key, sub);
  };
  mode(LAYER_SDFMODE, {10010, 10011, 10012});
  mode(LAYER_FOGMODE, {10010, 10011, 10012});
  mode(LAYER_VECTORMODE, {10063, 10064, 10065, 10066});
  bc->SetString(LAYER_COMMENT, hasObject ? Text(isChild ? kChildCommentResource : kLinkCommentResource) : "");
}

zta::Int32 VolumeBuilderData::GetLayerMode(const zta::ItemTreeItem* item, zta::Int32 builderType) {
  if (!item) return 1;
  const zta::GeData& data = item->GetData();
  // A row without its data (written by hand in a scene) has the mode a new row has.
  const zta::BaseContainer* bc = data.GetContainer();
  const zta::Int32 key = ModeKey(builderType);
  const zta::BaseContainer* sub = bc ? bc->GetContainerInstance(key) : nullptr;
  const zta::Int32 mode = sub ? sub->GetInt32(key, 1) : 1;
  return mode < 0 || mode > ModeLimit(builderType) ? 0 : mode;
}

void VolumeBuilderData::SetLayerMode(zta::ItemTreeItem* item, zta::Int32 builderType, zta::Int32 mode) {
  if (!item) return;
  zta::BaseContainer* bc = item->GetContainerInstance();
  if (!bc) return;
  const zta::Int32 key = ModeKey(builderType);
  zta::BaseContainer* sub = bc->GetContainerInstance(key);
  if (!sub) {
    bc->SetContainer(key, zta::BaseContainer(key));
    sub = bc->GetContainerInstance(key);
  }
  if (sub) sub->SetInt32(key, mode);
  if (zta::ItemTree* tree = item->GetTree()) tree->Changed();
}

zta::ItemTreeItem* VolumeBuilderData::AddLayer(zta::BaseObject* op, zta::BaseObject* object, zta::ItemTreeItem* parent,
                                               zta::ItemTreeItem* previous, bool isChild, bool open, bool select) {
  zta::ItemTree* tree = GetTree(op);
  if (!tree) return nullptr;
  const bool layer = object && (object->GetType() == ID_VOLUMEFILTER || object->GetType() == ID_VOLUMECACHELAYER);
  if (layer) {
    zta::GeListHead* head = object->GetType() == ID_VOLUMEFILTER ? filterHead_.get() : cacheHead_.get();
    if (head && !object->IsInTree()) object->InsertUnderLast(head);
  }
  // A new folder also gets its check mark, so that its rows count from the start.
  zta::Int32 flags =
      object ? (open ? LAYERFLAGS_NEWINPUT_OPEN : LAYERFLAGS_NEWINPUT) : (LAYERFLAGS_NEWFOLDER | LAYERFLAG_ENABLED);
  if (object && isChild) flags |= LAYERFLAG_CHILD;
  if (!select) flags &= ~LAYERFLAG_SELECTED;
  zta::ItemTreeItem* item = tree->InsertItem(parent, previous, flags, zta::GeData(zta::BaseContainer()), object);
  if (!item) return nullptr;
  FindOrMakeNode(item);
  InitLayerContainer(item, isChild, object != nullptr);
  item->SetFlags(item->GetFlags() | LAYERFLAG_INITIALISED);
  if (object && !layer) {
    zta::BaseTag* tag = FindTag(op, object);
    if (!tag) tag = CreateTag(op, object, ComputeKindMask(object));
    if (tag) {
      if (auto* data = tag->GetNodeData<VolumeBuilderTag>()) data->isChild = isChild;
    }
  }
  if (select) tree->Select(item, zta::SELECTION_NEW);
  tree->Changed();
  return item;
}

EvalNodeRef VolumeBuilderData::FindOrMakeNode(zta::ItemTreeItem* item, bool* made) {
  if (made) *made = false;
  if (!item) return nullptr;
  auto it = evalNodes_.find(item);
  // A record whose object differs from the row's belongs to a row that was
  // freed, whose address a new row took: it starts over.
  if (it != evalNodes_.end() &&
      (it->second->link.IsEmpty() || it->second->link.GetMarker() == item->GetLink().GetMarker()))
    return it->second;
  if (it != evalNodes_.end()) evalNodes_.erase(it);
  EvalNodeRef node = std::make_shared<EvalNode>();
  evalNodes_.emplace(item, node);
  if (made) *made = true;
  return node;
}

// ---- scene file and copies

bool VolumeBuilderData::ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) {
  if (!node || !hf || !filterHead_ || !cacheHead_) return false;
  if (!ObjectData::ReadNode(node, hf, level)) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  BindTree(op);
  zta::ItemTree* tree = GetTree(op);
  if (tree && level <= 2) {
    // Scenes before vector builders had no vector mode.
    for (zta::ItemTreeItem* item = tree->GetFirst(); item; item = tree->GetNextInTree(item)) {
      zta::BaseContainer* bc = item->GetContainerInstance();
      if (!bc) continue;
      zta::BaseContainer sub(LAYER_VECTORMODE);
      sub.SetInt32(LAYER_VECTORMODE, 1);
      zta::BaseContainer popup;
      for (zta::Int32 i = 0; i < 4; ++i) popup.SetString(i + 1, Text(10063 + i));
      sub.SetContainer(LAYER_POPUPTEXTS, popup);
      bc->SetContainer(LAYER_VECTORMODE, sub);
      bc->SetString(LAYER_COMMENT, "");
    }
  }
  if (level >= 1 && !hf->ReadNodeList(filterHead_.get(), zta::NODECLASS::OBJECT)) return false;
  if (level >= 3 && !hf->ReadNodeList(cacheHead_.get(), zta::NODECLASS::OBJECT)) return false;
  if (tree) {
    for (zta::ItemTreeItem* item = tree->GetFirst(); item; item = tree->GetNextInTree(item))
      item->SetFlags(item->GetFlags() | LAYERFLAG_INITIALISED);
  }
  checkVoxelLimit = true;
  return true;
}

bool VolumeBuilderData::WriteNode(const zta::GeListNode*, zta::HyperFile* hf) const {
  if (!hf || !filterHead_ || !cacheHead_) return false;
  return hf->WriteNodeList(*filterHead_, zta::NODECLASS::OBJECT) &&
         hf->WriteNodeList(*cacheHead_, zta::NODECLASS::OBJECT);
}

bool VolumeBuilderData::CopyNode(zta::NodeData* dest, const zta::GeListNode*, zta::GeListNode* dnode, zta::Int32 flags,
                                 zta::AliasTrans* trans) const {
  auto* d = dynamic_cast<VolumeBuilderData*>(dest);
  if (!d || !d->filterHead_ || !d->cacheHead_ || !filterHead_ || !cacheHead_) return false;
  auto copyHead = [&](const zta::GeListHead& from, zta::GeListHead& to) {
    to.FlushAll();
    for (zta::GeListNode* n = from.GetFirst(); n; n = n->GetNext()) {
      std::unique_ptr<zta::BaseList2D> c = static_cast<zta::BaseList2D*>(n)->GetClone(flags, trans);
      if (!c) return false;
      c.release()->InsertUnderLast(&to);
    }
    return true;
  };
  if (!copyHead(*filterHead_, *d->filterHead_) || !copyHead(*cacheHead_, *d->cacheHead_)) return false;
  d->checkVoxelLimit = checkVoxelLimit;
  d->filterHeadName_ = filterHeadName_;
  d->cacheHeadName_ = cacheHeadName_;
  // A copy made during a rebuild is locked too; its next rebuild clears it.
  if (IsEvalLocked()) {
    d->evalLock_.store(true);
    d->inheritedLock_.store(true);
  }
  if (dnode) d->BindTree(static_cast<zta::BaseObject*>(dnode));
  return true;
}

// ---- parameters

bool VolumeBuilderData::SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                          zta::Int32& flags) {
  if (!node || id.GetId() != VOLUMEBUILDER_VOXELSIZE) return ObjectData::SetParameterValue(node, id, t_data, flags);
  auto* op = static_cast<zta::BaseObject*>(node);
  double value = t_data.GetFloat();
  if (value == 0.0) value = 0.001;
  bool store = true;
  if ((flags & zta::DESCFLAGS_SET_USERINTERACTION) && boundingSize / value > 1000.0)
    store = zta::QuestionDialog(Text(kLargeVolumeQuestion)) == zta::DIALOG_ANSWER_YES;
  if (store) op->GetDataInstance()->SetFloat(VOLUMEBUILDER_VOXELSIZE, value);
  flags |= zta::DESCFLAGS_SET_PARAM_SET;
  return true;
}

bool VolumeBuilderData::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                           zta::Int32 flags, const zta::BaseContainer* itemdesc) {
  auto* op = static_cast<zta::BaseObject*>(node);
  if (!op) return false;
  const zta::BaseContainer* bc = op->GetDataInstance();
  switch (id.GetId()) {
    case VOLUMEBUILDER_MESH_EXTERIOR_BAND:
    case VOLUMEBUILDER_MESH_INTERIOR_BAND:
    case VOLUMEBUILDER_SPLINE_BAND:
    case VOLUMEBUILDER_PARTICLE_BAND: return volumeType_ == BUILDERTYPE_SDF;
    case 6010:
    case 6011: return bc->GetBool(6009);
    case 6012:
    case 6013:
    case 6015: return bc->GetBool(6014);
    case VOLUMEBUILDER_CREATECURL: return bc->GetBool(VOLUMEBUILDER_CREATEGRADIENT);
    default: return ObjectData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
  }
}

bool VolumeBuilderData::TranslateParameter(zta::GeListNode* node, const zta::DescID& id, zta::DescID& res_id,
                                           zta::BaseList2D*& res_at) {
  if (!node || id.GetId() <= 7000) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  zta::ItemTree* tree = GetTree(op);
  if (!tree) return false;
  const std::vector<zta::ItemTreeItem*> selection = tree->GetSelection();
  if (selection.empty()) return false;
  auto* object = static_cast<zta::BaseObject*>(selection.front()->GetLink().GetLink(op->GetDocument(), zta::HOST_TYPE_OBJECT));
  zta::BaseTag* tag = FindTag(op, object);
  if (!tag) return false;
  res_id = id;
  res_at = tag;
  return true;
}

// ---- messages

bool VolumeBuilderData::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (!node) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  zta::BaseContainer* bc = op->GetDataInstance();
  switch (type) {
    case zta::MSG_DESCRIPTION_POSTSETPARAMETER: {
      const auto* set = static_cast<const zta::DescriptionPostSetValue*>(data);
      if (!set || set->id.GetId() != VOLUMEBUILDER_ADD) break;
      const zta::Int32 value = bc->GetInt32(VOLUMEBUILDER_ADD);
      if (value == 2) AddLayer(op, nullptr, nullptr, nullptr, false, true, true);
      skipSettingsCheck = true;
      break;
    }
    case zta::MSG_DESCRIPTION_COMMAND: {
      const auto* command = static_cast<const zta::DescriptionCommand*>(data);
      if (!command) break;
      if (command->id.GetId() == VOLUMEBUILDER_UPDATE) {
        updateRequested = true;
        op->SetDirty(zta::DIRTYFLAGS_DATA);
      } else if (command->id.GetId() == VOLUMEBUILDER_COPYVOXELSIZE) {
        auto* ref = static_cast<zta::BaseObject*>(bc->GetLink(VOLUMEBUILDER_REFERENCE, op->GetDocument()));
        if (ref && ref->GetType() == ID_VOLUMEOBJECT) {
          const Volume v = VolumeObjectData::GetVolume(ref);
          if (v.HasGrid()) bc->SetFloat(VOLUMEBUILDER_VOXELSIZE, v.GetGridTransform().v1.GetLength());
        } else if (ref && ref->GetType() == ID_VOLUMEBUILDER) {
          const double size = ref->GetDataInstance()->GetFloat(VOLUMEBUILDER_VOXELSIZE, 10.0);
          if (size != bc->GetFloat(VOLUMEBUILDER_VOXELSIZE)) bc->SetFloat(VOLUMEBUILDER_VOXELSIZE, size);
        }
      }
      break;
    }
    case zta::MSG_DESCRIPTION_CUSTOMDATA_CHANGED: BindTree(op); break;
    case zta::MSG_MENUPREPARE:
      BindTree(op);
      checkVoxelLimit = true;
      break;
    case zta::MSG_DOCUMENTINFO: {
      const auto* info = static_cast<const zta::DocumentInfoData*>(data);
      if (info && info->type == kDocumentInfoRebind) BindTree(op);
      break;
    }
    case MSG_GETCUSTOMICON: {
      auto* icon = static_cast<GetCustomIconData*>(data);
      if (!icon) break;
      const zta::Int32 t = bc->GetInt32(VOLUMEBUILDER_VOLUMETYPE);
      icon->iconId = t == 1 ? kIconFog : t == 2 ? kIconVector : ID_VOLUMEBUILDER;
      icon->filled = true;
      break;
    }
    case MSG_VOLUMEBUILDER_BAKETARGET: {
      const auto* target = static_cast<const BakeTargetData*>(data);
      if (target) bakeTarget_ = target->set ? target->layer : nullptr;
      break;
    }
    case zta::MSG_ITEMTREE_EVENT: {
      auto* event = static_cast<zta::ItemTreeEvent*>(data);
      if (!event) break;
      zta::ItemTree* tree = GetTree(op);
      switch (event->event) {
        case zta::ITEMTREE_EVENT_MAYDROP:
          // The builder itself, or an object that holds it, would be its own
          // input; another builder's filter and cache layers are that builder's.
          if (event->objects)
            for (zta::BaseList2D* o : *event->objects) {
              auto* obj = dynamic_cast<zta::BaseObject*>(o);
              if (!obj) continue;
              for (zta::BaseObject* up = op; up; up = up->GetUp())
                if (up == obj) event->accept = false;
              if ((obj->GetType() == ID_VOLUMEFILTER || obj->GetType() == ID_VOLUMECACHELAYER) &&
                  obj->GetListHead() != filterHead_.get() && obj->GetListHead() != cacheHead_.get())
                event->accept = false;
            }
          break;
        case zta::ITEMTREE_EVENT_DROPPED:
          if (event->objects)
            for (zta::BaseList2D* o : *event->objects) {
              auto* obj = dynamic_cast<zta::BaseObject*>(o);
              if (!obj) continue;
              zta::BaseTag* tag = FindTag(op, obj);
              if (!tag) tag = CreateTag(op, obj, ComputeKindMask(obj));
              if (tag) tag->GetDataInstance()->SetBool(VOLUMEBUILDERTAG_CONFIGURED, true);
            }
          break;
        case zta::ITEMTREE_EVENT_ROWCREATED:
          if (event->item && !(event->item->GetFlags() & LAYERFLAG_INITIALISED)) {
            InitLayerContainer(event->item, (event->item->GetFlags() & LAYERFLAG_CHILD) != 0,
                               !event->item->GetLink().IsEmpty());
            event->item->SetFlags(event->item->GetFlags() | LAYERFLAG_INITIALISED);
          }
          break;
        case zta::ITEMTREE_EVENT_DELETE:
          if (tree) {
            // Only the top-most selected rows: a row goes with its children.
            std::vector<zta::ItemTreeItem*> rows;
            for (zta::ItemTreeItem* item : tree->GetSelection()) {
              bool under = false;
              for (zta::ItemTreeItem* up = item->GetUp(); up && !under; up = up->GetUp())
                under = (up->GetFlags() & LAYERFLAG_SELECTED) != 0;
              if (!under) rows.push_back(item);
            }
            for (zta::ItemTreeItem* row : rows) {
              // The row and every row below it.
              std::vector<zta::ItemTreeItem*> stack{row};
              while (!stack.empty()) {
                zta::ItemTreeItem* item = stack.back();
                stack.pop_back();
                if (item != row && item->GetNext()) stack.push_back(item->GetNext());
                if (item->GetDown()) stack.push_back(item->GetDown());
                auto* obj = static_cast<zta::BaseObject*>(item->GetLink().GetLink(op->GetDocument()));
                if (obj && (obj->GetType() == ID_VOLUMEFILTER || obj->GetType() == ID_VOLUMECACHELAYER)) {
                  zta::GeListNode::Free(obj);
                } else if (zta::BaseTag* tag = FindTag(op, obj)) {
                  zta::GeListNode::Free(tag);
                }
                evalNodes_.erase(item);
              }
              tree->RemoveItem(row);
            }
            tree->Changed();
          }
          break;
        case zta::ITEMTREE_EVENT_SELECTION:
          if (ignoreNextSelection) {
            ignoreNextSelection = false;
            break;
          }
          if (tree) {
            const auto selection = tree->GetSelection();
            zta::BaseList2D* first = selection.empty() ? nullptr : selection.front()->GetLink().GetLink(op->GetDocument());
            bc->SetLink(VOLUMEBUILDER_SELECTEDLAYER, first);
          }
          skipSettingsCheck = true;
          break;
        default: break;
      }
      break;
    }
    default: break;
  }
  return true;
}

}  // namespace zelmar
