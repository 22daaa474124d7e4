#include "modules/volumes/source/objects/volumeset.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <new>
#include <system_error>

#include "host/core/format.h"
#include "host/objects/phongtag.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hyperfile.h"
#include "host/scene/itemtree.h"
#include "host/scene/messages.h"
#include "host/scene/parameters.h"
#include "host/scene/plugins.h"
#include "host/ui/dialogs.h"
#include "modules/volumes/source/helper/volumeblock.h"
#include "modules/volumes/source/helper/phong.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/fileparameter.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/scenehook/volumesavemanagerhook.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kInfoFlags = 0x10008004;
constexpr zta::Int32 kDiskLevel = 1;
constexpr zta::Int32 kNameResource = 10003;
constexpr zta::Int32 kFileNotFoundResource = 10047;
constexpr zta::Int32 kSaveTitleResource = 10048;
constexpr zta::Int32 kPriorityFile = zta::EXECUTIONPRIORITY_INITIAL;
constexpr zta::Int32 kPriorityLate = zta::EXECUTIONPRIORITY_GENERATOR + 1;
constexpr const char* kSourceSceneKey = "source_zta_file";
constexpr const char* kBranchName = "Volumes";

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

VolumeObjectData* MemberData(zta::GeListNode* n) {
  auto* op = static_cast<zta::BaseObject*>(n);
  return op && op->GetType() == ID_VOLUMEOBJECT ? op->GetNodeData<VolumeObjectData>() : nullptr;
}

zta::ItemTree* TreeOf(zta::BaseObject* op) {
  return op->GetDataInstance()->GetCustomDataWritableTyped<zta::ItemTree>(VOLUMESET_TREE);
}

}  // namespace

VolumeSetData::VolumeSetData() : hookLink_(new (std::nothrow) zta::BaseLink()) {}

VolumeSetData::~VolumeSetData() = default;

std::unique_ptr<zta::NodeData> VolumeSetData::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeSetData());
}

bool VolumeSetData::Register() {
  return zta::RegisterObjectPlugin(ID_VOLUMESET, Text(kNameResource), kInfoFlags, &VolumeSetData::Alloc, "ovolumeset",
                                   kDiskLevel);
}

bool VolumeSetData::InitNode(zta::GeListNode* node) {
  if (!node || !hookLink_) return false;
  listHead_.reset(new (std::nothrow) zta::GeListHead());
  if (!listHead_) return false;
  listHead_->SetOwner(node);
  auto* op = static_cast<zta::BaseObject*>(node);
  zta::BaseContainer* bc = op->GetDataInstance();
  bc->SetCustomData(VOLUMESET_TREE, std::make_shared<zta::ItemTree>());
  if (zta::ItemTree* tree = TreeOf(op)) tree->SetOwner(op);
  branchName_ = kBranchName;
  if (zta::BaseContainer* host = bc->GetContainerInstance(VOLUMEOBJECT_HOSTFLAGS)) host->SetBool(1, true);
  return true;
}

zta::BaseObject* VolumeSetData::GetFirstMember() const {
  return listHead_ ? static_cast<zta::BaseObject*>(listHead_->GetFirst()) : nullptr;
}

zta::Int32 VolumeSetData::ListBranches(zta::GeListNode*, zta::BranchInfo* info, zta::Int32 max, zta::Int32) const {
  if (!info || max < 1 || !listHead_) return 0;
  info[0] = {listHead_.get(), branchName_, ID_VOLUMEOBJECT, 1};
  return 1;
}

// ---- members

zta::Result<void> VolumeSetData::CollectVolumes(std::vector<Volume>& volumes) const {
  if (!listHead_) return zta::NullptrError("list head not initialized");
  for (zta::GeListNode* n = listHead_->GetFirst(); n; n = n->GetNext()) {
    auto* member = static_cast<zta::BaseObject*>(n);
    if (member->GetType() != ID_VOLUMEOBJECT) continue;
    Volume volume = VolumeObjectData::GetVolume(member);
    if (!volume.HasGrid()) continue;
    volume.SetGridName(member->GetName());
    volumes.push_back(volume);
  }
  return zta::OK();
}

