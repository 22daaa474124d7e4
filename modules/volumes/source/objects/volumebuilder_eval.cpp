// The rebuild of a Volume Builder: dirty scan, collection of the inputs that
// changed, conversions through the volume commands, and the bottom-up fold of
// each sibling group of the layer tree.
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <new>
#include <optional>
#include <unordered_set>

#include "host/core/format.h"
#include "host/fields/splinedata.h"
#include "host/scene/basecontainer.h"
#include "host/scene/basedocument.h"
#include "host/scene/basetag.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "host/scene/itemtree.h"
#include "host/ui/dialogs.h"
#include "host/ui/hostmode.h"
#include "modules/volumes/source/helper/progresshandler.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/objectcollection.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumebuildertag.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "zelmar/releasing.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kProgressTitleResource = 10051;
constexpr zta::Int32 kVoxelLimitQuestion = 10059;
constexpr zta::Int32 kSphereRadius = 1110;
constexpr zta::Int32 kSphereTypeParameter = 1112;
constexpr zta::Int32 kFilterTypeParameter = 1001;
constexpr double kVoxelLimit = 1000.0;
constexpr zta::UInt32 kInputDirtyFlags =
    zta::DIRTYFLAGS_MATRIX | zta::DIRTYFLAGS_DATA | zta::DIRTYFLAGS_CACHE | zta::DIRTYFLAGS_CHILDREN;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

// A cancelled step: the rebuild ends with the host's old cache.
struct Cancelled {};
zta::Error CancelledError() { return zta::IllegalStateError("the rebuild was cancelled"); }
bool IsCancelled(const zta::Error& e) { return e.GetMessage() == "the rebuild was cancelled"; }

bool StopAsked(const zta::HierarchyHelp* hh) {
  const zta::ThreadRef& t = hh->GetThread();
  return t && t->TestBreak();
}

bool IsVectorType(GRIDTYPE t) { return t == GRIDTYPE::VEC3I || t == GRIDTYPE::VEC3S || t == GRIDTYPE::VEC3D; }

std::shared_ptr<zta::BaseObject> Share(std::unique_ptr<zta::BaseObject> op) { return std::shared_ptr<zta::BaseObject>(op.release()); }

std::shared_ptr<zta::BaseObject> MakeVolumeObject(const Volume& v) { return Share(VolumeObjectData::MakeObject(v)); }

// Runs one volume command on `inputs`; the first result as a volume object,
// null when the command gave nothing.
zta::Result<std::shared_ptr<zta::BaseObject>> RunCommand(const char* id, const zta::BaseContainer& settings,
                                                         const std::vector<const zta::BaseObject*>& inputs,
                                                         const zta::HierarchyHelp* hh) {
  auto made = zta::CreateCommandData(kVolumeCommandDataClass);
  if (!made) return made.GetError();
  auto& data = static_cast<VolumeCommandData&>(**made);
  data.GetSettings().MergeContainer(settings);
  for (const zta::BaseObject* in : inputs) data.AddInput(in);
  auto state = zta::InvokeCommand(id, data, hh->GetThread());
  if (!state) return state.GetError();
  if (*state == zta::COMMANDRESULT::BREAK) return CancelledError();
  if (*state != zta::COMMANDRESULT::OK || data.GetLegacyDataCount() == 0) return std::shared_ptr<zta::BaseObject>();
  auto record = data.GetLegacyData(0);
  if (!record) return record.GetError();
  if (!record->volume.HasGrid()) return std::shared_ptr<zta::BaseObject>();
  auto object = MakeVolumeObject(record->volume);
  if (!object) return zta::OutOfMemoryError();
  return object;
}

// Whether a cache layer holds a volume for the document's frame.
bool CacheIsValid(const zta::BaseObject* layer, const zta::BaseDocument* doc) {
  const VolumeCacheLayerData* cache = VolumeCacheLayerData::Of(const_cast<zta::BaseObject*>(layer));
  return cache && cache->HasCache(doc);
}

// Joins whose grouping changes no voxel: (a op b) op c == a op (b op c).
// Union and intersection of level sets, maximum and minimum of fog, each keep
// the value of the first operand that wins, whichever way they are grouped.
bool RegroupableMode(zta::Int32 builderType, zta::Int32 mode) {
  if (builderType == BUILDERTYPE_SDF) return mode == 1 || mode == 3;
  if (builderType == BUILDERTYPE_FOG) return mode == 2 || mode == 3;
  return false;
}

// A float grid of the builder's class whose background is `background`
// (taken from the first one seen): with backgrounds that differ, the values
// outside the bands depend on the order of the joins.
bool RegroupableVolume(const zta::BaseObject* object, zta::Int32 builderType, std::optional<float>& background) {
  const Volume v = VolumeObjectData::GetVolume(object);
  if (!v.HasGrid() || v.GetGridType() != GRIDTYPE::FLOAT) return false;
  if ((v.GetGridClass() == GRIDCLASS::SDF) != (builderType == BUILDERTYPE_SDF)) return false;
  const zta::Data bg = v.GetBackground();
  const float* value = bg.TryGet<float>();
  if (!value) return false;
  if (!background) background = *value;
  return *background == *value;
}

}  // namespace

// ---- settings

bool VolumeBuilderData::CompareSettings(zta::BaseObject* op) {
  const zta::Matrix mg = op->GetMg();
  globalMatrixChanged = !(mg == globalMatrix);
  globalMatrix = mg;
  const zta::BaseContainer* bc = op->GetDataInstance();
  BuilderSettings s;
  s.voxelSize = bc->GetFloat(VOLUMEBUILDER_VOXELSIZE, 10.0);
  s.meshExteriorBand = bc->GetInt32(VOLUMEBUILDER_MESH_EXTERIOR_BAND, 2);
  s.meshInteriorBand = bc->GetInt32(VOLUMEBUILDER_MESH_INTERIOR_BAND, 2);
  s.splineBand = bc->GetInt32(VOLUMEBUILDER_SPLINE_BAND, 2);
  s.particleBand = bc->GetInt32(VOLUMEBUILDER_PARTICLE_BAND, 2);
  s.volumeType = bc->GetInt32(VOLUMEBUILDER_VOLUMETYPE, 0);
  s.autoUpdate = bc->GetBool(VOLUMEBUILDER_AUTOUPDATE, true);
  s.createGradient = bc->GetBool(VOLUMEBUILDER_CREATEGRADIENT);
  s.createCurl = bc->GetBool(VOLUMEBUILDER_CREATECURL);
  const zta::Matrix scale = zta::MatrixScale(zta::Vector(s.voxelSize, s.voxelSize, s.voxelSize));
  auto* ref = static_cast<zta::BaseObject*>(bc->GetLink(VOLUMEBUILDER_REFERENCE, op->GetDocument(), zta::HOST_TYPE_OBJECT));
  if (ref) {
    s.hasReference = true;
    const zta::Matrix rmg = ref->GetMg();
    const zta::Vector rs = rmg.GetScale();
    const zta::Matrix unscale =
        zta::MatrixScale(zta::Vector(rs.x ? 1.0 / rs.x : 1.0, rs.y ? 1.0 / rs.y : 1.0, rs.z ? 1.0 / rs.z : 1.0));
    s.gridMatrix = rmg * unscale * scale;
  } else {
    s.gridMatrix = scale;
  }
  const BuilderSettings& o = settings;
  const bool changed = s.voxelSize != o.voxelSize || s.volumeType != o.volumeType ||
                       s.meshExteriorBand != o.meshExteriorBand || s.meshInteriorBand != o.meshInteriorBand ||
                       s.splineBand != o.splineBand || s.particleBand != o.particleBand ||
                       s.hasReference != o.hasReference || !(s.gridMatrix == o.gridMatrix) ||
                       s.createGradient != o.createGradient || s.createCurl != o.createCurl;
  if (changed || s.autoUpdate != o.autoUpdate) settings = s;
  return changed;
}

// ---- dirty scan

