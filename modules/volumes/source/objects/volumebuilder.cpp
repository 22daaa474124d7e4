#include "modules/volumes/source/objects/volumebuilder.h"

#include <algorithm>
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
#include "host/scene/popup.h"
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

constexpr zta::Int32 kAddEntryResource[] = {10072, 10075, 10081};  // SDF, fog, vector
constexpr zta::Int32 kFolderResource = 10054, kFolderIcon = 1018427;
constexpr zta::Int32 kCacheResource = 10057, kCacheIcon = 1019458;
constexpr zta::Int32 kFilterResource = 10069;
constexpr zta::Int32 kTagGroupStart = 7004;

// The add popup's values.
enum : zta::Int32 { ADD_TYPEENTRY = 1, ADD_FOLDER = 2, ADD_CACHE = 3, ADD_FILTER = 4 };

// The ids of the add popup's list of one builder type, in the order of that
// type's filter operations. No object type has these ids: each names a filter
// layer set to one operation.
const std::vector<zta::Int32>& AddPopupIds(zta::Int32 builderType) {
  static const std::vector<zta::Int32> sdf{1040960, 1040962, 465002104};
  static const std::vector<zta::Int32> fog{1040959, 465002106, 465002108, 1040961, 465002110, 465002112};
  static const std::vector<zta::Int32> vector{465002114, 465002116, 465002118, 465002120, 465002122, 465002124};
  return builderType == BUILDERTYPE_FOG ? fog : builderType == BUILDERTYPE_VECTOR ? vector : sdf;
}

// The filter operations a builder type offers, in order.
std::vector<CreateVolumeFilterCommand::Kind> FilterKinds(zta::Int32 builderType) {
  std::vector<CreateVolumeFilterCommand::Kind> out;
  for (const auto& k : CreateVolumeFilterCommand::Kinds())
    if (k.volumeType == builderType - 1) out.push_back(k);
  return out;
}

bool IsLayerObject(const zta::BaseObject* object) {
  return object && (object->GetType() == ID_VOLUMEFILTER || object->GetType() == ID_VOLUMECACHELAYER);
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
  mode(LAYER_FOGMODE, {10063, 10130, 10131, 10064, 10065, 10132, 10133});
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
    case zta::MSG_DESCRIPTION_CHECKUPDATE: {
      const auto* check = static_cast<const zta::DescriptionCheckUpdate*>(data);
      if (!check || check->id.GetId() != VOLUMEBUILDER_ADD || !check->value) break;
      AddFromPopup(op, check->value->GetInt32());
      skipSettingsCheck = true;
      break;
    }
    case zta::MSG_DESCRIPTION_CHECKDRAGANDDROP: {
      auto* drop = static_cast<zta::DescriptionCheckDragAndDrop*>(data);
      if (!drop || drop->id.GetId() != VOLUMEBUILDER_LAYERS || drop->element == op) break;
      if (!MayTake(op, dynamic_cast<const zta::BaseObject*>(drop->element))) drop->accept = false;
      break;
    }
    case zta::MSG_DESCRIPTION_POPUP: {
      auto* popup = static_cast<zta::DescriptionPopup*>(data);
      if (!popup || popup->id.GetId() != VOLUMEBUILDER_ADD || popup->value != ADD_TYPEENTRY) break;
      RefreshVolumeType(op);
      const auto& ids = AddPopupIds(volumeType_);
      const auto kinds = FilterKinds(volumeType_);
      popup->entries.clear();
      for (size_t i = 0; i < ids.size() && i < kinds.size(); ++i)
        popup->entries.emplace_back(ids[i], zta::PopupEntryText(ids[i], Text(kinds[i].nameResource)));
      break;
    }
    case zta::MSG_DESCRIPTION_COMMAND: {
      const auto* command = static_cast<const zta::DescriptionCommand*>(data);
      if (!command) break;
      if (command->id.GetId() == VOLUMEBUILDER_ADD) {
        const zta::Int32 value = command->values ? command->values->GetInt32(VOLUMEBUILDER_ADD) : 0;
        if (value > 100) AddFromPopup(op, value);
      } else if (command->id.GetId() == VOLUMEBUILDER_UPDATE) {
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
      if (auto* event = static_cast<zta::ItemTreeEvent*>(data)) HandleTreeEvent(op, *event);
      break;
    }
    default: break;
  }
  return true;
}