zta::Result<void> VolumeSetData::ApplyVolumes(const std::vector<Volume>& volumes) {
  if (!listHead_) return zta::NullptrError("list head not initialized");
  size_t next = 0;
  for (zta::GeListNode* n = listHead_->GetFirst(); n && next < volumes.size(); n = n->GetNext()) {
    VolumeObjectData* data = MemberData(n);
    if (!data) continue;
    auto* member = static_cast<zta::BaseObject*>(n);
    const Volume& volume = volumes[next++];
    data->SetVolume(member, volume);
    const std::string name = volume.GetGridName();
    if (!name.empty()) member->SetName(name);
  }
  return zta::OK();
}

zta::Result<void> VolumeSetData::LoadAllGrids(zta::BaseObject* op, const Url& url) {
  if (!listHead_) return zta::NullptrError("list head not initialized");
  std::vector<Volume> volumes;
  if (auto ok = VolumeToolsInterface::LoadAllGridsIntoVolumes(url, 1.0, volumes, nullptr); !ok) return ok;
  // Every member is made before the old ones go, so a failure changes nothing.
  std::vector<std::unique_ptr<zta::BaseObject>> made;
  for (const Volume& volume : volumes) {
    std::unique_ptr<zta::BaseObject> member = VolumeObjectData::MakeObject(volume);
    if (!member) return zta::OutOfMemoryError("out of memory making the volumes of a set");
    const std::string name = volume.GetGridName();
    member->SetName(name.empty() ? "Volume" : name);
    made.push_back(std::move(member));
  }
  listHead_->FlushAll();
  for (auto& member : made) member.release()->InsertUnderLast(listHead_.get());
  fileFound_ = true;
  fileMissing_ = false;
  gridChanged_ = false;
  checkedUrl_ = url;
  RefreshTree(op);
  op->SetDirty(zta::DIRTYFLAGS_DATA);
  return zta::OK();
}

void VolumeSetData::RefreshTree(zta::BaseObject* op, const std::vector<bool>* keep) {
  zta::ItemTree* tree = TreeOf(op);
  if (!tree) {
    op->GetDataInstance()->SetCustomData(VOLUMESET_TREE, std::make_shared<zta::ItemTree>());
    tree = TreeOf(op);
    if (!tree) return;
  }
  tree->SetOwner(op);
  tree->FlushAll();
  zta::ItemTreeItem* last = nullptr;
  size_t index = 0;
  for (zta::GeListNode* n = listHead_ ? listHead_->GetFirst() : nullptr; n; n = n->GetNext(), ++index) {
    if (keep && (index >= keep->size() || !(*keep)[index])) continue;
    auto* member = static_cast<zta::BaseObject*>(n);
    last = tree->InsertItem(nullptr, last, zta::TREEITEM_CHECKED, zta::GeData(member->GetName()), member);
  }
}

bool VolumeSetData::AnyMemberChanged() const {
  for (zta::GeListNode* n = listHead_ ? listHead_->GetFirst() : nullptr; n; n = n->GetNext())
    if (VolumeObjectData* data = MemberData(n); data && data->IsGridChanged()) return true;
  return false;
}

// ---- scene file