zta::Result<void> VolumeBuilderData::ScanDirty(zta::BaseObject* op, const zta::HierarchyHelp* hh, DirtyFlags& flags) {
  RefreshVolumeType(op);
  // A cache whose grid no longer fits the type must go.
  if (zta::BaseObject* cache = op->GetCache(); cache && cache->GetType() == ID_VOLUMEOBJECT) {
    const Volume v = VolumeObjectData::GetVolume(cache);
    if (v.HasGrid()) {
      const bool fits = volumeType_ == BUILDERTYPE_SDF   ? v.GetGridType() == GRIDTYPE::FLOAT && v.GetGridClass() == GRIDCLASS::SDF
                        : volumeType_ == BUILDERTYPE_FOG ? true
                                                         : v.GetGridType() == GRIDTYPE::VEC3S;
      if (!fits) flags.structureDirty = true;
    }
  }
  const zta::UInt32 matrixDirty = op->GetDirty(zta::DIRTYFLAGS_MATRIX);
  if (matrixDirty != documentDirty) documentDirty = matrixDirty;
  zta::ItemTree* tree = GetTree(op);
  if (!tree) return zta::OK();
  zta::BaseDocument* doc = hh->GetDocument();
  struct Entry {
    zta::ItemTreeItem* item;
    zta::Int32 depth;
    bool underCache;
  };
  std::vector<Entry> stack;
  if (tree->GetFirst()) stack.push_back({tree->GetFirst(), 0, false});
  zta::Int32 activeIndex = 0, activeCount = 0;
  while (!stack.empty()) {
    Entry e = stack.back();
    stack.pop_back();
    zta::ItemTreeItem* item = e.item;
    if (item->GetNext()) stack.push_back({item->GetNext(), e.depth, e.underCache});
    if (item->GetDown()) stack.push_back({item->GetDown(), e.depth + 1, e.underCache});
    const bool folder = (item->GetFlags() & LAYERFLAG_FOLDER) != 0;
    if (item->GetLink().IsEmpty() && !folder) continue;
    auto* object = static_cast<zta::BaseObject*>(item->GetLink().GetLink(doc, zta::HOST_TYPE_OBJECT));
    bool active = true;
    if (folder) active = item->GetDown() != nullptr;
    else if (object && object->GetType() == ID_VOLUMEFILTER)
      active = object->GetDataInstance()->GetInt32(kFilterTypeParameter) == volumeType_ - 1;
    else if (object && object->GetType() == ID_VOLUMECACHELAYER && object != bakeTarget_)
      active = CacheIsValid(object, doc);
    bool made = false;
    EvalNodeRef node = FindOrMakeNode(item, &made);
    if (!node) return zta::OutOfMemoryError("no eval node could be found or created");
    if (made && active) flags.inputsDirty = true;
    bool enabled;
    if (folder) {
      enabled = (item->GetFlags() & LAYERFLAG_ENABLED) != 0;
    } else {
      enabled = (item->GetFlags() & LAYERFLAG_ENABLED) != 0 && object != nullptr;
    }
    if (enabled && active && !e.underCache) ++activeCount;
    EvalNode::ChangeKey key;
    key.modeValue = GetLayerMode(item, volumeType_);
    key.activeIndex = active ? activeIndex++ : -1;
    key.depth = e.depth;
    key.enabled = enabled;
    key.isChildFlag = (item->GetFlags() & LAYERFLAG_CHILD) != 0;
    if (object && !folder) {
      // Everything the conversion reads: the hierarchy, where it stands, and the input's settings.
      zta::UInt32 sum = object->GetHDirty(kInputDirtyFlags);
      if (object->GetUp()) sum += object->GetUp()->GetDirty(zta::DIRTYFLAGS_MATRIX);
      if (zta::BaseTag* tag = FindTag(op, object)) sum += tag->GetDirty(zta::DIRTYFLAGS_DATA);
      // A cache layer gives another volume at another frame, and after a bake or a clear.
      if (const VolumeCacheLayerData* cache = VolumeCacheLayerData::Of(object))
        sum += zta::UInt32(VolumeCacheLayerData::FrameOf(doc)) * 2654435761u + zta::UInt32(cache->GetFrameCount());
      if (zta::Int32(sum) != node->dirtySum) {
        node->ClearResults();
        node->dirtySum = zta::Int32(sum);
        if (active) flags.inputsDirty = true;
      }
    }
    if (key.isChildFlag != node->changeKey.isChildFlag) node->ClearResults();
    if (!(key == node->changeKey)) {
      if (active) flags.inputsDirty = true;
      node->changeKey = key;
    }
  }
  if (activeCount != lastActiveCount) {
    lastActiveCount = activeCount;
    flags.inputsDirty = true;
  }
  return zta::OK();
}

// ---- eval tree and inputs

zta::Result<void> VolumeBuilderData::RefreshEvalTree(zta::BaseObject* op) {
  const double voxelSize = op->GetDataInstance()->GetFloat(VOLUMEBUILDER_VOXELSIZE, 0.001);
  rebuildList_.clear();
  objectUsers_.clear();
  zta::ItemTree* tree = GetTree(op);
  if (!tree) return zta::OK();
  zta::BaseDocument* doc = op->GetDocument();
  std::vector<std::pair<zta::ItemTreeItem*, bool>> stack;
  if (tree->GetFirst()) stack.emplace_back(tree->GetFirst(), false);
  while (!stack.empty()) {
    auto [item, underCache] = stack.back();
    stack.pop_back();
    if (item->GetDown()) stack.emplace_back(item->GetDown(), underCache);
    EvalNodeRef node = FindOrMakeNode(item);
    if (!node) return zta::OutOfMemoryError("no eval node could be found or created");
    const zta::Int32 mode = GetLayerMode(item, volumeType_);
    if (volumeType_ == BUILDERTYPE_FOG) node->fogMode = mode;
    else if (volumeType_ == BUILDERTYPE_VECTOR) node->vectorMode = mode;
    else node->sdfMode = mode;
    const bool folder = (item->GetFlags() & LAYERFLAG_FOLDER) != 0;
    auto* object = static_cast<zta::BaseObject*>(item->GetLink().GetLink(doc, zta::HOST_TYPE_OBJECT));
    bool cacheCut = false;
    if (!object) {
      if (folder) {
        node->isChild = true;
        node->kind = EVALKIND_FOLDER;
      }
    } else {
      if (!node->valid) node->voxelSize = voxelSize;
      if (item->GetFlags() & LAYERFLAG_ENABLED) {
        node->isChild = (item->GetFlags() & LAYERFLAG_CHILD) != 0;
        node->link.SetLink(object);
      }
      node->kind = folder ? EVALKIND_FOLDER
                   : object->GetType() == ID_VOLUMEFILTER     ? EVALKIND_FILTER
                   : object->GetType() == ID_VOLUMECACHELAYER ? EVALKIND_CACHE
                                                              : EVALKIND_INPUT;
      cacheCut = node->kind == EVALKIND_CACHE && (item->GetFlags() & LAYERFLAG_ENABLED) && object != bakeTarget_ &&
                 CacheIsValid(object, doc);
      if (node->kind != EVALKIND_FOLDER) {
        objectUsers_[object].push_back(node);
        rebuildList_.emplace_back(node, underCache);
      }
    }
    if (item->GetNext()) stack.emplace_back(item->GetNext(), underCache || cacheCut);
  }
  return zta::OK();
}