bool VolumeBuilderData::HandleTreeEvent(zta::BaseObject* op, zta::ItemTreeEvent& event) {
  zta::ItemTree* tree = GetTree(op);
  switch (event.event) {
    case zta::ITEMTREE_EVENT_MAYDROP:
      if (event.objects)
        for (zta::BaseList2D* o : *event.objects)
          if (!MayTake(op, dynamic_cast<const zta::BaseObject*>(o))) event.accept = false;
      break;
    case zta::ITEMTREE_EVENT_DROPPED:
      if (event.objects)
        for (zta::BaseList2D* o : *event.objects) {
          auto* obj = dynamic_cast<zta::BaseObject*>(o);
          if (!obj) continue;
          zta::BaseTag* tag = FindTag(op, obj);
          if (!tag) tag = CreateTag(op, obj, ComputeKindMask(obj));
          if (tag) tag->GetDataInstance()->SetBool(VOLUMEBUILDERTAG_CONFIGURED, true);
        }
      break;
    case zta::ITEMTREE_EVENT_ROWCREATED:
      if (event.item && !(event.item->GetFlags() & LAYERFLAG_INITIALISED)) {
        InitLayerContainer(event.item, (event.item->GetFlags() & LAYERFLAG_CHILD) != 0,
                           !event.item->GetLink().IsEmpty());
        event.item->SetFlags(event.item->GetFlags() | LAYERFLAG_INITIALISED);
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
        op->GetDataInstance()->SetLink(VOLUMEBUILDER_SELECTEDLAYER, first);
        // One row: its object is selected in the scene too, among the list's
        // objects alone; the builder stays the active object, whose panel shows it.
        if (selection.size() == 1) {
          zta::BaseDocument* doc = op->GetDocument();
          for (zta::ItemTreeItem* i = tree->GetFirst(); i; i = tree->GetNextInTree(i)) {
            auto* obj = static_cast<zta::BaseObject*>(i->GetLink().GetLink(doc, zta::HOST_TYPE_OBJECT));
            if (!obj || obj == op || IsLayerObject(obj) || obj->GetDocument() != doc) continue;
            if (i == selection.front()) obj->SetBit(zta::BIT_ACTIVE);
            else obj->DelBit(zta::BIT_ACTIVE);
          }
        }
      }
      skipSettingsCheck = true;
      break;
    case zta::ITEMTREE_EVENT_DOUBLECLICK: {
      // A folder has no object; filter and cache layers are not in the scene.
      if (!event.item || (event.item->GetFlags() & LAYERFLAG_FOLDER)) break;
      auto* obj = static_cast<zta::BaseObject*>(event.item->GetLink().GetLink(op->GetDocument(), zta::HOST_TYPE_OBJECT));
      if (obj && !IsLayerObject(obj) && op->GetDocument()) op->GetDocument()->SetActiveObject(obj);
      break;
    }
    case zta::ITEMTREE_EVENT_HOSTSELECT: ignoreNextSelection = true; break;
    case zta::ITEMTREE_EVENT_COMMAND:
      if (tree && event.command == zta::ITEMTREE_COMMAND_COPYTOSELECTED) {
        RefreshVolumeType(op);
        const auto selection = tree->GetSelection();
        if (selection.empty()) break;
        const zta::Int32 mode = GetLayerMode(selection.front(), volumeType_);
        for (zta::ItemTreeItem* item : selection) SetLayerMode(item, volumeType_, mode);
      }
      break;
    case zta::ITEMTREE_EVENT_CELLOPTIONS: {
      if (!event.item) break;
      auto* obj = static_cast<zta::BaseObject*>(event.item->GetLink().GetLink(op->GetDocument(), zta::HOST_TYPE_OBJECT));
      if (IsLayerObject(obj)) {
        event.cellType = zta::ITEMTREE_CELL_TEXT;
        break;
      }
      if (event.column < LAYER_SDFMODE || event.column > LAYER_VECTORMODE) break;
      event.cellType = zta::ITEMTREE_CELL_POPUP;
      // The texts of a row stored by an older version are refreshed; its mode stays.
      const zta::Int32 builderType = event.column - LAYER_SDFMODE + 1;
      const zta::Int32 mode = GetLayerMode(event.item, builderType);
      InitLayerContainer(event.item, (event.item->GetFlags() & LAYERFLAG_CHILD) != 0, obj != nullptr);
      SetLayerMode(event.item, builderType, mode);
      if (const zta::BaseContainer* bc = event.item->GetData().GetContainer())
        if (const zta::BaseContainer* sub = bc->GetContainerInstance(event.column))
          if (const zta::BaseContainer* texts = sub->GetContainerInstance(LAYER_POPUPTEXTS)) event.popup = *texts;
      break;
    }
    case zta::ITEMTREE_EVENT_POPUPSET: {
      if (!tree || !event.item || event.column < LAYER_SDFMODE || event.column > LAYER_VECTORMODE) break;
      const zta::Int32 builderType = event.column - LAYER_SDFMODE + 1;
      std::vector<zta::ItemTreeItem*> rows = tree->GetSelection();
      if (std::find(rows.begin(), rows.end(), event.item) == rows.end()) rows.push_back(event.item);
      for (zta::ItemTreeItem* item : rows) {
        auto* obj = static_cast<zta::BaseObject*>(item->GetLink().GetLink(op->GetDocument(), zta::HOST_TYPE_OBJECT));
        if (!IsLayerObject(obj)) SetLayerMode(item, builderType, event.value);
      }
      break;
    }
    default: break;
  }
  return true;
}