bool VolumeSetData::ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) {
  if (!node || !hf || !listHead_) return false;
  if (!ObjectData::ReadNode(node, hf, level)) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  // The container read with the node holds a tree without its owner.
  if (zta::ItemTree* tree = TreeOf(op)) tree->SetOwner(op);
  if (level < 1) return true;
  if (!hf->ReadNodeList(listHead_.get(), zta::NODECLASS::OBJECT)) return false;
  bool embedded = false;
  if (!hf->ReadBool(&embedded)) return false;
  if (embedded) {
    std::vector<char> block;
    if (!hf->ReadMemory(&block)) return false;
    auto loaded = DecodeVolumeBlock(std::move(block));
    if (!loaded) return hf->SetError("the embedded volumes could not be read: " + loaded.GetError().GetMessage());
    if (auto ok = ApplyVolumes(*loaded); !ok) return hf->SetError(ok.GetError().GetMessage());
    return true;
  }
  // Memory copies keep the grids in the members; a scene on disk keeps them in the set's file.
  if (hf->GetFileKind() != zta::HYPERFILE_KIND_SCENE) return true;
  Url url(op->GetDataInstance()->GetString(VOLUMESET_FILE));
  if (url.IsEmpty()) return true;
  // The scene's folder is not known yet: a relative file is looked for again at the load event.
  if (!VolumeObjectData::FindVolumeFile(url, nullptr)) {
    fileMissing_ = true;
    return true;
  }
  std::vector<Volume> volumes;
  if (auto ok = VolumeToolsInterface::LoadAllGridsIntoVolumes(url, 1.0, volumes, nullptr); !ok)
    return hf->SetError("the volume file " + url.GetPath() + " could not be read: " + ok.GetError().GetMessage());
  if (auto ok = ApplyVolumes(volumes); !ok) return hf->SetError(ok.GetError().GetMessage());
  fileUrl_ = url;
  fileFound_ = true;
  return true;
}

bool VolumeSetData::WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const {
  if (!node || !hf || !listHead_) return false;
  if (!ObjectData::WriteNode(node, hf)) return false;
  if (!hf->WriteNodeList(*listHead_, zta::NODECLASS::OBJECT)) return false;
  // Memory copies (undo, clipboard) carry the grids in the members, which
  // embed their own; a scene on disk leaves them to the save hook's file
  // unless the asset message found no file to take them.
  if (hf->GetFileKind() != zta::HYPERFILE_KIND_SCENE || !embedNextSave_) return hf->WriteBool(false);
  embedNextSave_ = false;
  std::vector<Volume> volumes;
  if (auto ok = CollectVolumes(volumes); !ok) return hf->SetError(ok.GetError().GetMessage());
  if (volumes.empty()) return hf->WriteBool(false);
  const auto block = EncodeVolumeBlock(volumes);
  if (!block) return hf->SetError("the volumes could not be embedded: " + block.GetError().GetMessage());
  return hf->WriteBool(true) && hf->WriteMemory(block->data(), zta::Int64(block->size()));
}

bool VolumeSetData::CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode,
                             zta::Int32 flags, zta::AliasTrans* trans) const {
  auto* target = dynamic_cast<VolumeSetData*>(dest);
  if (!target || !snode || !dnode || !listHead_ || !target->listHead_) return false;
  if (!ObjectData::CopyNode(dest, snode, dnode, flags, trans)) return false;
  // Which members the source's tree lists, by position, so that the copy's
  // tree lists the copies of the same ones.
  std::vector<bool> listed;
  std::vector<const zta::BaseList2D*> members;
  for (zta::GeListNode* n = listHead_->GetFirst(); n; n = n->GetNext()) members.push_back(static_cast<zta::BaseList2D*>(n));
  listed.assign(members.size(), false);
  const auto* source = static_cast<const zta::BaseObject*>(snode);
  if (auto tree = source->GetDataInstance()->GetCustomDataTyped<zta::ItemTree>(VOLUMESET_TREE)) {
    for (zta::ItemTreeItem* row = tree->GetFirst(); row; row = tree->GetNextInTree(row)) {
      const zta::BaseList2D* linked = row->GetLink().ForceGetLink();
      const auto at = std::find(members.begin(), members.end(), linked);
      if (at != members.end()) listed[size_t(at - members.begin())] = true;
    }
  }
  target->listHead_->FlushAll();
  for (const zta::BaseList2D* member : members) {
    std::unique_ptr<zta::BaseList2D> clone = member->GetClone(flags, trans);
    if (!clone) return false;
    clone.release()->InsertUnderLast(target->listHead_.get());
  }
  target->fileUrl_ = fileUrl_;
  target->fileFound_ = fileFound_;
  target->gridChanged_ = gridChanged_;
  target->fileMissing_ = fileMissing_;
  target->RefreshTree(static_cast<zta::BaseObject*>(dnode), &listed);
  return true;
}