zta::Result<void> VolumeBuilderData::CollectInputs(zta::BaseObject* op, const zta::HierarchyHelp* hh) {
  zta::BeginDependenceList(op);
  zta::BaseDocument* doc = hh->GetDocument();
  for (auto& [node, belowCache] : rebuildList_) {
    if (node->kind != EVALKIND_INPUT || !node->changeKey.enabled) continue;
    auto* object = static_cast<zta::BaseObject*>(node->link.GetLink(doc, zta::HOST_TYPE_OBJECT));
    if (!object) continue;
    auto found = collectedInputs_.find(object);
    if (found != collectedInputs_.end()) {
      node->hasVolumes = !found->second.objects.empty() || !found->second.particleSources.empty();
      continue;
    }
    // A field sized by the rows below is gathered every time (it costs no
    // clone): whether it must be made again is known only during the fold.
    bool force = NeedsBase(op, object);
    for (const EvalNodeRef& user : objectUsers_[object]) force = force || !user->valid;
    if (!force) {
      // Unchanged: it stays an input of this builder without being read again.
      zta::AddDependence(op, object);
      continue;
    }
    InputCollection collection;
    if (auto ok = CollectObject(op, object, node->isChild, force, hh, collection); !ok) return ok;
    if (!belowCache && (!collection.objects.empty() || !collection.particleSources.empty())) {
      node->hasVolumes = true;
      collectedInputs_[object] = std::move(collection);
    }
  }
  objectUsers_.clear();
  rebuildList_.clear();
  return zta::OK();
}

zta::Result<void> VolumeBuilderData::CollectObject(zta::BaseObject* op, zta::BaseObject* object, bool isChild, bool,
                                                   const zta::HierarchyHelp* hh, InputCollection& c) {
  const InputSettings s = ReadInputSettings(FindTag(op, object));
  if (IsParticleSource(object) || object->GetType() == zta::HOST_TYPE_MATRIX) {
    zta::AddDependence(op, object);
    if (object->GetDeformMode()) c.particleSources.push_back(object);
    return zta::OK();
  }
  if (IsFieldCarrier(object)) {
    zta::AddDependence(op, object);
    if (object->GetDeformMode()) c.objects.push_back(object);
    return zta::OK();
  }
  // Particle sources inside the hierarchy are converted from the scene's own objects.
  std::vector<const zta::BaseObject*> stack;
  if (object->GetDown() && !IsActiveGenerator(object)) stack.push_back(object->GetDown());
  while (!stack.empty()) {
    const zta::BaseObject* e = stack.back();
    stack.pop_back();
    if (e->GetNext()) stack.push_back(e->GetNext());
    if (e->GetDown() && !IsActiveGenerator(e)) stack.push_back(e->GetDown());
    if (e->GetType() == zta::HOST_TYPE_MATRIX || (IsParticleSource(e) && !(e->GetInfo() & zta::OBJECT_NO_PARTICLES)))
      c.particleSources.push_back(const_cast<zta::BaseObject*>(e));
  }
  if (object->GetType() == zta::HOST_TYPE_SPHERE && s.asPrimitive &&
      object->GetDataInstance()->GetInt32(kSphereTypeParameter) != 5) {
    zta::AddDependence(op, object);
    c.objects.push_back(object);
    return zta::OK();
  }
  if (zta::BaseTag* tag = FindTag(op, object)) {
    const zta::Int32 mask = ComputeKindMask(object);
    if (auto* data = tag->GetNodeData<VolumeBuilderTag>()) data->kindMask = mask;
  }
  ObjectCollection collection;
  bool dirty = false;
  if (auto ok = collection.Collect(hh->GetDocument(), object, true, hh, &dirty); !ok) return ok;
  (void)isChild;
  auto keep = [&](std::unique_ptr<zta::BaseObject> tree, bool volumes) {
    if (!tree) return;
    std::shared_ptr<zta::BaseObject> holder = Share(std::move(tree));
    for (zta::BaseObject* o = holder->GetDown(); o; o = o->GetNext()) {
      if (volumes) {
        const Volume v = VolumeObjectData::GetVolume(o);
        const bool fits = volumeType_ == BUILDERTYPE_VECTOR ? v.GetGridType() == GRIDTYPE::VEC3S
                                                            : v.GetGridType() == GRIDTYPE::FLOAT;
        if (!fits) continue;
      }
      c.objects.push_back(o);
    }
    c.holders.push_back(std::move(holder));
  };
  keep(collection.TakePolygons(), false);
  keep(collection.TakeSplines(), false);
  keep(collection.TakeVolumes(), true);
  return zta::OK();
}

void VolumeBuilderData::Prune(zta::BaseObject* op) {
  std::unordered_set<const zta::ItemTreeItem*> used;
  if (zta::ItemTree* tree = GetTree(op)) {
    for (zta::ItemTreeItem* item = tree->GetFirst(); item; item = tree->GetNextInTree(item)) {
      auto it = evalNodes_.find(item);
      if (it == evalNodes_.end()) continue;
      used.insert(item);
      if (!(item->GetFlags() & LAYERFLAG_FOLDER) && !item->GetLink().GetLink(op->GetDocument()) &&
          !it->second->volumes.empty())
        it->second->changeKey.enabled = false;
    }
  }
  for (auto it = evalNodes_.begin(); it != evalNodes_.end();) {
    if (used.count(it->first)) ++it;
    else it = evalNodes_.erase(it);
  }
}

void VolumeBuilderData::OrderLayers(zta::BaseObject* op) {
  layerLists_.clear();
  zta::ItemTree* tree = GetTree(op);
  if (!tree || !tree->GetFirst()) return;
  zta::BaseDocument* doc = op->GetDocument();
  // Children first, so that a folder's volumes stand before its own group is folded.
  std::function<void(zta::ItemTreeItem*)> group = [&](zta::ItemTreeItem* first) {
    std::vector<std::pair<zta::ItemTreeItem*, zta::Int32>> childLists;
    zta::ItemTreeItem* last = first;
    for (zta::ItemTreeItem* i = first; i; i = i->GetNext()) {
      last = i;
      if (i->GetDown()) {
        group(i->GetDown());
        childLists.emplace_back(i, zta::Int32(layerLists_.size()) - 1);
      }
    }
    // A valid cache layer stands for every row below it: the fold starts there.
    for (zta::ItemTreeItem* i = first; i; i = i->GetNext()) {
      auto* object = static_cast<zta::BaseObject*>(i->GetLink().GetLink(doc, zta::HOST_TYPE_OBJECT));
      if (object && object->GetType() == ID_VOLUMECACHELAYER && (i->GetFlags() & LAYERFLAG_ENABLED) &&
          object != bakeTarget_ && CacheIsValid(object, doc)) {
        last = i;
        break;
      }
    }
    std::vector<EvalNodeRef> list;
    const zta::Int32 listIndex = zta::Int32(layerLists_.size());
    for (zta::ItemTreeItem* i = last; i; i = i->GetPrev()) {
      const bool folder = (i->GetFlags() & LAYERFLAG_FOLDER) != 0;
      auto it = evalNodes_.find(i);
      if (it == evalNodes_.end()) continue;
      if (!folder && !i->GetLink().GetLink(doc)) continue;
      it->second->parentList = -1;
      it->second->parentIndex = -1;
      for (auto& [parentItem, childList] : childLists) {
        if (parentItem != i || childList < 0 || layerLists_[size_t(childList)].empty()) continue;
        for (EvalNodeRef& child : layerLists_[size_t(childList)]) {
          child->parentList = listIndex;
          child->parentIndex = zta::Int32(list.size());
        }
      }
      list.push_back(it->second);
    }
    layerLists_.push_back(std::move(list));
  };
  group(tree->GetFirst());
}

void VolumeBuilderData::ComputeBoundingSize() {
  bool any = false;
  zta::Vector lo, hi;
  for (auto& [object, collection] : collectedInputs_) {
    auto add = [&](const zta::BaseObject* o) {
      const zta::Matrix mg = o->GetMg();
      const zta::Vector c = mg * o->GetMp();
      const zta::Vector r = o->GetRad();
      const zta::Vector a = c - r, b = c + r;
      if (!any) {
        lo = a;
        hi = b;
        any = true;
      }
      lo = zta::Vector(std::min(lo.x, a.x), std::min(lo.y, a.y), std::min(lo.z, a.z));
      hi = zta::Vector(std::max(hi.x, b.x), std::max(hi.y, b.y), std::max(hi.z, b.z));
    };
    for (const zta::BaseObject* o : collection.objects) add(o);
  }
  boundingSize = any ? std::max({hi.x - lo.x, hi.y - lo.y, hi.z - lo.z}) : 0.0;
}

