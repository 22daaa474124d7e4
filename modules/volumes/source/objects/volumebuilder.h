#pragma once
// VolumeBuilderData (1039859): the generator that folds a layer list of
// inputs into one volume. Each row of the item tree VOLUMEBUILDER_LAYERS is an
// input (an object, linked or a child of the builder), a folder, or a filter
// or cache layer held in place; each input's conversion settings live in a
// VolumeBuilderTag on the builder. An EvalNode keeps what a row made across
// rebuilds, so that a rebuild converts only what changed and re-folds the rest.
#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/core/math.h"
#include "host/scene/baselink.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"
#include "modules/volumes/source/objects/volumecachelayer.h"
#include "modules/volumes/source/objects/volumefilter.h"

namespace zta {
class ItemTree;
class ItemTreeItem;
struct ItemTreeEvent;
class BaseDocument;
}  // namespace zta

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMEBUILDER = 1039859,

  VOLUMEBUILDER_VOXELSIZE = 6000,
  VOLUMEBUILDER_MESH_EXTERIOR_BAND = 6001,
  VOLUMEBUILDER_MESH_INTERIOR_BAND = 6002,
  VOLUMEBUILDER_GROUP = 6004,
  VOLUMEBUILDER_VOLUMETYPE = 6005,
  VOLUMEBUILDER_LAYERS = 6016,
  VOLUMEBUILDER_INFO = 6019,
  VOLUMEBUILDER_LIST_SIZE = 6020,
  VOLUMEBUILDER_ADD = 6021,
  VOLUMEBUILDER_AUTOUPDATE = 6022,
  VOLUMEBUILDER_UPDATE = 6023,
  VOLUMEBUILDER_SPLINE_BAND = 6024,
  VOLUMEBUILDER_PARTICLE_BAND = 6025,
  VOLUMEBUILDER_REFERENCE = 6026,
  VOLUMEBUILDER_SELECTEDLAYER = 6027,
  VOLUMEBUILDER_COPYVOXELSIZE = 6029,
  VOLUMEBUILDER_CREATEGRADIENT = 6030,
  VOLUMEBUILDER_CREATECURL = 6032,
};

// Flags of a layer row.
enum : zta::Int32 {
  LAYERFLAG_SELECTED = 0x10,
  LAYERFLAG_ENABLED = 0x20,
  LAYERFLAG_INITIALISED = 0x200,
  LAYERFLAG_FOLDER = 0x1000,
  LAYERFLAG_UNFIT = 0x400000,
  LAYERFLAG_CHILD = 0x800000,
  LAYERFLAGS_NEWINPUT = 0x12f,
  LAYERFLAGS_NEWINPUT_OPEN = 0x20012f,
  LAYERFLAGS_NEWFOLDER = 0x201048,
};

// Keys of a layer row's container.
enum : zta::Int32 {
  LAYER_SDFMODE = 50000,
  LAYER_FOGMODE = 50001,
  LAYER_VECTORMODE = 50002,
  LAYER_COMMENT = 50003,
  LAYER_POPUPTEXTS = 14,
};

// The builder's kind, from VOLUMEBUILDER_VOLUMETYPE.
enum : zta::Int32 { BUILDERTYPE_SDF = 1, BUILDERTYPE_FOG = 2, BUILDERTYPE_VECTOR = 3 };

// Kinds of an EvalNode.
enum : zta::Int32 { EVALKIND_NONE = 0, EVALKIND_INPUT = 1, EVALKIND_FOLDER = 2, EVALKIND_FILTER = 3, EVALKIND_CACHE = 4 };

// What a row made, kept across rebuilds for as long as its row lives.
struct EvalNode {
  zta::BaseLink link;
  zta::Int32 dirtySum = 0;
  double voxelSize = 10.0;
  bool hasVolumes = false;
  bool isChild = false;
  std::vector<zta::BaseObject*> volumes;
  std::vector<std::shared_ptr<zta::BaseObject>> ownedResults;
  zta::Int32 fogMode = 0, sdfMode = 0, vectorMode = 0;
  zta::Int32 kind = EVALKIND_NONE;
  zta::Int32 parentList = -1, parentIndex = -1;
  bool valid = false;
  struct ChangeKey {
    zta::Int32 modeValue = -1;
    zta::Int32 activeIndex = -1;
    zta::Int32 depth = 0;
    bool enabled = true;
    bool isChildFlag = true;
    bool operator==(const ChangeKey&) const = default;
  } changeKey;