// ---- parameters

bool VolumeSetData::SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                      zta::Int32& flags) {
  if (!node) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  if (id.GetId() == VOLUMESET_FILE) {
    // A file of any number of grids is taken: one grid makes a set of one.
    const FileParameterSteps steps{
        [&](zta::BaseDocument* doc, Url& url) { return RegisterWithHook(op, doc, url); },
        [](Url& url, zta::BaseDocument* doc) { return VolumeObjectData::FindVolumeFile(url, doc); },
        [&](const Url& url) { return LoadAllGrids(op, url); }};
    if (!ChangeFileParameter(op, VOLUMESET_FILE, t_data, flags, steps, fileUrl_, fileFound_)) return false;
  }
  return ObjectData::SetParameterValue(node, id, t_data, flags);
}

bool VolumeSetData::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                       zta::Int32 flags, const zta::BaseContainer* itemdesc) {
  switch (id.GetId()) {
    case VOLUMESET_TREE: {
      for (zta::GeListNode* n = listHead_ ? listHead_->GetFirst() : nullptr; n; n = n->GetNext())
        if (VolumeObjectData::GetVolume(static_cast<zta::BaseObject*>(n)).HasGrid()) return true;
      return false;
    }
    case VOLUMESET_SAVE: {
      if (!(gridChanged_ || AnyMemberChanged() || !fileFound_)) return false;
      for (zta::GeListNode* n = listHead_ ? listHead_->GetFirst() : nullptr; n; n = n->GetNext())
        if (VolumeObjectData::GetVolume(static_cast<zta::BaseObject*>(n)).GetActiveVoxelCount() > 0) return true;
      return false;
    }
    case VOLUMESET_RELOAD: return fileFound_;
    default: return ObjectData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
  }
}

// ---- bounds, execution, cache

void VolumeSetData::GetObjectBounds(zta::BaseObject*, zta::Vector* mp, zta::Vector* rad) {
  zta::Vector lo(std::numeric_limits<double>::max()), hi(-std::numeric_limits<double>::max());
  bool any = false;
  for (zta::GeListNode* n = listHead_ ? listHead_->GetFirst() : nullptr; n; n = n->GetNext()) {
    VolumeObjectData* data = MemberData(n);
    if (!data || !data->GetVolume().HasGrid()) continue;
    auto* member = static_cast<zta::BaseObject*>(n);
    zta::Vector c, r;
    data->GetObjectBounds(member, &c, &r);
    const zta::Matrix ml = member->GetMl();
    for (int corner = 0; corner < 8; ++corner) {
      const zta::Vector p(c.x + ((corner & 1) ? r.x : -r.x), c.y + ((corner & 2) ? r.y : -r.y),
                          c.z + ((corner & 4) ? r.z : -r.z));
      const zta::Vector q = ml * p;
      lo = zta::Vector(std::min(lo.x, q.x), std::min(lo.y, q.y), std::min(lo.z, q.z));
      hi = zta::Vector(std::max(hi.x, q.x), std::max(hi.y, q.y), std::max(hi.z, q.z));
    }
    any = true;
  }
  if (mp) *mp = any ? (lo + hi) * 0.5 : zta::Vector(0.0);
  if (rad) *rad = any ? (hi - lo) * 0.5 : zta::Vector(0.0);
}

bool VolumeSetData::AddToExecution(zta::BaseObject* op, zta::PriorityList* list) {
  if (!op || !list) return false;
  list->Add(op, kPriorityFile);
  list->Add(op, kPriorityLate);
  return true;
}