void VolumeBuilderData::ApplyVoxelLimit(zta::BaseObject* op) {
  const double voxelSize = op->GetDataInstance()->GetFloat(VOLUMEBUILDER_VOXELSIZE, 10.0);
  if (voxelSize <= 0.0 || boundingSize / voxelSize <= kVoxelLimit) return;
  if (zta::QuestionDialog(Text(kVoxelLimitQuestion)) != zta::DIALOG_ANSWER_YES) return;
  const double size = boundingSize / 100.0;
  op->GetDataInstance()->SetFloat(VOLUMEBUILDER_VOXELSIZE, size);
  for (auto& [item, node] : evalNodes_) node->voxelSize = size;
  CompareSettings(op);
}

// ---- conversions

// Every input is made in the builder's one grid frame (the reference's, or the
// world's at the voxel size): the fold then joins voxels that lie on one
// lattice, with no resampling, which is both exact and fast.
zta::Matrix VolumeBuilderData::GridTransform(double voxelSize) const {
  if (settings.hasReference) return settings.gridMatrix;
  return zta::MatrixScale(zta::Vector(voxelSize, voxelSize, voxelSize));
}

zta::Result<void> VolumeBuilderData::PostProcess(EvalNode& n, std::shared_ptr<zta::BaseObject> r,
                                                 const InputSettings& s, const zta::HierarchyHelp* hh) {
  if (!r) return zta::OK();
  const zta::ThreadRef& thread = hh->GetThread();
  auto replace = [&](const Volume& v) -> bool {
    r = MakeVolumeObject(v);
    return r != nullptr;
  };
  Volume v = VolumeObjectData::GetVolume(r.get());
  if (IsVectorType(v.GetGridType()) && volumeType_ != BUILDERTYPE_VECTOR) {
    auto fog = VolumeToolsInterface::ConvertVectorToFog(v, thread);
    if (!fog) return fog.GetError();
    if (!replace(*fog)) return zta::OutOfMemoryError();
  }
  v = VolumeObjectData::GetVolume(r.get());
  if (volumeType_ == BUILDERTYPE_FOG || (volumeType_ == BUILDERTYPE_VECTOR && s.vectorMode == 2)) {
    if (v.GetGridClass() == GRIDCLASS::SDF) {
      zta::BaseContainer bc;
      bc.SetFloat(SDFTOFOG_CUTOFF, std::numeric_limits<double>::max());
      auto fog = RunCommand(kSdfToFogCommand, bc, {r.get()}, hh);
      if (!fog) return fog.GetError();
      if (*fog) r = *fog;
    }
    v = VolumeObjectData::GetVolume(r.get());
    if (volumeType_ == BUILDERTYPE_VECTOR && v.GetGridType() != GRIDTYPE::VEC3S) {
      auto g = VolumeToolsInterface::CreateGradientVolume(v, thread);
      if (!g) return g.GetError();
      if (!replace(*g)) return zta::OutOfMemoryError();
    }
  }
  v = VolumeObjectData::GetVolume(r.get());
  if ((volumeType_ == BUILDERTYPE_SDF || (volumeType_ == BUILDERTYPE_VECTOR && (s.vectorMode == 1 || s.vectorMode == 3))) &&
      v.GetGridType() != GRIDTYPE::VEC3S) {
    if (v.GetGridClass() == GRIDCLASS::FOG ||
        (v.GetGridClass() == GRIDCLASS::UNKNOWN && v.GetGridType() == GRIDTYPE::FLOAT && s.vectorMode != 3)) {
      zta::BaseContainer bc;
      bc.SetFloat(FOGTOSDF_ISO, s.fogThreshold);
      auto sdf = RunCommand(kFogToSdfCommand, bc, {r.get()}, hh);
      if (!sdf) return sdf.GetError();
      if (*sdf) r = *sdf;
    }
    if (volumeType_ == BUILDERTYPE_VECTOR) {
      v = VolumeObjectData::GetVolume(r.get());
      if (s.vectorMode == 3 && v.GetGridClass() == GRIDCLASS::SDF) {
        zta::BaseContainer bc;
        bc.SetInt32(SDFFILTER_TYPE, zta::Int32(SDFFILTERTYPE::RENORMALIZE));
        auto f = RunCommand(kSdfFilterCommand, bc, {r.get()}, hh);
        if (!f || !*f) return zta::IllegalStateError("could not filter volume");
        r = *f;
      }
      auto g = VolumeToolsInterface::CreateGradientVolume(VolumeObjectData::GetVolume(r.get()), thread);
      if (!g) return g.GetError();
      if (!replace(*g)) return zta::OutOfMemoryError();
    }
  }
  n.volumes.push_back(r.get());
  n.ownedResults.push_back(std::move(r));
  n.valid = true;
  // A cache layer's stored volume is no conversion of an input.
  if (n.kind == EVALKIND_INPUT) ++statistics_.conversions;
  return zta::OK();
}

zta::Result<void> VolumeBuilderData::ConvertParticles(zta::BaseObject* op, EvalNode& n,
                                                      const std::vector<zta::BaseObject*>& sources,
                                                      const InputSettings& s, const zta::HierarchyHelp* hh) {
  const zta::BaseContainer* obc = op->GetDataInstance();
  const double v = n.voxelSize;
  if (v == 0.0) return zta::OK();
  zta::Int32 band = 1;
  if (volumeType_ == BUILDERTYPE_SDF) band = obc->GetInt32(VOLUMEBUILDER_PARTICLE_BAND, 2);
  else if (volumeType_ == BUILDERTYPE_VECTOR && (s.vectorMode == 1 || s.vectorMode == 3)) band = s.vectorParticleBand;
  else if (volumeType_ == BUILDERTYPE_FOG) band = s.fillInterior ? zta::Int32(s.radius / v + 1.0) : s.interiorBand;
  zta::BaseContainer bc;
  bc.SetFloat(PARTICLESTOVOLUME_GRIDSIZE, v);
  bc.SetInt32(PARTICLESTOVOLUME_BANDWIDTH, std::max(band, 1));
  bc.SetFloat(PARTICLESTOVOLUME_RADIUS, s.radius);
  bc.SetFloat(PARTICLESTOVOLUME_VELOCITYSCALE, s.velocityScale);
  bc.SetInt32(PARTICLESTOVOLUME_MODE, s.particleMode);
  bc.SetMatrix(PARTICLESTOVOLUME_TRANSFORM, GridTransform(v));
  std::vector<const zta::BaseObject*> inputs(sources.begin(), sources.end());
  auto r = RunCommand(kParticlesToVolumeCommand, bc, inputs, hh);
  if (!r) return r.GetError();
  return PostProcess(n, *r, s, hh);
}