bool VolumeBuilderData::MayTake(zta::BaseObject* op, const zta::BaseObject* object) const {
  if (!object) return true;
  // The builder itself, or an object that holds it, would be its own input.
  for (const zta::BaseObject* up = op; up; up = up->GetUp())
    if (up == object) return false;
  // Another builder's filter and cache layers are that builder's.
  return !IsLayerObject(object) || object->GetListHead() == filterHead_.get() ||
         object->GetListHead() == cacheHead_.get() || !object->GetListHead();
}

zta::ItemTreeItem* VolumeBuilderData::AddFromPopup(zta::BaseObject* op, zta::Int32 value) {
  RefreshVolumeType(op);
  const auto kinds = FilterKinds(volumeType_);
  auto addFilter = [&](const CreateVolumeFilterCommand::Kind& k) -> zta::ItemTreeItem* {
    zta::BaseObject* filter = CreateVolumeFilterCommand(k.volumeType, k.operation).AddTo(op);
    zta::ItemTree* tree = GetTree(op);
    if (!filter || !tree) return nullptr;
    for (zta::ItemTreeItem* i = tree->GetFirst(); i; i = tree->GetNextInTree(i))
      if (i->GetLink().GetLink(op->GetDocument()) == filter) return i;
    return nullptr;
  };
  switch (value) {
    case ADD_TYPEENTRY: return kinds.empty() ? nullptr : addFilter(kinds.front());
    case ADD_FOLDER: return AddLayer(op, nullptr, nullptr, nullptr, false, true, true);
    case ADD_FILTER: {
      std::unique_ptr<zta::BaseObject> filter = zta::AllocObject(ID_VOLUMEFILTER);
      if (!filter) return nullptr;
      filter->GetDataInstance()->SetInt32(VOLUMEFILTER_VOLUMETYPE, volumeType_ - 1);
      filter->SetName(Text(kFilterResource));
      zta::BaseObject* raw = filter.release();
      zta::ItemTreeItem* row = AddLayer(op, raw, nullptr, nullptr, false, false, true);
      if (!row && !raw->IsInTree()) zta::GeListNode::Free(raw);
      return row;
    }
    case ADD_CACHE: {
      std::unique_ptr<zta::BaseObject> cache = zta::AllocObject(ID_VOLUMECACHELAYER);
      if (!cache) return nullptr;
      cache->SetName(Text(kCacheResource));
      zta::BaseObject* raw = cache.release();
      zta::ItemTreeItem* row = AddLayer(op, raw, nullptr, nullptr, false, false, true);
      if (!row && !raw->IsInTree()) zta::GeListNode::Free(raw);
      return row;
    }
    default: break;
  }
  if (value <= 100) return nullptr;
  const auto& ids = AddPopupIds(volumeType_);
  for (size_t i = 0; i < ids.size() && i < kinds.size(); ++i)
    if (ids[i] == value) return addFilter(kinds[i]);
  // Any other registered object type: a new object under the builder, as a child row.
  const zta::PluginInfo* plugin = zta::FindPlugin(value);
  if (!plugin || value == ID_VOLUMEBUILDER) return nullptr;
  std::unique_ptr<zta::BaseObject> made = zta::AllocObject(value);
  if (!made) return nullptr;
  zta::BaseObject* raw = made.release();
  if (IsLayerObject(raw)) {
    zta::ItemTreeItem* row = AddLayer(op, raw, nullptr, nullptr, false, false, true);
    if (!row && !raw->IsInTree()) zta::GeListNode::Free(raw);
    return row;
  }
  raw->InsertUnderLast(op);
  zta::ItemTreeItem* row = AddLayer(op, raw, nullptr, nullptr, true, false, true);
  if (!row) zta::GeListNode::Free(raw);
  return row;
}