zta::EXECUTIONRESULT VolumeSetData::ExecuteObject(zta::BaseObject* op, zta::BaseDocument* doc, zta::ZTAThread* bt,
                                                  zta::Int32 priority, zta::Int32 flags) {
  if (!op || !doc) return zta::EXECUTIONRESULT::OUTOFMEMORY;
  if (priority == kPriorityFile) {
    zta::BaseContainer* bc = op->GetDataInstance();
    fileUrl_ = Url(bc->GetString(VOLUMESET_FILE));
    if (!hookLink_ || !hookLink_->GetLink(doc, ID_VOLUMESAVEHOOK)) {
      if (auto ok = ConnectSaveHook(op, doc); !ok) return zta::EXECUTIONRESULT::OUTOFMEMORY;
      bc->SetString(VOLUMESET_FILE, fileUrl_.ToString());
    }
    Url url = fileUrl_;
    if (!url.IsEmpty()) {
      fileFound_ = VolumeObjectData::FindVolumeFile(url, doc);
      if (fileFound_) {
        fileMissing_ = false;
        // A file that holds more grids than the set has members is read
        // whole; asked once per file, not at every pass.
        if (url != checkedUrl_) {
          checkedUrl_ = url;
          size_t members = 0;
          for (zta::GeListNode* n = listHead_ ? listHead_->GetFirst() : nullptr; n; n = n->GetNext()) ++members;
          auto names = VolumeToolsInterface::GetGridNamesFromFile(url);
          if (names && names->size() > members) {
            if (auto ok = LoadAllGrids(op, url); !ok) return zta::EXECUTIONRESULT::OUTOFMEMORY;
          }
        }
      }
    } else {
      Url named(SafeVolumeFileName(op->GetName()));
      if (auto ok = RegisterWithHook(op, doc, named); !ok) return zta::EXECUTIONRESULT::OUTOFMEMORY;
      bc->SetString(VOLUMESET_FILE, named.ToString());
      fileUrl_ = named;
    }
  }
  return ObjectData::ExecuteObject(op, doc, bt, priority, flags);
}

zta::BaseObject* VolumeSetData::BuildVirtualObjects(zta::BaseObject* op, const zta::HierarchyHelp* hh) {
  if (!op || !hh) return nullptr;
  zta::BaseDocument* doc = hh->GetDocument();
  zta::BaseContainer* bc = op->GetDataInstance();
  std::unique_ptr<zta::BaseObject> root = zta::AllocObject(zta::HOST_TYPE_NULL);
  if (!root) return nullptr;
  Int voxels = 0, memory = 0;
  bool anyVolume = false;
  if (auto tree = bc->GetCustomDataTyped<zta::ItemTree>(VOLUMESET_TREE)) {
    zta::BaseObject* last = nullptr;
    for (zta::ItemTreeItem* row = tree->GetFirst(); row; row = tree->GetNextInTree(row)) {
      zta::BaseList2D* linked = row->GetLink().GetLink(doc);
      if (!linked) linked = row->GetLink().ForceGetLink();
      // Only members of this set count: a row may outlive its object.
      if (!linked || linked->GetType() != ID_VOLUMEOBJECT || linked->GetListHead() != listHead_.get()) continue;
      auto* member = static_cast<zta::BaseObject*>(linked);
      VolumeObjectData* data = MemberData(member);
      if (!data) continue;
      data->ApplyMatrixToGrid(member);
      std::unique_ptr<zta::BaseList2D> clone = member->GetClone(zta::COPYFLAGS_NONE, nullptr);
      if (!clone) return nullptr;
      auto* copy = static_cast<zta::BaseObject*>(clone.release());
      if (last) copy->InsertAfter(last);
      else copy->InsertUnder(root.get());
      last = copy;
      const Volume& volume = data->GetVolume();
      if (volume.HasGrid()) {
        anyVolume = true;
        voxels += volume.GetActiveVoxelCount();
        memory += volume.GetMemUsage();
      }
    }
  }
  if (fileMissing_) bc->SetString(VOLUMESET_INFO_SIZE, Text(kFileNotFoundResource));
  else bc->SetString(VOLUMESET_INFO_SIZE, VolumeObjectData::InfoSizeText(anyVolume ? voxels : 0, anyVolume ? memory : 0));
  return root.release();
}