zta::Result<void> VolumeBuilderData::ConvertObject(zta::BaseObject* op, EvalNode& n, zta::BaseObject* object,
                                                   const InputSettings& s, const zta::HierarchyHelp* hh) {
  const zta::BaseContainer* obc = op->GetDataInstance();
  double v = n.voxelSize;
  const zta::Int32 type = object->GetType();
  const bool sdf = volumeType_ == BUILDERTYPE_SDF, fog = volumeType_ == BUILDERTYPE_FOG,
             vecSdf = volumeType_ == BUILDERTYPE_VECTOR && (s.vectorMode == 1 || s.vectorMode == 3);
  auto fogBand = [&]() { return s.fillInterior && v != 0.0 ? zta::Int32(s.radius / v + 1.0) : s.interiorBand; };
  zta::Result<std::shared_ptr<zta::BaseObject>> r = std::shared_ptr<zta::BaseObject>();
  if (type == zta::HOST_TYPE_POLYGON) {
    if (v == 0.0) v = 0.001;
    // A filled fog mesh fills inward; outward it keeps the stored band.
    zta::Int32 exterior = sdf      ? obc->GetInt32(VOLUMEBUILDER_MESH_EXTERIOR_BAND, 2)
                          : vecSdf ? s.vectorExteriorBand
                          : fog    ? (s.fillInterior ? s.storedBand : s.interiorBand)
                                   : 1;
    zta::Int32 interior = sdf ? obc->GetInt32(VOLUMEBUILDER_MESH_INTERIOR_BAND, 2) : vecSdf ? s.vectorInteriorBand : 1;
    if (s.useInteriorDistance) {
      if (fog && !s.fillInterior) interior = s.interiorBand;
      if (s.fillInterior && v != 0.0) interior = zta::Int32(s.interiorDistance / v + 1.0);
    }
    zta::BaseContainer bc;
    bc.SetFloat(MESHTOVOLUME_GRIDSIZE, v);
    bc.SetInt32(MESHTOVOLUME_EXTERIORBAND, std::max(exterior, 1));
    bc.SetInt32(MESHTOVOLUME_INTERIORBAND, std::max(interior, 1));
    bc.SetBool(MESHTOVOLUME_USEINTERIORDISTANCE, s.useInteriorDistance);
    bc.SetFloat(MESHTOVOLUME_INTERIORDISTANCE, s.interiorDistance);
    bc.SetMatrix(MESHTOVOLUME_TRANSFORM, GridTransform(v));
    r = RunCommand(kMeshToVolumeCommand, bc, {object}, hh);
  } else if (type == zta::HOST_TYPE_SPHERE) {
    if (v == 0.0) v = 0.001;
    zta::Int32 band = sdf || vecSdf ? obc->GetInt32(VOLUMEBUILDER_MESH_INTERIOR_BAND, 2)
                      : s.fillInterior ? zta::Int32(object->GetDataInstance()->GetFloat(kSphereRadius, 100.0) / v + 1.0)
                                       : s.interiorBand;
    zta::BaseContainer bc;
    bc.SetFloat(CREATESPHERE_GRIDSIZE, v);
    bc.SetFloat(CREATESPHERE_RADIUS, object->GetDataInstance()->GetFloat(kSphereRadius, 100.0) * object->GetMg().v1.GetLength());
    bc.SetVector(CREATESPHERE_POSITION, object->GetMg().off);
    bc.SetInt32(CREATESPHERE_BANDWIDTH, std::max(band, 2));
    bc.SetMatrix(CREATESPHERE_TRANSFORM, GridTransform(v));
    r = RunCommand(kCreateSphereVolumeCommand, bc, {}, hh);
  } else if (type == zta::HOST_TYPE_SPLINE || type == zta::HOST_TYPE_LINE) {
    if (v == 0.0) return zta::OK();
    zta::Int32 band = sdf ? obc->GetInt32(VOLUMEBUILDER_SPLINE_BAND, 2) : vecSdf ? s.vectorSplineBand : fog ? fogBand() : 1;
    zta::BaseContainer bc;
    bc.SetFloat(SPLINETOVOLUME_GRIDSIZE, v);
    bc.SetInt32(SPLINETOVOLUME_BANDWIDTH, std::max(band, 1));
    bc.SetFloat(SPLINETOVOLUME_RADIUS, float(s.radius));
    bc.SetFloat(SPLINETOVOLUME_DENSITY, s.splineDensity);
    if (s.useRadiusCurve && s.radiusCurve) bc.SetCustomData(SPLINETOVOLUME_RADIUSCURVE, s.radiusCurve);
    bc.SetMatrix(SPLINETOVOLUME_TRANSFORM, GridTransform(v));
    r = RunCommand(kSplineToVolumeCommand, bc, {object}, hh);
  } else if (IsParticleSource(object) || type == zta::HOST_TYPE_MATRIX) {
    return ConvertParticles(op, n, {object}, s, hh);
  } else if (type == ID_VOLUMEOBJECT) {
    zta::BaseContainer bc;
    bc.SetFloat(RESAMPLE_GRIDSIZE, v);
    bc.SetInt32(RESAMPLE_INTERPOLATION, 3);
    bc.SetMatrix(RESAMPLE_TRANSFORM, GridTransform(v));
    r = RunCommand(kResampleCommand, bc, {object}, hh);
  } else if (IsFieldCarrier(object) || type == zta::HOST_TYPE_FIELD_OBJECT) {
    zta::Vector size = s.boxSize;
    zta::Matrix place;
    if (s.fieldSource == 0) {
      // The box of the layers below; with nothing below there is no result.
      if (!n.hasBase) return zta::OK();
      zta::BaseContainer bc;
      bc.SetBool(FIELDTOVOLUME_VECTOR, volumeType_ == BUILDERTYPE_VECTOR);
      bc.SetFloat(FIELDTOVOLUME_GRIDSIZE, v);
      bc.SetVector(FIELDTOVOLUME_BOXMIN, n.baseMin);
      bc.SetVector(FIELDTOVOLUME_BOXMAX, n.baseMax);
      bc.SetMatrix(FIELDTOVOLUME_TRANSFORM, GridTransform(v));
      r = RunCommand(kFieldToVolumeCommand, bc, {object}, hh);
      if (!r) return r.GetError();
      return PostProcess(n, *r, s, hh);
    }
    if (s.referenceObject) {
      place = s.referenceObject->GetMg();
      const zta::Vector sc = place.GetScale();
      size = zta::Vector(size.x * sc.x, size.y * sc.y, size.z * sc.z);
    } else {
      place.off = s.boxPosition;
    }
    zta::BaseContainer bc;
    bc.SetBool(FIELDTOVOLUME_VECTOR, volumeType_ == BUILDERTYPE_VECTOR);
    bc.SetFloat(FIELDTOVOLUME_GRIDSIZE, v);
    bc.SetVector(FIELDTOVOLUME_BOXMIN, place.off - size * 0.5);
    bc.SetVector(FIELDTOVOLUME_BOXMAX, place.off + size * 0.5);
    bc.SetMatrix(FIELDTOVOLUME_TRANSFORM, GridTransform(v));
    r = RunCommand(kFieldToVolumeCommand, bc, {object}, hh);
  } else {
    return zta::OK();
  }
  if (!r) return r.GetError();
  return PostProcess(n, *r, s, hh);
}

bool VolumeBuilderData::NeedsBase(const zta::BaseObject* op, const zta::BaseObject* object) const {
  return object && (IsFieldCarrier(object) || object->GetType() == zta::HOST_TYPE_FIELD_OBJECT) &&
         ReadInputSettings(FindTag(op, object)).fieldSource == 0;
}

bool VolumeBuilderData::BaseBox(const std::vector<std::shared_ptr<zta::BaseObject>>* below, zta::Vector& lo,
                                zta::Vector& hi) {
  if (!below || below->empty() || !below->front()) return false;
  const Volume v = VolumeObjectData::GetVolume(below->front().get());
  if (!v.HasGrid() || v.GetActiveVoxelCount() == 0) return false;
  // The box is kept in index space; its corners go through the grid's transform.
  const BoundingBox& b = v.GetWorldBoundingBox();
  const zta::Matrix m = v.GetGridTransform();
  bool first = true;
  for (int i = 0; i < 8; ++i) {
    const zta::Vector p = m * zta::Vector(i & 1 ? b.max.x : b.min.x, i & 2 ? b.max.y : b.min.y, i & 4 ? b.max.z : b.min.z);
    lo = first ? p : zta::Vector(std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z));
    hi = first ? p : zta::Vector(std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z));
    first = false;
  }
  return true;
}