  // What the fold of this row's sibling group held after this row, and what
  // it was made from: a later rebuild starts folding above the lowest row
  // whose key or volumes changed.
  struct FoldKey {
    zta::Int32 mode = -1;
    bool enabled = false;
    const EvalNode* below = nullptr;
    bool operator==(const FoldKey&) const = default;
  };
  std::vector<std::shared_ptr<zta::BaseObject>> folded;
  FoldKey foldKey;
  bool foldValid = false;
  // In a run of rows that join with one regroupable mode (union, intersection,
  // maximum, minimum): this row's volume joined with those of the rows above
  // it in the run, and what that was made from. A change in the middle of the
  // run then costs two joins: this row's with the rows above, and what lies
  // below with that.
  struct Above {
    std::shared_ptr<zta::BaseObject> result;
    std::shared_ptr<zta::BaseObject> operand;  // this row's volume, held so its identity can't be reused
    std::shared_ptr<zta::BaseObject> next;     // the row above's `result` it was joined with
    const EvalNode* nextRow = nullptr;
    zta::Int32 mode = -1;
    bool valid = false;
  } above;
  // A folder's rows changed in this rebuild.
  bool contentChanged = false;
  // A field sized by the layers below it: the box of the volume below that
  // its volumes were made for.
  zta::Vector baseMin, baseMax;
  bool hasBase = false;

  void ClearResults() {
    valid = false;
    volumes.clear();
    ownedResults.clear();
    folded.clear();
    foldValid = false;
    above = {};
  }
};
using EvalNodeRef = std::shared_ptr<EvalNode>;

// What decides whether the builder's parameters changed.
struct BuilderSettings {
  double voxelSize = 10.0;
  zta::Int32 meshExteriorBand = 2, meshInteriorBand = 2, splineBand = 2, particleBand = 2;
  bool hasReference = false;
  zta::Matrix gridMatrix;
  zta::Int32 volumeType = 0;
  bool autoUpdate = true, createGradient = false, createCurl = false;
};

// The objects of one input to be converted, gathered for one rebuild.
struct InputCollection {
  std::vector<zta::BaseObject*> particleSources;
  std::vector<zta::BaseObject*> objects;
  std::vector<std::shared_ptr<zta::BaseObject>> holders;
  int hasResult = 0;
};

// Counts of work a rebuild did, for those who watch the builder (tests, benchmarks).
struct BuilderStatistics {
  zta::Int64 conversions = 0;
  zta::Int64 folds = 0;
  zta::Int64 rebuilds = 0;
};