// ---- the save hook

zta::Result<void> VolumeSetData::ConnectSaveHook(zta::BaseObject* op, zta::BaseDocument* doc) {
  if (!hookLink_) return zta::NullptrError("save hook not initialized");
  zta::BaseList2D* hookNode = doc ? doc->FindSceneHook(ID_VOLUMESAVEHOOK) : nullptr;
  VolumeSaveHookInterface* hook = GetSaveHookInterface(hookNode);
  if (!hook) return zta::IllegalStateError("could not create scene hook connection");
  hookLink_->SetLink(hookNode);
  if (!fileUrl_.IsEmpty()) return hook->RegisterVolumeFile(op, fileUrl_);
  return zta::OK();
}

zta::Result<void> VolumeSetData::RegisterWithHook(zta::BaseObject* op, zta::BaseDocument* doc, Url& url) {
  // As for the volume object: without the hook the file stands as given.
  if (!doc || !doc->FindSceneHook(ID_VOLUMESAVEHOOK)) return zta::OK();
  if (!hookLink_) return zta::NullptrError("save hook not initialized");
  VolumeSaveHookInterface* hook = GetSaveHookInterface(hookLink_->GetLink(doc, ID_VOLUMESAVEHOOK));
  if (!hook) {
    if (auto ok = ConnectSaveHook(op, doc); !ok) return ok;
    hook = GetSaveHookInterface(hookLink_->GetLink(doc, ID_VOLUMESAVEHOOK));
    if (!hook) return zta::IllegalStateError("scene hook seems damaged");
  }
  return hook->RegisterVolumeFile(op, url);
}

bool VolumeSetData::SaveButton(zta::BaseObject* op, zta::BaseDocument* doc) {
  DataDictionary metadata;
  if (doc && !doc->GetDocumentPath().empty()) metadata.Set(kSourceSceneKey, doc->GetDocumentName());
  zta::BaseContainer* bc = op->GetDataInstance();
  Url url(bc->GetString(VOLUMESET_FILE));
  Url target = url;
  if (VolumeObjectData::FindVolumeFile(target, doc)) {
    // The file exists: written again only when something changed.
    if (!(gridChanged_ || AnyMemberChanged())) return true;
  } else if (doc && !doc->GetDocumentPath().empty()) {
    Url registered;
    const FileParameterSteps steps{[&](zta::BaseDocument* d, Url& u) { return RegisterWithHook(op, d, u); }, {}, {}};
    auto prepared = PrepareFileInVol(op, doc, url, steps, registered);
    if (!prepared) return false;
    target = *prepared;
    bc->SetString(VOLUMESET_FILE, registered.ToString());
  } else {
    // A scene without a folder asks where the file goes.
    std::string path = std::filesystem::path(url.GetPath()).filename().string();
    if (path.empty()) path = SafeVolumeFileName(op->GetName());
    if (!zta::SaveFileDialog(path, Text(kSaveTitleResource), "vdb")) return true;
    Url answer = Url::FromSystemPath(path);
    if (auto ok = RegisterWithHook(op, doc, answer); !ok) return false;
    target = answer;
    bc->SetString(VOLUMESET_FILE, answer.ToString());
  }
  if (auto ok = VolumeSaveManagerHook::WriteVolumeGroup(op, target, metadata); !ok) return false;
  fileUrl_ = target;
  checkedUrl_ = target;
  fileFound_ = true;
  fileMissing_ = false;
  gridChanged_ = false;
  return true;
}

