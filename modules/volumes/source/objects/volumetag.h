#pragma once
// VolumeTagData: the volume tag (1050995). It sits on an object whose cache
// holds volume objects and lets a person pick up to three of them by name for
// a consumer outside the module, each with a value range. Picks survive
// rebuilds of the cache: a slot finds its volume again by link or by name.
#include <memory>
#include <string>
#include <vector>

#include "host/core/result.h"
#include "host/scene/baselink.h"
#include "host/scene/basetag.h"
#include "host/scene/nodedata.h"

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMETAG = 1050995,
  // Parameters: three slots of index, range and a fit button.
  VOLUMETAG_TARGET = 7000,
  VOLUMETAG_FIRST = 7001,
  VOLUMETAG_FIRST_MAX = 7002,
  VOLUMETAG_SECOND = 7003,
  VOLUMETAG_SECOND_MAX = 7004,
  VOLUMETAG_THIRD = 7005,
  VOLUMETAG_THIRD_MAX = 7006,
  VOLUMETAG_FIRST_MIN = 7007,
  VOLUMETAG_SECOND_MIN = 7008,
  VOLUMETAG_THIRD_MIN = 7009,
  VOLUMETAG_FIRST_FIT = 7010,
  VOLUMETAG_SECOND_FIT = 7011,
  VOLUMETAG_THIRD_FIT = 7012,
  // The type that the drop target takes.
  VOLUMETAG_TARGET_TYPE = 5702,
};

// The volumes found below an object, in walk order.
struct VolumeTagLists {
  std::vector<zta::BaseLink> links;
  std::vector<std::string> names;
  std::vector<zta::Int32> icons;
  void Clear() {
    links.clear();
    names.clear();
    icons.clear();
  }
  bool operator==(const VolumeTagLists&) const = default;
};

class VolumeTagData : public zta::TagData {
 public:
  VolumeTagData();
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "VolumeTag-" row of the start table.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  bool ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) override;
  bool WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  bool DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) override;
  bool SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                         zta::Int32& flags) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;
  zta::EXECUTIONRESULT ExecuteTag(zta::BaseTag* tag, zta::BaseDocument* doc, zta::BaseObject* op, zta::ZTAThread* bt,
                                  zta::Int32 priority, zta::Int32 flags) override;
  bool AddTagToExecution(zta::BaseTag* tag, zta::PriorityList* list) override;

  // The volume object of a slot: 1 the second (falling back to the first
  // when unset), 2 the first, 3 the third. Null for no pick.
  zta::BaseObject* SlotVolume(const zta::BaseTag* tag, const zta::BaseObject* op, zta::Int32 slot) const;
  const VolumeTagLists& GetLists() const { return lists_; }
  // The name and link that slot `index` (0 to 2) remembers.
  const std::string& GetSlotName(int index) const { return slots_[index].name; }
  zta::BaseList2D* GetSlotLink(int index, const zta::BaseDocument* doc) const;
  // Whether the tag sits in the cache of a generator (a cloner), whose copies share its lists.
  bool IsInsideGenerator() const { return insideGenerator_; }

  // Adds `node` to the lists when it is a volume object: its name with its
  // parents' names, a link and an icon.
  static zta::Result<void> CollectVolumes(zta::BaseList2D* node, VolumeTagLists& lists);
  // CRC-32C over the tree of the object's cache: what changes when the cache
  // is made again or one of its nodes changes.
  static zta::UInt32 ObjectTreeChecksum(const zta::BaseObject* op, bool tableForm = false);
  // Points the slot at the entry the index at `id` names, or finds its entry
  // again by link or name; writes the index back.
  static zta::Result<void> MatchSlot(const VolumeTagLists& lists, zta::BaseContainer* bc, zta::Int32 id,
                                     std::string& name, zta::BaseLink* link, const zta::BaseDocument* doc,
                                     bool reuse);
  // The node a clone was made from, followed to the first original.
  static zta::BaseList2D* BottomCloneSource(zta::BaseList2D* node);

 private:
  struct Slot {
    std::string name;
    std::unique_ptr<zta::BaseLink> link;
  };
  // The slot (0 to 2) of an index parameter, or -1.
  static int SlotOfIndexId(zta::Int32 id);
  bool FitRange(zta::BaseTag* tag, zta::Int32 buttonId);

  Slot slots_[3];
  const zta::BaseObject* lastObject_ = nullptr;
  zta::Int32 lastDirty_ = 0;
  zta::Int32 lastChecksum_ = 0;
  VolumeTagLists lists_;
  bool justAdded_ = false;
  bool insideGenerator_ = false;
};

}  // namespace zelmar