zta::Result<void> VolumeBuilderData::MakeVolumes(zta::BaseObject* op, EvalNode& n, const zta::HierarchyHelp* hh,
                                                 const std::vector<std::shared_ptr<zta::BaseObject>>* below) {
  if (n.kind != EVALKIND_INPUT && n.kind != EVALKIND_CACHE) return zta::OK();
  auto* object = static_cast<zta::BaseObject*>(n.link.GetLink(hh->GetDocument(), zta::HOST_TYPE_OBJECT));
  if (n.kind == EVALKIND_INPUT && NeedsBase(op, object)) {
    // Made again when the layers below cover another box.
    zta::Vector lo, hi;
    const bool has = BaseBox(below, lo, hi);
    if (has != n.hasBase || (has && (!(lo == n.baseMin) || !(hi == n.baseMax)))) {
      n.ClearResults();
      n.hasBase = has;
      n.baseMin = lo;
      n.baseMax = hi;
    }
  }
  if (n.valid) return zta::OK();
  if (n.kind == EVALKIND_CACHE) {
    // The layer's volume of this frame, taken as a volume input with default settings.
    n.ClearResults();
    if (const VolumeCacheLayerData* cache = VolumeCacheLayerData::Of(object)) {
      auto stored = cache->GetVolume(hh->GetDocument(), {});
      if (!stored) return stored.GetError();
      if (stored->HasGrid()) {
        if (auto ok = PostProcess(n, MakeVolumeObject(*stored), ReadInputSettings(nullptr), hh); !ok) return ok;
      }
    }
    if (auto progress = ProgressHandler::Get()) (*progress)->NextStep(false);
    n.valid = true;
    return zta::OK();
  }
  if (!object) return zta::OK();
  auto found = collectedInputs_.find(object);
  if (found == collectedInputs_.end()) return zta::OK();
  const InputSettings s = ReadInputSettings(FindTag(op, object));
  InputCollection& c = found->second;
  n.ClearResults();
  if (!c.particleSources.empty()) {
    if (auto ok = ConvertParticles(op, n, c.particleSources, s, hh); !ok) return ok;
  }
  for (zta::BaseObject* o : c.objects) {
    if (StopAsked(hh)) return CancelledError();
    if (auto ok = ConvertObject(op, n, o, s, hh); !ok) return ok;
    if (auto progress = ProgressHandler::Get()) (*progress)->NextStep(false);
  }
  if (n.volumes.size() > 1) {
    std::shared_ptr<zta::BaseObject> m = n.ownedResults.front();
    const zta::Int32 mode = volumeType_ == BUILDERTYPE_FOG ? 2 : 1;
    for (size_t i = 1; i < n.ownedResults.size(); ++i) {
      auto folded = Combine(m.get(), n.ownedResults[i].get(), mode, hh);
      if (!folded) return folded.GetError();
      if (*folded) m = *folded;
    }
    n.ClearResults();
    n.volumes.push_back(m.get());
    n.ownedResults.push_back(m);
  }
  n.valid = true;
  return zta::OK();
}

zta::Result<std::shared_ptr<zta::BaseObject>> VolumeBuilderData::Combine(const zta::BaseObject* a, const zta::BaseObject* b,
                                                                         zta::Int32 mode, const zta::HierarchyHelp* hh) {
  if (!a || !b) return std::shared_ptr<zta::BaseObject>();
  ++statistics_.folds;
  if (volumeType_ == BUILDERTYPE_VECTOR) {
    const Volume va = VolumeObjectData::GetVolume(a), vb = VolumeObjectData::GetVolume(b);
    if (!va.HasGrid()) return zta::IllegalStateError("base volume is not initialized");
    if (!vb.HasGrid()) return MakeVolumeObject(va);
    auto mixed = VolumeToolsInterface::MixVectorVolumes(va, vb, MIXVECTORTYPE(mode), hh->GetThread());
    if (!mixed || !mixed->HasGrid()) return zta::IllegalStateError("could not mix volumes");
    return MakeVolumeObject(*mixed);
  }
  zta::BaseContainer bc;
  if (volumeType_ == BUILDERTYPE_SDF) {
    bc.SetInt32(BOOLE_TYPE, mode - 1);
    return RunCommand(kBooleCommand, bc, {a, b}, hh);
  }
  bc.SetInt32(MIX_TYPE, mode);
  return RunCommand(kMixCommand, bc, {a, b}, hh);
}

zta::Result<void> VolumeBuilderData::ApplyNode(zta::BaseObject* op, EvalNode& n,
                                               std::vector<std::shared_ptr<zta::BaseObject>>& current,
                                               const zta::HierarchyHelp* hh) {
  if (n.kind == EVALKIND_FILTER) {
    auto* filter = static_cast<zta::BaseObject*>(n.link.GetLink(hh->GetDocument(), zta::HOST_TYPE_OBJECT));
    // Copies: the volumes below stay as the rows below folded them.
    for (auto& c : current) {
      if (StopAsked(hh)) return CancelledError();
      std::shared_ptr<zta::BaseObject> copy = MakeVolumeObject(VolumeObjectData::GetVolume(c.get()));
      if (!copy) return zta::OutOfMemoryError("out of memory filtering a volume");
      if (auto ok = VolumeFilter::Filter(filter, copy.get(), hh->GetDocument(), hh->GetThread().get(), c->GetMg()); !ok)
        return ok;
      c = copy;
    }
    n.valid = true;
    return zta::OK();
  }
  if (n.kind == EVALKIND_NONE || n.kind > EVALKIND_CACHE) return zta::OK();
  if (auto ok = MakeVolumes(op, n, hh, &current); !ok) return ok;
  const zta::Int32 mode = volumeType_ == BUILDERTYPE_FOG ? n.fogMode : volumeType_ == BUILDERTYPE_VECTOR ? n.vectorMode : n.sdfMode;
  if (volumeType_ != BUILDERTYPE_VECTOR && mode == 0) {
    for (const auto& owned : n.ownedResults) current.push_back(MakeVolumeObject(VolumeObjectData::GetVolume(owned.get())));
  } else if (!n.ownedResults.empty()) {
    std::shared_ptr<zta::BaseObject> m = n.ownedResults.front();
    const zta::Int32 inner = volumeType_ == BUILDERTYPE_FOG ? 1 : 1;
    for (size_t i = 1; i < n.ownedResults.size(); ++i) {
      auto folded = Combine(m.get(), n.ownedResults[i].get(), inner, hh);
      if (!folded) return folded.GetError();
      if (*folded) m = *folded;
    }
    std::vector<std::shared_ptr<zta::BaseObject>> next;
    for (auto& c : current) {
      if (StopAsked(hh)) return CancelledError();
      auto r = Combine(c.get(), m.get(), mode, hh);
      if (!r) return r.GetError();
      if (*r) next.push_back(*r);
    }
    current = std::move(next);
  }
  if (n.kind == EVALKIND_FOLDER) {
    n.volumes.clear();
    n.ownedResults.clear();
  }
  return zta::OK();
}

zta::Int32 VolumeBuilderData::RowMode(const EvalNode& n) const {
  return volumeType_ == BUILDERTYPE_FOG ? n.fogMode : volumeType_ == BUILDERTYPE_VECTOR ? n.vectorMode : n.sdfMode;
}

zta::Result<size_t> VolumeBuilderData::RegroupEnd(zta::BaseObject* op, const std::vector<EvalNodeRef>& list, size_t first,
                                                  const std::vector<std::shared_ptr<zta::BaseObject>>& current,
                                                  const zta::HierarchyHelp* hh) {
  const zta::Int32 mode = RowMode(*list[first]);
  if (current.empty() || !RegroupableMode(volumeType_, mode)) return first;
  std::optional<float> background;
  for (const auto& c : current)
    if (!RegroupableVolume(c.get(), volumeType_, background)) return first;
  size_t last = first;
  for (size_t j = first; j < list.size(); ++j) {
    EvalNode& r = *list[j];
    if (!r.changeKey.enabled || (r.kind != EVALKIND_INPUT && r.kind != EVALKIND_FOLDER) || RowMode(r) != mode) break;
    // A field sized by what lies below it must see that, row by row.
    if (r.kind == EVALKIND_INPUT && NeedsBase(op, static_cast<const zta::BaseObject*>(r.link.GetLink(hh->GetDocument(), zta::HOST_TYPE_OBJECT)))) break;
    if (auto ok = MakeVolumes(op, r, hh); !ok) return ok.GetError();
    if (r.ownedResults.size() > 1) break;
    if (r.ownedResults.size() == 1 && !RegroupableVolume(r.ownedResults[0].get(), volumeType_, background)) break;
    last = j;
  }
  return last;
}