bool VolumeSetData::ReloadButton(zta::BaseObject* op, zta::BaseDocument* doc) {
  Url url(op->GetDataInstance()->GetString(VOLUMESET_FILE));
  if (!VolumeObjectData::FindVolumeFile(url, doc)) return true;
  auto names = VolumeToolsInterface::GetGridNamesFromFile(url);
  if (!names) return false;
  // A file of one grid reloads too: the set then has one member.
  if (names->empty()) {
    if (doc) doc->EventAdd();
    return true;
  }
  if (auto ok = LoadAllGrids(op, url); !ok) return false;
  fileUrl_ = url;
  if (doc) doc->EventAdd();
  return true;
}

// ---- messages

bool VolumeSetData::HandleTreeEvent(zta::BaseObject* op, void* data) {
  auto* event = static_cast<zta::ItemTreeEvent*>(data);
  if (!event || !listHead_) return true;
  zta::BaseDocument* doc = op->GetDocument();
  switch (event->event) {
    case zta::ITEMTREE_EVENT_MAYDROP:
      if (event->objects)
        for (const zta::BaseList2D* dropped : *event->objects)
          if (!dropped || dropped->GetType() != ID_VOLUMEOBJECT || dropped == op) event->accept = false;
      return true;
    case zta::ITEMTREE_EVENT_DROPPED: {
      if (!event->objects) return true;
      // The dropped objects leave the object tree for the set's branch.
      if (doc) doc->StartUndo();
      for (zta::BaseList2D* dropped : *event->objects) {
        if (!dropped || dropped->GetType() != ID_VOLUMEOBJECT || dropped->GetListHead() == listHead_.get()) continue;
        if (doc) doc->AddUndo(zta::UNDOTYPE::HIERARCHY_PSR, dropped);
        std::unique_ptr<zta::GeListNode> taken = dropped->Remove();
        taken.release()->InsertUnderLast(listHead_.get());
      }
      if (doc) doc->EndUndo();
      gridChanged_ = true;
      op->SetDirty(zta::DIRTYFLAGS_DATA);
      return true;
    }
    case zta::ITEMTREE_EVENT_DELETE: {
      zta::ItemTree* tree = event->tree ? event->tree : TreeOf(op);
      if (!tree) return true;
      if (doc) doc->StartUndo();
      for (zta::ItemTreeItem* row : tree->GetSelection()) {
        zta::BaseList2D* member = row->GetLink().ForceGetLink();
        tree->RemoveItem(row);
        if (!member || member->GetListHead() != listHead_.get()) continue;
        if (doc) doc->AddUndo(zta::UNDOTYPE::DELETEOBJ, member);
        zta::GeListNode::Free(member);
      }
      if (doc) doc->EndUndo();
      gridChanged_ = true;
      op->SetDirty(zta::DIRTYFLAGS_DATA);
      return true;
    }
    case zta::ITEMTREE_EVENT_SELECTION: {
      zta::ItemTree* tree = event->tree ? event->tree : TreeOf(op);
      if (!tree) return true;
      // The marked rows select their members.
      for (zta::ItemTreeItem* row = tree->GetFirst(); row; row = tree->GetNextInTree(row)) {
        zta::BaseList2D* member = row->GetLink().ForceGetLink();
        if (!member || member->GetListHead() != listHead_.get()) continue;
        if (row->GetFlags() & zta::TREEITEM_SELECTED) member->SetBit(zta::BIT_ACTIVE);
        else member->DelBit(zta::BIT_ACTIVE);
      }
      return true;
    }
    default: return true;
  }
}