class VolumeBuilderData : public zta::ObjectData {
 public:
  VolumeBuilderData();
  ~VolumeBuilderData() override;
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "ObjVol-" row: the builder, then its tag.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  void FreeNode(zta::GeListNode* node) override;
  bool ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) override;
  bool WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  bool DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) override;
  zta::Int32 ListBranches(zta::GeListNode* node, zta::BranchInfo* info, zta::Int32 max,
                          zta::Int32 flags) const override;
  bool SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                         zta::Int32& flags) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;
  bool TranslateParameter(zta::GeListNode* node, const zta::DescID& id, zta::DescID& res_id,
                          zta::BaseList2D*& res_at) override;
  zta::BaseObject* BuildVirtualObjects(zta::BaseObject* op, const zta::HierarchyHelp* hh) override;

  // Adds a row for `object` under `parent` after `previous` (both may be
  // null); a null object adds a folder. Gives the row, or null.
  zta::ItemTreeItem* AddLayer(zta::BaseObject* op, zta::BaseObject* object, zta::ItemTreeItem* parent,
                              zta::ItemTreeItem* previous, bool isChild, bool open, bool select);

  // The row's mode for a builder type, as read back: out of range gives 0.
  static zta::Int32 GetLayerMode(const zta::ItemTreeItem* item, zta::Int32 builderType);
  static void SetLayerMode(zta::ItemTreeItem* item, zta::Int32 builderType, zta::Int32 mode);
  // Fills a row's container: the three modes with their popup texts and the comment.
  static void InitLayerContainer(zta::ItemTreeItem* item, bool isChild, bool hasObject);

  zta::Int32 GetVolumeType() const { return volumeType_; }
  const BuilderStatistics& GetStatistics() const { return statistics_; }
  bool IsEvalLocked() const { return evalLock_.load(std::memory_order_acquire); }
  size_t GetEvalNodeCount() const { return evalNodes_.size(); }
  // The evaluation record of a row, or null before the row has one.
  const EvalNode* FindEvalNode(const zta::ItemTreeItem* item) const {
    const auto it = evalNodes_.find(item);
    return it == evalNodes_.end() ? nullptr : it->second.get();
  }
  zta::GeListHead* GetFilterHead() const { return filterHead_.get(); }
  zta::GeListHead* GetCacheHead() const { return cacheHead_.get(); }

  static zta::ItemTree* GetTree(zta::BaseObject* op);

 private:
  struct DirtyFlags {
    bool nameDirty = false, inputsDirty = false, structureDirty = false;
  };
  bool TryLock() { return !evalLock_.exchange(true, std::memory_order_acq_rel); }
  void Unlock() { evalLock_.store(false, std::memory_order_release); }
  void BindTree(zta::BaseObject* op);
  // Whether `object` may become an input: not the builder, nothing that holds
  // it, no other builder's filter or cache layer.
  bool MayTake(zta::BaseObject* op, const zta::BaseObject* object) const;
  // What the add popup adds: a folder, a cache layer, a filter layer of one
  // operation, or an object of a registered type.
  zta::ItemTreeItem* AddFromPopup(zta::BaseObject* op, zta::Int32 value);
  bool HandleTreeEvent(zta::BaseObject* op, zta::ItemTreeEvent& event);
  void RefreshVolumeType(const zta::BaseObject* op);
  // The three steps of a rebuild before the fold.
  bool CompareSettings(zta::BaseObject* op);
  zta::Result<void> ScanDirty(zta::BaseObject* op, const zta::HierarchyHelp* hh, DirtyFlags& flags);
  zta::Result<void> RefreshEvalTree(zta::BaseObject* op);
  zta::Result<void> CollectInputs(zta::BaseObject* op, const zta::HierarchyHelp* hh);
  zta::Result<void> CollectObject(zta::BaseObject* op, zta::BaseObject* object, bool isChild, bool force,
                                  const zta::HierarchyHelp* hh, InputCollection& collection);
  void Prune(zta::BaseObject* op);
  void OrderLayers(zta::BaseObject* op);
  void ComputeBoundingSize();
  void ApplyVoxelLimit(zta::BaseObject* op);
  // The fold; an empty result with `cancelled` when the thread asked to stop.
  zta::Result<std::vector<std::shared_ptr<zta::BaseObject>>> Evaluate(zta::BaseObject* op,
                                                                      const zta::HierarchyHelp* hh);
  // `below` is what the fold holds beneath the row, when it holds anything.
  zta::Result<void> MakeVolumes(zta::BaseObject* op, EvalNode& n, const zta::HierarchyHelp* hh,
                                const std::vector<std::shared_ptr<zta::BaseObject>>* below = nullptr);
  // Whether `object` is a field input sized by the layers below it.
  bool NeedsBase(const zta::BaseObject* op, const zta::BaseObject* object) const;
  // The last row of the run of regroupable rows that starts at `first` over
  // `current`, or `first` when there is no such run.
  zta::Result<size_t> RegroupEnd(zta::BaseObject* op, const std::vector<EvalNodeRef>& list, size_t first,
                                 const std::vector<std::shared_ptr<zta::BaseObject>>& current,
                                 const zta::HierarchyHelp* hh);
  // Row `first`'s `above` join, made again where the rows up to `last` changed.
  zta::Result<std::shared_ptr<zta::BaseObject>> JoinAbove(const std::vector<EvalNodeRef>& list, size_t first, size_t last,
                                                          const zta::HierarchyHelp* hh);
  bool AboveIsValid(const std::vector<EvalNodeRef>& list, size_t first, size_t last) const;
  // (below op own) op above, left to right as a row-by-row fold joins them.
  zta::Result<std::shared_ptr<zta::BaseObject>> JoinThree(const std::shared_ptr<zta::BaseObject>& below,
                                                          const std::shared_ptr<zta::BaseObject>& own,
                                                          const std::shared_ptr<zta::BaseObject>& above, zta::Int32 mode,
                                                          const zta::HierarchyHelp* hh);
  // The mode a row joins with in this builder's type.
  zta::Int32 RowMode(const EvalNode& n) const;
  zta::Result<void> ApplyNode(zta::BaseObject* op, EvalNode& n, std::vector<std::shared_ptr<zta::BaseObject>>& current,
                              const zta::HierarchyHelp* hh);
  zta::Result<std::shared_ptr<zta::BaseObject>> Combine(const zta::BaseObject* a, const zta::BaseObject* b,
                                                         zta::Int32 mode, const zta::HierarchyHelp* hh);
  zta::Result<void> ConvertObject(zta::BaseObject* op, EvalNode& n, zta::BaseObject* object,
                                  const struct InputSettings& s, const zta::HierarchyHelp* hh);
  // The world box of the active voxels of the volume below a row, if any.
  static bool BaseBox(const std::vector<std::shared_ptr<zta::BaseObject>>* below, zta::Vector& lo, zta::Vector& hi);
  zta::Result<void> ConvertParticles(zta::BaseObject* op, EvalNode& n, const std::vector<zta::BaseObject*>& sources,
                                     const struct InputSettings& s, const zta::HierarchyHelp* hh);
  zta::Result<void> PostProcess(EvalNode& n, std::shared_ptr<zta::BaseObject> result, const struct InputSettings& s,
                                const zta::HierarchyHelp* hh);
  void SetInfo(zta::BaseObject* op, zta::Int64 voxels, zta::Int64 memory);
  zta::Matrix GridTransform(double voxelSize) const;
  EvalNodeRef FindOrMakeNode(zta::ItemTreeItem* item, bool* made = nullptr);

 public:
  bool checkVoxelLimit = false;
  double boundingSize = 0.0;
  bool cancelled = false;
  bool pendingName = false, pendingInputs = false, pendingStructure = false;
  BuilderSettings settings;
  zta::Matrix globalMatrix;
  bool globalMatrixChanged = false;
  double documentTime = 0.0;
  bool timeChanged = false;
  zta::UInt32 documentDirty = 0;
  zta::UInt32 particleEngineDirty = 0;
  zta::Int32 lastActiveCount = 0;
  bool skipSettingsCheck = false;
  bool updateRequested = false;
  bool ignoreNextSelection = false;

 private:
  zta::Int32 volumeType_ = BUILDERTYPE_SDF;
  std::unordered_map<const zta::ItemTreeItem*, EvalNodeRef> evalNodes_;
  std::unordered_map<const zta::BaseObject*, InputCollection> collectedInputs_;
  std::unordered_map<const zta::BaseObject*, std::vector<EvalNodeRef>> objectUsers_;
  std::vector<std::pair<EvalNodeRef, bool>> rebuildList_;
  std::vector<std::vector<EvalNodeRef>> layerLists_;
  std::vector<std::string> resultNames_;
  std::unique_ptr<zta::GeListHead> filterHead_;
  std::string filterHeadName_;
  std::string lastName_;
  std::unique_ptr<zta::GeListHead> cacheHead_;
  std::string cacheHeadName_;
  zta::BaseObject* bakeTarget_ = nullptr;
  std::atomic<bool> evalLock_{false};
  bool hasLastName_ = false;
  std::atomic<bool> inheritedLock_{false};
  BuilderStatistics statistics_;
};

}  // namespace zelmar
