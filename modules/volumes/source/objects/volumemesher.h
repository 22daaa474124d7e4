#pragma once
// The Volume Mesher (1039861): a generator that gives back one polygon object
// for each volume object found among its children, at an iso value set either
// in grid units or as a position in each volume's value range. It can add a
// curvature vertex map to each polygon object; a hidden proxy vertex map tag
// on the generator carries the map's name, so that the map can be addressed
// although its polygon objects live in a cache.
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/core/result.h"
#include "host/scene/baselink.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"
#include "zelmar/volume.h"

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMEMESHER = 1039861,
  // Parameters.
  MESHER_THRESHOLD_ABSOLUTE = 6000,
  MESHER_ADAPTIVITY = 6002,
  MESHER_THRESHOLD_RELATIVE = 6003,
  MESHER_USE_ABSOLUTE = 6004,
  MESHER_CURVATURE_MAP = 6005,
  MESHER_CURVATURE_MODE = 6006,
};

// Which curvature values the map keeps.
enum : zta::Int32 { MESHER_CURVATURE_ABSOLUTE = 0, MESHER_CURVATURE_POSITIVE = 1, MESHER_CURVATURE_NEGATIVE = 2 };

// What a mesh call needs beside iso and adaptivity.
struct MesherSettings {
  bool curvatureMap = false;
  zta::Int32 curvatureMode = 0;
  std::string mapName;
};

// The cache and dependency logic of a generator over volumes. T gives the
// dirty test CheckParameterChange(op) and the build MeshVolumes(op, volumes, hh).
template <typename T>
class VolumeGenerator : public zta::ObjectData {
 public:
  zta::BaseObject* BuildVirtualObjects(zta::BaseObject* op, const zta::HierarchyHelp* hh) override;
};

class VolumeToMeshGenerator final : public VolumeGenerator<VolumeToMeshGenerator> {
 public:
  VolumeToMeshGenerator() = default;
  ~VolumeToMeshGenerator() override;
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "VolMesh-" row of the start table.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  bool ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) override;
  bool WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;
  bool AddToExecution(zta::BaseObject* op, zta::PriorityList* list) override;
  zta::EXECUTIONRESULT ExecuteObject(zta::BaseObject* op, zta::BaseDocument* doc, zta::ZTAThread* bt,
                                     zta::Int32 priority, zta::Int32 flags) override;

  // The dirty test of the template: true when iso, adaptivity or mode changed
  // since the last test, or the object's data changed since the last build.
  bool CheckParameterChange(zta::BaseObject* op);
  // The new cache from `volumes` (volume objects), the present cache on a
  // user break, or null on failure.
  zta::BaseObject* MeshVolumes(zta::BaseObject* op, const std::vector<zta::BaseObject*>& volumes,
                               const zta::HierarchyHelp* hh);
  // Shows or hides the proxy tag as the curvature option says, and makes it
  // when `createMissing` and it is not there.
  void UpdateVertexMapTags(zta::BaseObject* op, zta::BaseDocument* doc, bool createMissing);

  // The iso value at `t` (-1 to 1) of the volume object's value range.
  zta::Result<double> ResolveThreshold(zta::BaseObject* volumeObject, double t);
  // The smallest and largest value of the volume object's grid, its
  // background included; kept per volume between builds.
  zta::Result<std::pair<double, double>> GetValueRange(zta::BaseObject* volumeObject);

  // The proxy tag of the first map on `op` (this node's object), or null.
  zta::BaseTag* GetProxyTag(zta::BaseObject* op);
  const std::vector<std::string>& GetMapNames() const { return names_; }
  // How many mesh commands ran, and how many value walks; what a caller can
  // count to see that unchanged inputs are not meshed or walked again.
  zta::Int64 GetMeshCallCount() const { return meshCalls_; }
  zta::Int64 GetRangeWalkCount() const { return rangeWalks_; }

 private:
  zta::Result<std::vector<std::unique_ptr<zta::BaseObject>>> MeshOneCall(const std::vector<zta::BaseObject*>& volumes,
                                                                         double iso, double adaptivity,
                                                                         const MesherSettings& settings,
                                                                         const zta::ThreadRef& thread);

  // A copy's links to the tags it copied point at the originals until the
  // copied tags exist; each is then taken by its place among the tags.
  void ResolveCopiedLinks(const zta::BaseObject* op) const;

  using RangeMap = std::unordered_map<zta::UInt64, std::pair<double, double>>;
  RangeMap previousRanges_;
  RangeMap currentRanges_;
  // The snapshot of the last dirty test.
  double lastAbsolute_ = 0.01;
  double lastAdaptivity_ = 0.0;
  bool lastUseAbsolute_ = false;
  double lastRelative_ = 0.0;
  zta::UInt32 lastDataDirty_ = 0;
  bool dataDirtyKnown_ = false;
  bool lastCurvatureFlag_ = false;
  mutable std::vector<zta::BaseLink> links_;
  // Per link: the place of the copied tag among the object's tags, -1 for none.
  mutable std::vector<zta::Int32> copiedTagIndex_;
  std::vector<bool> visible_;
  std::vector<std::string> names_;
  bool linksRead_ = false;
  zta::Int64 meshCalls_ = 0;
  zta::Int64 rangeWalks_ = 0;
};

}  // namespace zelmar