namespace {

// Whether a row's `above` join still stands for its volume and the row above.
bool AboveStands(const EvalNode& r, zta::Int32 mode, const EvalNode* nextRow, const std::shared_ptr<zta::BaseObject>& next) {
  const std::shared_ptr<zta::BaseObject> operand = r.ownedResults.empty() ? nullptr : r.ownedResults.front();
  return r.above.valid && r.above.mode == mode && r.above.operand == operand && r.above.nextRow == nextRow &&
         r.above.next == next;
}

}  // namespace

bool VolumeBuilderData::AboveIsValid(const std::vector<EvalNodeRef>& list, size_t first, size_t last) const {
  std::shared_ptr<zta::BaseObject> next;
  const EvalNode* nextRow = nullptr;
  for (size_t j = last + 1; j-- > first;) {
    const EvalNode& r = *list[j];
    if (!AboveStands(r, RowMode(r), nextRow, next)) return false;
    next = r.above.result;
    nextRow = &r;
  }
  return true;
}

zta::Result<std::shared_ptr<zta::BaseObject>> VolumeBuilderData::JoinAbove(const std::vector<EvalNodeRef>& list, size_t first,
                                                                           size_t last, const zta::HierarchyHelp* hh) {
  std::shared_ptr<zta::BaseObject> next;
  const EvalNode* nextRow = nullptr;
  for (size_t j = last + 1; j-- > first;) {
    EvalNode& r = *list[j];
    const zta::Int32 mode = RowMode(r);
    if (!AboveStands(r, mode, nextRow, next)) {
      if (StopAsked(hh)) return CancelledError();
      const std::shared_ptr<zta::BaseObject> operand = r.ownedResults.empty() ? nullptr : r.ownedResults.front();
      std::shared_ptr<zta::BaseObject> result = operand ? operand : next;
      if (operand && next) {
        auto joined = Combine(operand.get(), next.get(), mode, hh);
        if (!joined) return joined.GetError();
        if (!*joined) return zta::IllegalStateError("could not join volumes");
        result = *joined;
      }
      r.above = {result, operand, next, nextRow, mode, true};
    }
    next = r.above.result;
    nextRow = &r;
  }
  return next;
}

zta::Result<std::shared_ptr<zta::BaseObject>> VolumeBuilderData::JoinThree(const std::shared_ptr<zta::BaseObject>& below,
                                                                           const std::shared_ptr<zta::BaseObject>& own,
                                                                           const std::shared_ptr<zta::BaseObject>& above,
                                                                           zta::Int32 mode, const zta::HierarchyHelp* hh) {
  if (!own && !above) return below;
  if (!own || !above) return Combine(below.get(), own ? own.get() : above.get(), mode, hh);
  if (volumeType_ != BUILDERTYPE_SDF) {
    auto first = Combine(below.get(), own.get(), mode, hh);
    if (!first) return first.GetError();
    if (!*first) return std::shared_ptr<zta::BaseObject>();
    return Combine(first->get(), above.get(), mode, hh);
  }
  // Level sets: the first join gives a grid of our own, which the second one
  // fills in place instead of copying it once more.
  const BOOLTYPE type = mode == 3 ? BOOLTYPE::INTERSECTION : BOOLTYPE::UNION;
  statistics_.folds += 2;
  auto first = VolumeToolsInterface::BoolVolumes(VolumeObjectData::GetVolume(below.get()),
                                                 VolumeObjectData::GetVolume(own.get()), type, hh->GetThread());
  if (!first) return first.GetError();
  if (!first->HasGrid()) return std::shared_ptr<zta::BaseObject>();
  auto joined = BoolVolumesReleasing(std::move(*first), VolumeObjectData::GetVolume(above.get()), type, hh->GetThread());
  if (!joined) return joined.GetError();
  if (!joined->HasGrid()) return std::shared_ptr<zta::BaseObject>();
  auto object = MakeVolumeObject(*joined);
  if (!object) return zta::OutOfMemoryError();
  return object;
}

zta::Result<std::vector<std::shared_ptr<zta::BaseObject>>> VolumeBuilderData::Evaluate(zta::BaseObject* op,
                                                                                      const zta::HierarchyHelp* hh) {
  for (auto& [item, node] : evalNodes_) {
    if (node->kind != EVALKIND_FOLDER) continue;
    node->volumes.clear();
    node->ownedResults.clear();
    node->contentChanged = false;
  }
  std::vector<std::shared_ptr<zta::BaseObject>> current;
  for (auto& list : layerLists_) {
    current.clear();
    // Rows whose fold still stands are taken from the last rebuild, up to the
    // first one that changed; from there on everything is folded again.
    bool clean = true;
    for (size_t i = 0; i < list.size(); ++i) {
      EvalNode* row = list[i].get();
      if (row->kind == EVALKIND_CACHE && !current.empty() && bakeTarget_ &&
          row->link.GetLink(hh->GetDocument(), zta::HOST_TYPE_OBJECT) == bakeTarget_) {
        // A bake takes what stands below its layer; the builder itself shows nothing meanwhile.
        if (VolumeCacheLayerData* cache = VolumeCacheLayerData::Of(bakeTarget_)) {
          if (auto ok = cache->SetVolume(VolumeObjectData::GetVolume(current.front().get()), {}); !ok)
            return ok.GetError();
        }
        return std::vector<std::shared_ptr<zta::BaseObject>>();
      }
      EvalNode& n = *row;
      const EvalNode::FoldKey key{RowMode(n), n.changeKey.enabled, i ? list[i - 1].get() : nullptr};
      const bool unchanged = n.kind == EVALKIND_FOLDER ? !n.contentChanged
                             : n.kind == EVALKIND_INPUT || n.kind == EVALKIND_FILTER || n.kind == EVALKIND_CACHE
                                 ? n.valid
                                 : true;
      const bool cleanBelow = clean;
      clean = clean && unchanged && n.foldValid && n.foldKey == key;
      if (clean) {
        current = n.folded;
      } else {
        size_t last = i;
        if (n.changeKey.enabled && !current.empty()) {
          auto end = RegroupEnd(op, list, i, current, hh);
          if (!end) return end.GetError();
          // Regrouped where the rows above still hold their join, or where this
          // row is the lowest that changed: an edited row is usually edited again.
          if (*end > i && (cleanBelow || AboveIsValid(list, i + 1, *end))) last = *end;
        }
        if (last > i) {
          auto above = JoinAbove(list, i + 1, last, hh);
          if (!above) return above.GetError();
          const std::shared_ptr<zta::BaseObject> own = n.ownedResults.empty() ? nullptr : n.ownedResults.front();
          std::vector<std::shared_ptr<zta::BaseObject>> next;
          for (auto& c : current) {
            if (StopAsked(hh)) return CancelledError();
            auto r = JoinThree(c, own, *above, RowMode(n), hh);
            if (!r) return r.GetError();
            if (*r) next.push_back(*r);
          }
          current = std::move(next);
          // The rows inside the run hold no fold of their own now.
          for (size_t j = i; j <= last; ++j) {
            EvalNode& r = *list[j];
            if (j < last) {
              r.folded.clear();
              r.foldValid = false;
            }
            if (r.kind == EVALKIND_FOLDER) {
              r.volumes.clear();
              r.ownedResults.clear();
            }
          }
          i = last;
          row = list[i].get();
          row->folded = current;
          row->foldKey = {RowMode(*row), row->changeKey.enabled, list[i - 1].get()};
          row->foldValid = true;
        } else {
          if (n.changeKey.enabled) {
            if (current.empty()) {
              if (auto ok = MakeVolumes(op, n, hh); !ok) return ok.GetError();
              if (StopAsked(hh)) return CancelledError();
              for (const auto& owned : n.ownedResults)
                current.push_back(n.kind == EVALKIND_FOLDER ? owned : MakeVolumeObject(VolumeObjectData::GetVolume(owned.get())));
              if (n.kind == EVALKIND_FOLDER) {
                n.volumes.clear();
                n.ownedResults.clear();
              }
            } else {
              if (auto ok = ApplyNode(op, n, current, hh); !ok) return ok.GetError();
            }
          }
          n.folded = current;
          n.foldKey = key;
          n.foldValid = true;
        }
      }
      EvalNode& top = *row;
      if (i + 1 == list.size() && top.parentList >= 0 && size_t(top.parentList) < layerLists_.size()) {
        auto& parentList = layerLists_[size_t(top.parentList)];
        if (size_t(top.parentIndex) < parentList.size() && parentList[size_t(top.parentIndex)]->kind == EVALKIND_FOLDER) {
          EvalNode& parent = *parentList[size_t(top.parentIndex)];
          for (auto& c : current) {
            parent.volumes.push_back(c.get());
            parent.ownedResults.push_back(c);
          }
          parent.contentChanged = !clean;
        }
      }
    }
  }
  if (StopAsked(hh)) return CancelledError();
  return current;
}