bool VolumeBuilderData::DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) {
  if (!node || !description) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  if (op->GetType() != ID_VOLUMEBUILDER) return false;
  if (!description->LoadDescription(ID_VOLUMEBUILDER)) return false;
  RefreshVolumeType(op);
  zta::BaseDocument* doc = op->GetDocument();
  const zta::BaseContainer* bc = op->GetDataInstance();
  const zta::Int32 modeColumn = ModeKey(volumeType_);

  // The layer list's columns: the mode of this builder's type, and the comment.
  if (const zta::BaseContainer* current = description->GetParameter(zta::DescID(VOLUMEBUILDER_LAYERS))) {
    zta::BaseContainer layout = *current;
    zta::BaseContainer types, titles, shown;
    for (zta::Int32 c : {LAYER_SDFMODE, LAYER_FOGMODE, LAYER_VECTORMODE}) {
      types.SetInt32(c, zta::ITEMTREE_CELL_POPUP);
      titles.SetString(c, Text(10021));
    }
    titles.SetString(10001, "");
    titles.SetString(10000, Text(10020));
    titles.SetString(LAYER_COMMENT, Text(10022));
    // The check mark and the name stand first in every tree.
    zta::Int32 n = 1;
    for (zta::Int32 c : {10001, 10000, modeColumn, zta::Int32(LAYER_COMMENT)}) shown.SetInt32(n++, c);
    layout.SetContainer(zta::ITEMTREE_COLUMNTYPES, types);
    layout.SetContainer(zta::ITEMTREE_COLUMNTITLES, titles);
    layout.SetContainer(zta::ITEMTREE_COLUMNSSHOWN, shown);
    layout.SetInt32(zta::ITEMTREE_ITEMDATATYPE, 1);
    layout.SetInt32(zta::ITEMTREE_EDITCOLUMN, LAYER_COMMENT);
    description->SetParameter(zta::DescID(VOLUMEBUILDER_LAYERS), layout);
  }

  // Rows that take no part in this builder's type are greyed, with all below them.
  zta::ItemTree* tree = GetTree(op);
  if (tree) {
    std::vector<std::pair<zta::ItemTreeItem*, bool>> stack;
    if (tree->GetFirst()) stack.emplace_back(tree->GetFirst(), false);
    while (!stack.empty()) {
      auto [item, parentMarked] = stack.back();
      stack.pop_back();
      if (item->GetNext()) stack.emplace_back(item->GetNext(), parentMarked);
      bool marked = parentMarked;
      if (!parentMarked) {
        auto* obj = static_cast<zta::BaseObject*>(item->GetLink().GetLink(doc, zta::HOST_TYPE_OBJECT));
        if (obj && obj->GetType() == ID_VOLUMECACHELAYER) {
          const VolumeCacheLayerData* cache = VolumeCacheLayerData::Of(obj);
          marked = !cache || !cache->HasCache(doc);
        } else if (obj && obj->GetType() == ID_VOLUMEFILTER) {
          marked = obj->GetDataInstance()->GetInt32(VOLUMEFILTER_VOLUMETYPE) != volumeType_ - 1;
        }
      }
      item->SetFlags(marked ? item->GetFlags() | LAYERFLAG_UNFIT : item->GetFlags() & ~LAYERFLAG_UNFIT);
      if (item->GetDown()) stack.emplace_back(item->GetDown(), marked);
    }
  }

  // The settings of the one selected input, under the builder's group.
  zta::BaseTag* tag = nullptr;
  if (tree) {
    const auto selection = tree->GetSelection();
    if (selection.size() == 1) {
      auto* obj = static_cast<zta::BaseObject*>(selection.front()->GetLink().GetLink(doc, zta::HOST_TYPE_OBJECT));
      if (obj && !IsLayerObject(obj)) tag = FindTag(op, obj);
    }
  }
  if (tag) {
    zta::Description tagDescription;
    if (zta::GetNodeDescription(tag, tagDescription)) {
      if (!description->GetParameter(zta::DescID(VOLUMEBUILDER_GROUP))) {
        zta::BaseContainer group;
        group.SetInt32(zta::DESC_KIND, zta::Int32(zta::DESCKIND::GROUP));
        group.SetString(zta::DESC_NAME, tag->GetName());
        description->SetParameter(zta::DescID(VOLUMEBUILDER_GROUP), group);
      }
      for (zta::Int32 i = 0; i < tagDescription.GetCount(); ++i) {
        const zta::DescID& id = tagDescription.GetId(i);
        // Ids above 7000 are the ones the builder hands on to the tag.
        if (id.GetId() <= VOLUMEBUILDERTAG_INPUT) continue;
        zta::BaseContainer settings = tagDescription.GetSettings(i);
        if (id.GetId() == kTagGroupStart) {
          settings.SetInt32(zta::DESC_KIND, zta::Int32(zta::DESCKIND::GROUP));
          settings.SetString(zta::DESC_NAME, "");
          settings.SetString(zta::DESC_IDENT, "");
        }
        settings.SetInt32(zta::DESC_PARENTGROUP, VOLUMEBUILDER_GROUP);
        description->SetParameter(id, settings);
      }
      auto hide = [&](std::initializer_list<zta::Int32> ids) {
        for (zta::Int32 id : ids) description->Hide(zta::DescID(id));
      };
      const zta::Int32 bands[] = {VOLUMEBUILDERTAG_VECTOR_EXTERIORBAND, VOLUMEBUILDERTAG_VECTOR_INTERIORBAND,
                                  VOLUMEBUILDERTAG_VECTOR_SPLINEBAND, VOLUMEBUILDERTAG_VECTOR_PARTICLEBAND};
      auto hideBands = [&]() {
        for (zta::Int32 id : bands) description->Hide(zta::DescID(id));
      };
      if (volumeType_ == BUILDERTYPE_SDF) {
        hideBands();
        hide({VOLUMEBUILDERTAG_VECTORMODE, VOLUMEBUILDERTAG_INTERIORBAND, VOLUMEBUILDERTAG_FILLINTERIOR});
      } else if (volumeType_ == BUILDERTYPE_FOG) {
        hideBands();
        hide({VOLUMEBUILDERTAG_VECTORMODE, VOLUMEBUILDERTAG_FOGTHRESHOLD});
      } else {
        switch (tag->GetDataInstance()->GetInt32(VOLUMEBUILDERTAG_VECTORMODE)) {
          case 1:
            hide({VOLUMEBUILDERTAG_FOGTHRESHOLD});
            hideBands();
            break;
          case 0:
          case 2:
          default: hide({VOLUMEBUILDERTAG_FOGTHRESHOLD, VOLUMEBUILDERTAG_INTERIORBAND, VOLUMEBUILDERTAG_FILLINTERIOR}); break;
        }
      }
    }
  }

  // Copying the voxel size needs a reference that has one.
  const auto* ref = static_cast<const zta::BaseObject*>(bc->GetLink(VOLUMEBUILDER_REFERENCE, doc, zta::HOST_TYPE_OBJECT));
  if (!ref || (ref->GetType() != ID_VOLUMEOBJECT && ref->GetType() != ID_VOLUMEBUILDER))
    description->Hide(zta::DescID(VOLUMEBUILDER_COPYVOXELSIZE));

  // The add popup: the first entry opens the list of this type's filters.
  if (const zta::BaseContainer* current = description->GetParameter(zta::DescID(VOLUMEBUILDER_ADD))) {
    zta::BaseContainer add = *current;
    zta::BaseContainer cycle, icons;
    cycle.SetString(ADD_TYPEENTRY, "&POPUP" + Text(kAddEntryResource[volumeType_ - 1]));
    cycle.SetString(ADD_FOLDER, Text(kFolderResource));
    cycle.SetString(ADD_CACHE, Text(kCacheResource));
    cycle.SetString(ADD_FILTER, Text(kFilterResource));
    icons.SetInt32(ADD_FOLDER, kFolderIcon);
    icons.SetInt32(ADD_CACHE, kCacheIcon);
    add.SetContainer(zta::DESC_CYCLE, cycle);
    add.SetContainer(zta::DESC_CYCLEICONS, icons);
    description->SetParameter(zta::DescID(VOLUMEBUILDER_ADD), add);
  }
  flags |= zta::DESCFLAGS_DESC_LOADED;
  return true;
}

}  // namespace zelmar