bool VolumeSetData::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (!node) return false;
  auto* op = static_cast<zta::BaseObject*>(node);
  zta::BaseDocument* doc = op->GetDocument();
  zta::BaseContainer* bc = op->GetDataInstance();

  switch (type) {
    case zta::MSG_ITEMTREE_EVENT:
      if (!HandleTreeEvent(op, data)) return false;
      break;
    case zta::MSG_MENUPREPARE: {
      if (!ApplyDefaultPhong(op)) return false;
      break;
    }
    case zta::MSG_DESCRIPTION_COMMAND: {
      const auto* command = static_cast<const zta::DescriptionCommand*>(data);
      if (!command) break;
      const zta::Int32 id = command->id.GetId();
      if (id == VOLUMESET_SELECT_ALL) {
        if (zta::ItemTree* tree = TreeOf(op)) {
          for (zta::ItemTreeItem* row = tree->GetFirst(); row; row = tree->GetNextInTree(row))
            row->SetFlags(row->GetFlags() | zta::TREEITEM_SELECTED);
        }
      }
      if (id == VOLUMESET_SAVE && !SaveButton(op, doc)) return false;
      if (id == VOLUMESET_RELOAD && !ReloadButton(op, doc)) return false;
      break;
    }
    case zta::MSG_GETALLASSETS: {
      auto* assets = static_cast<zta::AssetData*>(data);
      if (!assets) break;
      if (!(assets->GetFlags() & (zta::ASSETDATA_FLAG_SAVEPROJECT | zta::ASSETDATA_FLAG_LISTALL))) break;
      Url url(bc->GetString(VOLUMESET_FILE));
      if (VolumeObjectData::FindVolumeFile(url, doc ? doc : assets->GetDocument()))
        assets->Add(url.ToString(), op, VOLUMESET_FILE);
      else
        embedNextSave_ = true;
      break;
    }
    case zta::MSG_NAMEORPATH_CHANGED: {
      const FileParameterSteps steps{[&](zta::BaseDocument* d, Url& u) { return RegisterWithHook(op, d, u); }, {}, {}};
      if (!FollowObjectName(op, VOLUMESET_FILE, steps)) return false;
      break;
    }
    case zta::MSG_DOCUMENTINFO: {
      const auto* info = static_cast<const zta::DocumentInfoData*>(data);
      if (!info) break;
      zta::BaseDocument* target = info->doc ? info->doc : doc;
      if (info->type == zta::DOCUMENTINFO_TYPE_LOAD_AFTER || info->type == zta::DOCUMENTINFO_TYPE_MERGE_AFTER) {
        if (fileMissing_) {
          Url url(bc->GetString(VOLUMESET_FILE));
          std::vector<Volume> volumes;
          if (VolumeObjectData::FindVolumeFile(url, target) &&
              VolumeToolsInterface::LoadAllGridsIntoVolumes(url, 1.0, volumes, nullptr)) {
            if (GetFirstMember()) (void)ApplyVolumes(volumes);
            else (void)LoadAllGrids(op, url);
            fileUrl_ = url;
            checkedUrl_ = url;
            fileFound_ = true;
            fileMissing_ = false;
          }
        }
        for (zta::GeListNode* n = listHead_ ? listHead_->GetFirst() : nullptr; n; n = n->GetNext())
          if (VolumeObjectData* member = MemberData(n); member && member->GetVolume().HasGrid())
            member->SyncMatrixFromGrid(static_cast<zta::BaseObject*>(n));
      } else if ((info->type == zta::DOCUMENTINFO_TYPE_SAVE_BEFORE ||
                  info->type == zta::DOCUMENTINFO_TYPE_SAVEAS_BEFORE) &&
                 info->subType == zta::DOCUMENTINFO_SUBTYPE_SCENEFILE) {
        std::filesystem::path file(bc->GetString(VOLUMESET_FILE));
        if (file.filename().empty()) {
          const std::string safe = SafeVolumeFileName(op->GetName());
          file = safe.substr(0, safe.size() - 4);
        }
        file.replace_extension("vdb");
        Url url(file.string());
        if (auto ok = RegisterWithHook(op, target, url); !ok) return false;
        bc->SetString(VOLUMESET_FILE, url.ToString());
      }
      break;
    }
    default: break;
  }
  return ObjectData::HandleMessage(node, type, data);
}

}  // namespace zelmar