void VolumeBuilderData::SetInfo(zta::BaseObject* op, zta::Int64 voxels, zta::Int64 memory) {
  op->GetDataInstance()->SetString(VOLUMEBUILDER_INFO, VolumeObjectData::InfoSizeText(voxels, memory));
}

// ---- the rebuild

zta::BaseObject* VolumeBuilderData::BuildVirtualObjects(zta::BaseObject* op, const zta::HierarchyHelp* hh) {
  if (!op || !hh) return nullptr;
  zta::BaseDocument* doc = hh->GetDocument();
  if (!doc) return nullptr;
  // A copy made while its source was rebuilding starts locked; its own first rebuild frees it.
  if (inheritedLock_.exchange(false)) Unlock();
  // The lock is held for the whole rebuild, not only the scene walk: every
  // member below is touched by it, and a second caller must not wait.
  if (!TryLock()) return zta::AllocObject(zta::HOST_TYPE_NULL).release();
  struct Release {
    VolumeBuilderData* data;
    ~Release() { data->Unlock(); }
  } release{this};
  const zta::Int32 hostMode = zta::GetHostMode();
  const bool showProgress = hostMode != 2 && hostMode != 3 && !(hh->GetBuildFlags() & (2 | 4));
  std::shared_ptr<ProgressHandler> progress;
  if (auto p = ProgressHandler::Get()) progress = *p;
  if (progress && showProgress) {
    progress->SetActive(true);
    progress->SetTitle(Text(kProgressTitleResource) + "...");
  }
  zta::BaseContainer* bc = op->GetDataInstance();
  const bool mayUpdate = bc->GetBool(VOLUMEBUILDER_AUTOUPDATE, true) || updateRequested || !showProgress;
  DirtyFlags flags;
  if (mayUpdate) {
    flags = {pendingName, pendingInputs, pendingStructure};
    pendingName = pendingInputs = pendingStructure = false;
  }
  if (!skipSettingsCheck && CompareSettings(op)) flags.structureDirty = true;
  skipSettingsCheck = false;
  const zta::BaseTime t = doc->GetTime();
  const double seconds = t.GetDenominator() ? double(t.GetNumerator()) / double(t.GetDenominator()) : 0.0;
  timeChanged = seconds != documentTime;
  documentTime = seconds;

  auto cancel = [&]() -> zta::BaseObject* {
    bc->SetString(VOLUMEBUILDER_INFO, "");
    if (progress) progress->ClearProgress(false);
    pendingName = pendingName || flags.nameDirty;
    pendingInputs = pendingInputs || flags.inputsDirty;
    pendingStructure = pendingStructure || flags.structureDirty;
    cancelled = true;
    return op->GetCache();
  };

  if (auto ok = ScanDirty(op, hh, flags); !ok) return nullptr;
  if (!hasLastName_ || op->GetName() != lastName_) {
    lastName_ = op->GetName();
    hasLastName_ = true;
    flags.nameDirty = true;
  }
  if (StopAsked(hh)) return cancel();
  if (!mayUpdate) {
    pendingName = pendingName || flags.nameDirty;
    pendingInputs = pendingInputs || flags.inputsDirty;
    pendingStructure = pendingStructure || flags.structureDirty;
    flags = {};
  }
  if (!op->GetCache()) flags.structureDirty = true;
  // A bake needs the result of every frame it steps through.
  if (bakeTarget_) flags.inputsDirty = true;
  if (!flags.inputsDirty && !flags.structureDirty) {
    if (progress && showProgress) progress->ClearProgress(false);
    zta::TouchDependenceList(op);
    zta::BaseObject* cache = op->GetCache();
    if (!flags.nameDirty || !cache) return cache;
    if (cache->GetDown()) {
      zta::Int32 i = 1;
      for (zta::BaseObject* c = cache->GetDown(); c; c = c->GetNext()) c->SetName(zta::FormatString("@.@", op->GetName(), i++));
    } else {
      for (zta::BaseObject* c = cache; c; c = c->GetNext()) c->SetName(op->GetName());
    }
    return cache;
  }
  updateRequested = false;
  if (flags.structureDirty) {
    if (!cancelled)
      for (auto& [item, node] : evalNodes_) node->ClearResults();
    flags.structureDirty = false;
    flags.inputsDirty = true;
  }
  cancelled = false;
  if (progress && showProgress) progress->SetSpinning();

  layerLists_.clear();
  ++statistics_.rebuilds;
  auto refreshed = RefreshEvalTree(op);
  auto collected = refreshed ? CollectInputs(op, hh) : refreshed;
  auto fail = [&]() -> zta::BaseObject* {
    collectedInputs_.clear();
    if (progress) progress->ClearProgress(false);
    return nullptr;
  };
  if (!collected) return fail();
  Prune(op);
  OrderLayers(op);
  zta::Int64 rows = 0;
  for (const auto& list : layerLists_) rows += zta::Int64(list.size());
  if (progress) progress->SetStepCount(std::max<zta::Int64>(rows, 1));
  ComputeBoundingSize();
  if (checkVoxelLimit && !collectedInputs_.empty()) {
    ApplyVoxelLimit(op);
    checkVoxelLimit = false;
  }
  auto evaluated = Evaluate(op, hh);
  collectedInputs_.clear();
  if (progress) progress->ClearProgress(false);
  if (!evaluated) {
    if (IsCancelled(evaluated.GetError())) return cancel();
    return nullptr;
  }
  if (StopAsked(hh)) return cancel();
  std::vector<std::shared_ptr<zta::BaseObject>>& results = *evaluated;
  std::unique_ptr<zta::BaseObject> root;
  if (results.size() != 1) {
    root = zta::AllocObject(zta::HOST_TYPE_NULL);
    if (!root) return nullptr;
    root->SetName(op->GetName());
  }
  zta::Int64 voxels = 0, memory = 0;
  zta::Int32 number = 1;
  const bool gradient = bc->GetBool(VOLUMEBUILDER_CREATEGRADIENT), curl = bc->GetBool(VOLUMEBUILDER_CREATECURL);
  for (auto& r : results) {
    if (!r) break;
    Volume v = VolumeObjectData::GetVolume(r.get());
    if (gradient && v.GetGridType() != GRIDTYPE::VEC3S) {
      auto g = VolumeToolsInterface::CreateGradientVolume(v, hh->GetThread());
      if (!g) return nullptr;
      v = *g;
      if (curl) {
        auto c = VolumeToolsInterface::CreateCurlVolume(v, hh->GetThread());
        if (!c) return nullptr;
        v = *c;
      }
    }
    if (v.HasGrid()) {
      voxels += v.GetActiveVoxelCount();
      memory += v.GetMemUsage();
    }
    // A result may share its grid with an input's: the name goes on a copy
    // of the grid that shares the tree.
    const std::string name = root ? zta::FormatString("@.@", op->GetName(), number++) : op->GetName();
    if (v.HasGrid()) {
      auto named = v.Clone();
      if (!named) return nullptr;
      v = *named;
      v.SetGridName(name);
    }
    std::unique_ptr<zta::BaseObject> out = VolumeObjectData::MakeObject(v);
    if (!out) return nullptr;
    out->SetName(name);
    if (root) out.release()->InsertUnderLast(root.get());
    else root = std::move(out);
  }
  SetInfo(op, voxels, memory);
  return root.release();
}

}  // namespace zelmar
