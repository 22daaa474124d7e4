#pragma once
// VolumeSetData: the object (1039867) that holds several volume objects as
// one unit, as one .vdb file of several grids does. The members live in a
// branch of the set ("Volumes", ListBranches), outside the object tree, and
// are listed in the item tree of VOLUMESET_TREE; the set's cache is a Null
// holding a copy of each listed member. The set, not its members, owns the
// file: it registers with the save hook, which writes all members into it.
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "host/core/url.h"
#include "host/scene/baselink.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"
#include "modules/volumes/source/objects/volumesavehookinterface.h"
#include "zelmar/volume.h"

namespace zta {
class BaseDocument;
}

namespace zelmar {

enum : zta::Int32 {
  VOLUMESET_FILE = 6000,
  VOLUMESET_TREE = 6001,
  VOLUMESET_INFO_SIZE = 6002,
  VOLUMESET_SAVE = 6003,
  VOLUMESET_RELOAD = 6004,
  VOLUMESET_SELECT_ALL = 6007,
};

class VolumeSetData : public zta::ObjectData {
 public:
  VolumeSetData();
  ~VolumeSetData() override;
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "VolGroup-" row of the start table.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  bool ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) override;
  bool WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  zta::Int32 ListBranches(zta::GeListNode* node, zta::BranchInfo* info, zta::Int32 max,
                          zta::Int32 flags) const override;
  bool SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                         zta::Int32& flags) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;
  void GetObjectBounds(zta::BaseObject* op, zta::Vector* mp, zta::Vector* rad) override;
  bool AddToExecution(zta::BaseObject* op, zta::PriorityList* list) override;
  zta::EXECUTIONRESULT ExecuteObject(zta::BaseObject* op, zta::BaseDocument* doc, zta::ZTAThread* bt,
                                     zta::Int32 priority, zta::Int32 flags) override;
  zta::BaseObject* BuildVirtualObjects(zta::BaseObject* op, const zta::HierarchyHelp* hh) override;

  // The members' volumes in list order, each grid named after its object.
  zta::Result<void> CollectVolumes(std::vector<Volume>& volumes) const;
  // Puts `volumes` into the members in list order; members beyond stay as they are.
  zta::Result<void> ApplyVolumes(const std::vector<Volume>& volumes);
  // Replaces the members by one volume object per grid of the file, in file order.
  zta::Result<void> LoadAllGrids(zta::BaseObject* op, const Url& url);

  zta::GeListHead* GetListHead() const { return listHead_.get(); }
  zta::BaseObject* GetFirstMember() const;
  bool IsFileFound() const { return fileFound_; }
  bool IsFileMissing() const { return fileMissing_; }
  const Url& GetFileUrl() const { return fileUrl_; }

 private:
  // One row per member, in list order; `keep` (when given) says which members had a row.
  void RefreshTree(zta::BaseObject* op, const std::vector<bool>* keep = nullptr);
  zta::Result<void> RegisterWithHook(zta::BaseObject* op, zta::BaseDocument* doc, Url& url);
  zta::Result<void> ConnectSaveHook(zta::BaseObject* op, zta::BaseDocument* doc);
  bool SaveButton(zta::BaseObject* op, zta::BaseDocument* doc);
  bool ReloadButton(zta::BaseObject* op, zta::BaseDocument* doc);
  bool HandleTreeEvent(zta::BaseObject* op, void* data);
  bool AnyMemberChanged() const;

  std::unique_ptr<zta::GeListHead> listHead_;
  std::string branchName_;
  Url fileUrl_;
  // The file whose grid count the last execution compared with the members.
  Url checkedUrl_;
  std::unique_ptr<zta::BaseLink> hookLink_;
  bool fileFound_ = false;
  bool gridChanged_ = false;
  mutable bool embedNextSave_ = false;
  bool fileMissing_ = false;
};

}  // namespace zelmar
