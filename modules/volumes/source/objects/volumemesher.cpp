#include "modules/volumes/source/objects/volumemesher.h"

#include <atomic>
#include <cmath>
#include <limits>
#include <new>

#include "host/modeling/copytags.h"
#include "host/objects/phongtag.h"
#include "host/objects/polygonobject.h"
#include "host/objects/vertexmaptag.h"
#include "host/scene/basedocument.h"
#include "host/scene/commanddata.h"
#include "host/scene/execution.h"
#include "host/scene/hyperfile.h"
#include "host/scene/messages.h"
#include "host/scene/plugins.h"
#include "host/ui/hostmode.h"
#include "host/ui/parallel.h"
#include "modules/volumes/source/helper/progresshandler.h"
#include "modules/volumes/source/helper/phong.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumeiterators.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

using zta::Int32;
using zta::Int64;

constexpr Int32 kInfoFlags = 0x1000800c;
constexpr Int32 kDiskLevel = 1;
constexpr Int32 kNameResource = 10002;
constexpr Int32 kProgressResource = 10052;
constexpr Int32 kMapNameResource = 10067;
constexpr Int32 kPriority = 4500;
constexpr Int32 kNullType = zta::HOST_TYPE_NULL;
// Node bits of the proxy tag: 63 hides it; 82 and 92 keep the user from
// deleting or copying it.
constexpr Int32 kBitHidden = 63;
constexpr Int32 kBitNoDelete = 82;
constexpr Int32 kBitNoCopy = 92;
constexpr Int32 kSerialPoints = 1024;
constexpr double kEdgeOffset = 0.00001;

std::string Text(Int32 id) { return GetModuleResource().Get(id); }

VolumeObjectData* VolumeDataOf(zta::BaseObject* op) {
  return op && op->GetType() == ID_VOLUMEOBJECT ? op->GetNodeData<VolumeObjectData>() : nullptr;
}

bool Stopped(const zta::ThreadRef& thread) { return thread && thread->TestBreak(); }

// The value a curvature sample leaves in the map, by mode.
template <bool keepNegative, bool keepPositive>
float Kept(float c) {
  if constexpr (keepNegative && keepPositive) return std::abs(c);
  else if constexpr (keepPositive) return c > 0.0f ? c : 0.0f;
  else return c < 0.0f ? -c : 0.0f;
}

template <bool keepNegative, bool keepPositive>
zta::Result<void> AddCurvatureMapToMesh(zta::BaseObject* object, const Volume& volume, const std::string& name) {
  if (!object || object->GetType() != zta::HOST_TYPE_POLYGON)
    return zta::IllegalArgumentError("object is not a polygon object. This should never happen");
  auto* polygon = static_cast<zta::PolygonObject*>(object);
  auto curvature = VolumeToolsInterface::CreateMeanCurvatureVolume(volume, nullptr);
  if (!curvature) return curvature.GetError();
  if (!curvature->IsInitialized() || !curvature->HasGrid()) return zta::OK();

  const Int32 count = polygon->GetPointCount();
  std::unique_ptr<zta::VertexMapTag> tag = zta::VertexMapTag::Alloc(count);
  if (!tag) return zta::OutOfMemoryError("could not create vertex map tag for volume mesher");
  tag->SetName(name);
  const zta::Vector* points = polygon->GetPointR();
  float* out = tag->GetDataAddressW();
  if (!out && count > 0) return zta::OutOfMemoryError("no memory was created for the vertex map");

  const zta::Matrix mg = polygon->GetMg();
  const Volume& field = *curvature;
  std::atomic<bool> broken{false};
  zta::Result<void> failure = zta::OK();
  std::atomic_flag failureTaken = ATOMIC_FLAG_INIT;
  auto chunk = [&](Int64 begin, Int64 end) {
    if (broken.load(std::memory_order_relaxed)) return;
    auto accessor = GridAccessorCreationImpl::Create<float>();
    zta::Result<void> ready = accessor ? (*accessor)->Init(field, VOLUMESAMPLER::QUADRATIC)
                                       : zta::Result<void>(accessor.GetError());
    if (!ready) {
      if (!failureTaken.test_and_set()) failure = ready;
      broken.store(true, std::memory_order_relaxed);
      return;
    }
    const GridAccessorInterface<float>* a = accessor->get();
    for (Int64 i = begin; i < end && !broken.load(std::memory_order_relaxed); ++i)
      out[i] = a ? Kept<keepNegative, keepPositive>(a->GetValueVector(mg * points[i])) : 0.0f;
  };
  if (count > kSerialPoints) zta::ParallelForRange(0, count, chunk, kSerialPoints);
  else chunk(0, count);
  if (!failure) return failure;
  polygon->InsertTag(tag.release(), polygon->GetTag(zta::HOST_TAG_UVW));
  return zta::OK();
}

zta::Result<void> AddCurvatureMap(zta::BaseObject* polygon, const Volume& volume, const MesherSettings& settings) {
  switch (settings.curvatureMode) {
    case MESHER_CURVATURE_ABSOLUTE: return AddCurvatureMapToMesh<true, true>(polygon, volume, settings.mapName);
    case MESHER_CURVATURE_POSITIVE: return AddCurvatureMapToMesh<false, true>(polygon, volume, settings.mapName);
    case MESHER_CURVATURE_NEGATIVE: return AddCurvatureMapToMesh<true, false>(polygon, volume, settings.mapName);
    default: return zta::OK();
  }
}

// The smallest and largest of all values of the volume, walked as T, with the
// background when the grid holds T itself.
template <typename T>
zta::Result<std::pair<T, T>> WalkValues(const Volume& volume, T lowest, T highest) {
  auto made = GridIteratorCreationImpl::Create<T>(GRIDITERATORTYPE::ALL);
  if (!made) return made.GetError();
  GridIteratorInterface<T>& it = **made;
  if (auto ok = it.Init(volume); !ok) return ok.GetError();
  T lo = highest, hi = lowest;
  for (; it.IsValid(); it.MoveNext()) {
    const T v = it.GetValue();
    if (v < lo) lo = v;
    if (v > hi) hi = v;
  }
  if (volume.GetGridType() == kGridTypeOf<T>) {
    const Data background = volume.GetBackground();
    if (const T* b = background.template TryGet<T>()) {
      if (*b < lo) lo = *b;
      if (*b > hi) hi = *b;
    }
  }
  return std::pair<T, T>(lo, hi);
}

}  // namespace

// ---- the template

template <typename T>
zta::BaseObject* VolumeGenerator<T>::BuildVirtualObjects(zta::BaseObject* op, const zta::HierarchyHelp* hh) {
  T& self = static_cast<T&>(*this);
  if (!op || !hh) return nullptr;
  zta::BaseObject* child = op->GetDown();
  zta::BaseObject* cache = op->GetCache();
  bool dirty = self.CheckParameterChange(op) || !cache;
  if (!dirty && child) {
    zta::BeginDependenceList(op);
    for (zta::BaseObject* c = child; c; c = c->GetNext()) {
      bool childDirty = false;
      // Only the dirty state counts here; the copy itself is not needed.
      zta::GetHierarchyClone(hh, c, zta::HIERARCHYCLONEFLAGS_ASVOLUME, &childDirty, nullptr);
      dirty = dirty || childDirty;
    }
  }
  if (!dirty && zta::CheckDependenceList(op) == 0) {
    zta::TouchDependenceList(op);
    return cache;
  }

  zta::BeginDependenceList(op);
  zta::AliasTrans trans;
  std::vector<std::unique_ptr<zta::BaseObject>> clones;
  std::vector<zta::BaseObject*> volumes;
  try {
    for (zta::BaseObject* c = child; c; c = c->GetNext()) {
      std::unique_ptr<zta::BaseObject> clone =
          zta::GetHierarchyClone(hh, c, zta::HIERARCHYCLONEFLAGS_ASVOLUME, nullptr, &trans);
      if (!clone) continue;
      clones.push_back(std::move(clone));
    }
    // Children before siblings, without recursion.
    for (const auto& clone : clones) {
      std::vector<zta::BaseObject*> stack{clone.get()};
      while (!stack.empty()) {
        zta::BaseObject* n = stack.back();
        stack.pop_back();
        if (n != clone.get() && n->GetNext()) stack.push_back(n->GetNext());
        if (n->GetDown()) stack.push_back(n->GetDown());
        if (n->GetType() == ID_VOLUMEOBJECT) volumes.push_back(n);
      }
    }
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return self.MeshVolumes(op, volumes, hh);
}

template class VolumeGenerator<VolumeToMeshGenerator>;

// ---- the mesher

VolumeToMeshGenerator::~VolumeToMeshGenerator() = default;

std::unique_ptr<zta::NodeData> VolumeToMeshGenerator::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeToMeshGenerator());
}

bool VolumeToMeshGenerator::Register() {
  // The mesher meshes through the command; a static link keeps the commands
  // only through this reference.
  if (!RegisterVolumeCommands()) return false;
  return zta::RegisterObjectPlugin(ID_VOLUMEMESHER, Text(kNameResource), kInfoFlags, &VolumeToMeshGenerator::Alloc,
                                   "Ovolumetomesh", kDiskLevel);
}

bool VolumeToMeshGenerator::InitNode(zta::GeListNode* node) {
  if (!node) return false;
  zta::BaseContainer* bc = static_cast<zta::BaseObject*>(node)->GetDataInstance();
  bc->SetFloat(MESHER_THRESHOLD_ABSOLUTE, 0.01);
  bc->SetFloat(MESHER_ADAPTIVITY, 0.0);
  bc->SetBool(MESHER_USE_ABSOLUTE, false);
  bc->SetFloat(MESHER_THRESHOLD_RELATIVE, 0.5);
  bc->SetBool(MESHER_CURVATURE_MAP, false);
  bc->SetInt32(MESHER_CURVATURE_MODE, MESHER_CURVATURE_ABSOLUTE);
  try {
    links_.resize(1);
    visible_.resize(1);
    names_.resize(1);
  } catch (const std::bad_alloc&) {
    return false;
  }
  names_[0] = Text(kMapNameResource);
  return true;
}

bool VolumeToMeshGenerator::ReadNode(zta::GeListNode* node, zta::HyperFile* hf, Int32 level) {
  if (!node || !hf) return false;
  if (!ObjectData::ReadNode(node, hf, level)) return false;
  if (level < 1) return true;
  Int32 count = 0;
  if (!hf->ReadInt32(&count)) return false;
  if (count < 0) return hf->SetError("the volume mesher's link count is negative");
  if (size_t(count) != links_.size()) {
    try {
      links_.resize(size_t(count));
      visible_.resize(size_t(count));
      names_.resize(size_t(count));
    } catch (const std::bad_alloc&) {
      return false;
    }
  }
  for (Int32 i = 0; i < count; ++i) {
    zta::BaseLink link;
    if (!hf->ReadLink(&link)) return false;
    if (size_t(i) < links_.size()) links_[size_t(i)] = link;
    linksRead_ = true;
  }
  return true;
}

void VolumeToMeshGenerator::ResolveCopiedLinks(const zta::BaseObject* op) const {
  if (!op) return;
  for (size_t i = 0; i < copiedTagIndex_.size() && i < links_.size(); ++i) {
    if (copiedTagIndex_[i] < 0) continue;
    const zta::BaseTag* tag = op->GetFirstTag();
    for (Int32 k = 0; tag && k < copiedTagIndex_[i]; ++k) tag = tag->GetNext();
    if (!tag) continue;  // not yet copied
    links_[i].SetLink(tag);
    copiedTagIndex_[i] = -1;
  }
}

bool VolumeToMeshGenerator::WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const {
  if (!node || !hf) return false;
  ResolveCopiedLinks(static_cast<const zta::BaseObject*>(node));
  if (!ObjectData::WriteNode(node, hf)) return false;
  if (!hf->WriteInt32(Int32(links_.size()))) return false;
  for (const zta::BaseLink& link : links_)
    if (!hf->WriteLink(link)) return false;
  return true;
}

bool VolumeToMeshGenerator::CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode,
                                     Int32 flags, zta::AliasTrans* trans) const {
  auto* target = dynamic_cast<VolumeToMeshGenerator*>(dest);
  if (!target) return false;
  try {
    if (target->links_.size() < links_.size()) {
      target->links_.resize(links_.size());
      target->visible_.resize(links_.size());
    }
    target->copiedTagIndex_.assign(target->links_.size(), -1);
    for (size_t i = 0; i < links_.size(); ++i) {
      target->links_[i] = trans ? trans->Translate(links_[i]) : links_[i];
      // Tags are copied after the node's data: a link to one of the source's
      // own tags is taken up once the copy has them.
      const auto* tag = dynamic_cast<const zta::BaseTag*>(links_[i].ForceGetLink());
      if (!tag || static_cast<const zta::GeListNode*>(tag->GetObject()) != snode || !(target->links_[i] == links_[i]))
        continue;
      Int32 index = 0;
      for (const zta::BaseTag* t = tag->GetObject()->GetFirstTag(); t && t != tag; t = t->GetNext()) ++index;
      target->copiedTagIndex_[i] = index;
    }
    if (target != this) target->names_ = names_;
  } catch (const std::bad_alloc&) {
    return false;
  }
  target->lastCurvatureFlag_ = lastCurvatureFlag_;
  return true;
}

bool VolumeToMeshGenerator::HandleMessage(zta::GeListNode* node, Int32 type, void* data) {
  auto* op = static_cast<zta::BaseObject*>(node);
  switch (type) {
    case zta::MSG_MENUPREPARE: {
      if (!op) break;
      if (!ApplyDefaultPhong(op)) return false;
      break;
    }
    case zta::MSG_DOCUMENTINFO: {
      const auto* info = static_cast<const zta::DocumentInfoData*>(data);
      if (!info || !info->doc) return false;
      if (info->type == zta::DOCUMENTINFO_TYPE_SAVE_BEFORE) {
        for (const zta::BaseLink& link : links_)
          if (zta::BaseList2D* tag = link.GetLink(info->doc)) tag->ChangeNBit(kBitHidden, zta::NBITCONTROL::SET);
      } else if (info->type == zta::DOCUMENTINFO_TYPE_LOAD_AFTER || info->type == zta::DOCUMENTINFO_TYPE_SAVE_AFTER) {
        UpdateVertexMapTags(op, info->doc, false);
      }
      break;
    }
    default: break;
  }
  return ObjectData::HandleMessage(node, type, data);
}

bool VolumeToMeshGenerator::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id,
                                               const zta::GeData& t_data, Int32 flags,
                                               const zta::BaseContainer* itemdesc) {
  const zta::BaseContainer* bc = node ? static_cast<zta::BaseObject*>(node)->GetDataInstance() : nullptr;
  if (bc) {
    switch (id.GetId()) {
      case MESHER_THRESHOLD_RELATIVE: return !bc->GetBool(MESHER_USE_ABSOLUTE);
      case MESHER_THRESHOLD_ABSOLUTE: return bc->GetBool(MESHER_USE_ABSOLUTE);
      case MESHER_CURVATURE_MODE: return bc->GetBool(MESHER_CURVATURE_MAP);
      default: break;
    }
  }
  return ObjectData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
}

bool VolumeToMeshGenerator::AddToExecution(zta::BaseObject* op, zta::PriorityList* list) {
  if (!op || !list) return false;
  list->Add(op, kPriority);
  return true;
}

zta::EXECUTIONRESULT VolumeToMeshGenerator::ExecuteObject(zta::BaseObject* op, zta::BaseDocument* doc, zta::ZTAThread*,
                                                          Int32 priority, Int32) {
  if (priority != kPriority || !op) return zta::EXECUTIONRESULT::OK;
  ResolveCopiedLinks(op);
  // A rename of the proxy tag reaches the map at the next build.
  for (size_t i = 0; i < links_.size() && i < names_.size(); ++i)
    if (zta::BaseList2D* tag = links_[i].GetLink(doc)) names_[i] = tag->GetName();
  const bool curvature = op->GetDataInstance()->GetBool(MESHER_CURVATURE_MAP);
  if (curvature == lastCurvatureFlag_) return zta::EXECUTIONRESULT::OK;
  lastCurvatureFlag_ = curvature;
  if (!doc) return zta::EXECUTIONRESULT::OUTOFMEMORY;
  UpdateVertexMapTags(op, doc, true);
  return zta::EXECUTIONRESULT::OK;
}

void VolumeToMeshGenerator::UpdateVertexMapTags(zta::BaseObject* op, zta::BaseDocument* doc, bool createMissing) {
  if (!op || links_.empty()) return;
  ResolveCopiedLinks(op);
  visible_[0] = op->GetDataInstance()->GetBool(MESHER_CURVATURE_MAP);
  if (createMissing && !links_[0].GetLink(doc)) {
    if (std::unique_ptr<zta::VertexMapTag> made = zta::VertexMapTag::Alloc(0)) {
      made->SetName(names_.empty() ? std::string() : names_[0]);
      zta::BaseTag* last = op->GetFirstTag();
      while (last && last->GetNext()) last = last->GetNext();
      zta::BaseTag* tag = made.release();
      op->InsertTag(tag, last);
      tag->ChangeNBit(kBitNoCopy, zta::NBITCONTROL::SET);
      tag->ChangeNBit(kBitNoDelete, zta::NBITCONTROL::SET);
      tag->ChangeNBit(kBitHidden, zta::NBITCONTROL::SET);
      links_[0].SetLink(tag);
    }
  }
  for (size_t i = 0; i < links_.size(); ++i) {
    zta::BaseList2D* tag = links_[i].GetLink(doc);
    if (!tag) tag = links_[i].ForceGetLink();
    if (!tag) continue;
    const bool show = i < visible_.size() && visible_[i];
    tag->ChangeNBit(kBitHidden, show ? zta::NBITCONTROL::CLEAR : zta::NBITCONTROL::SET);
  }
}

zta::BaseTag* VolumeToMeshGenerator::GetProxyTag(zta::BaseObject* op) {
  if (links_.empty() || !op) return nullptr;
  ResolveCopiedLinks(op);
  return dynamic_cast<zta::BaseTag*>(links_[0].GetLink(op->GetDocument()));
}

bool VolumeToMeshGenerator::CheckParameterChange(zta::BaseObject* op) {
  const zta::BaseContainer* bc = op->GetDataInstance();
  const double absolute = bc->GetFloat(MESHER_THRESHOLD_ABSOLUTE);
  const double adaptivity = bc->GetFloat(MESHER_ADAPTIVITY);
  const bool useAbsolute = bc->GetBool(MESHER_USE_ABSOLUTE);
  const double relative = 2.0 * bc->GetFloat(MESHER_THRESHOLD_RELATIVE) - 1.0;
  // The data counter is taken at every test, so that a change seen through the
  // snapshot is not seen a second time through the counter.
  const zta::UInt32 data = op->GetDirty(zta::DIRTYFLAGS_DATA);
  const bool dataChanged = !dataDirtyKnown_ || data != lastDataDirty_;
  lastDataDirty_ = data;
  dataDirtyKnown_ = true;
  if (absolute != lastAbsolute_ || adaptivity != lastAdaptivity_ || useAbsolute != lastUseAbsolute_ ||
      relative != lastRelative_) {
    lastAbsolute_ = absolute;
    lastAdaptivity_ = adaptivity;
    lastUseAbsolute_ = useAbsolute;
    lastRelative_ = relative;
    return true;
  }
  return dataChanged;
}

zta::Result<std::vector<std::unique_ptr<zta::BaseObject>>> VolumeToMeshGenerator::MeshOneCall(
    const std::vector<zta::BaseObject*>& volumes, double iso, double adaptivity, const MesherSettings& settings,
    const zta::ThreadRef& thread) {
  using List = std::vector<std::unique_ptr<zta::BaseObject>>;
  auto data = zta::CreateCommandData(kVolumeCommandDataClass);
  if (!data) return data.GetError();
  zta::LegacyCommandDataInterface& command = **data;
  command.GetSettings().SetFloat(VOLUMETOMESH_ISO, iso);
  command.GetSettings().SetFloat(VOLUMETOMESH_ADAPTIVITY, adaptivity);
  for (zta::BaseObject* v : volumes) command.AddInput(v);
  ++meshCalls_;
  auto state = zta::InvokeCommand(kVolumeToMeshCommand, command, thread);
  // A failed command is no failure of the build: the mesher then shows nothing.
  if (!state || *state != zta::COMMANDRESULT::OK || command.GetOutputCount() == 0 || !command.GetOutput(0))
    return List();
  List out;
  out.reserve(size_t(command.GetOutputCount()));
  for (Int32 i = 0; i < command.GetOutputCount(); ++i) out.push_back(command.TakeOutput(i));
  if (settings.curvatureMap && out.size() == volumes.size()) {
    for (size_t i = 0; i < out.size(); ++i) {
      if (!out[i] || !volumes[i]) continue;
      if (auto ok = AddCurvatureMap(out[i].get(), VolumeObjectData::GetVolume(volumes[i]), settings); !ok)
        return ok.GetError();
    }
  }
  return out;
}

zta::Result<std::pair<double, double>> VolumeToMeshGenerator::GetValueRange(zta::BaseObject* volumeObject) {
  VolumeObjectData* data = VolumeDataOf(volumeObject);
  if (!data) return zta::IllegalArgumentError("not a volume object");
  data->SyncMatrixToGrid(volumeObject);
  const Volume& volume = data->GetVolume();
  // The voxels' identity is their tree: a volume object moved into the
  // generator's space holds a new grid object over the same tree.
  const openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
  const void* tree = grid ? static_cast<const void*>(grid->constBaseTreePtr().get()) : nullptr;
  const zta::UInt64 key = zta::UInt64(volume.GetActiveVoxelCount()) + zta::UInt64(reinterpret_cast<uintptr_t>(tree)) +
                          zta::UInt64(volumeObject->GetDirty(zta::DIRTYFLAGS_DATA) & 0xffffffffu);
  if (auto found = previousRanges_.find(key); found != previousRanges_.end()) {
    try {
      currentRanges_[key] = found->second;
    } catch (const std::bad_alloc&) {
      return zta::OutOfMemoryError();
    }
    return found->second;
  }

  ++rangeWalks_;
  double lo = 0.0, hi = 0.0;
  const GRIDTYPE type = volume.GetGridType();
  if (type == GRIDTYPE::FLOAT || type == GRIDTYPE::DOUBLE) {
    auto r = WalkValues<float>(volume, -std::numeric_limits<float>::max(), std::numeric_limits<float>::max());
    if (!r) return r.GetError();
    lo = r->first, hi = r->second;
  } else if (type == GRIDTYPE::INT32) {
    auto r = WalkValues<int32_t>(volume, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
    if (!r) return r.GetError();
    lo = r->first, hi = r->second;
  } else if (type == GRIDTYPE::INT64) {
    auto r = WalkValues<int64_t>(volume, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max());
    if (!r) return r.GetError();
    lo = double(r->first), hi = double(r->second);
  }
  if (volume.GetGridClass() == GRIDCLASS::SDF) {
    // The voxel edge: a minimum that is a whole number of voxels is the band's
    // untouched inside, and the surface of a relative iso near 0 then stays
    // clear of it.
    const double s = volume.GetGridTransform().GetScale().x;
    if (s != 0.0 && std::abs(lo - std::ceil(lo / s) * s) < 1e-10) {
      if (type == GRIDTYPE::INT32 || type == GRIDTYPE::INT64) lo -= double(Int64(s));
      else lo -= s;
    }
  }
  try {
    currentRanges_[key] = {lo, hi};
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  return std::pair<double, double>(lo, hi);
}

zta::Result<double> VolumeToMeshGenerator::ResolveThreshold(zta::BaseObject* volumeObject, double t) {
  const Volume volume = VolumeObjectData::GetVolume(volumeObject);
  const GRIDTYPE type = volume.IsInitialized() && volume.HasGrid() ? volume.GetGridType() : GRIDTYPE::NONE;
  if (type != GRIDTYPE::FLOAT && type != GRIDTYPE::DOUBLE && type != GRIDTYPE::INT32 && type != GRIDTYPE::INT64)
    return 0.0;
  if (t == -1.0) t += kEdgeOffset;
  if (t == 1.0) t -= kEdgeOffset;
  auto range = GetValueRange(volumeObject);
  if (!range) return range.GetError();
  const auto [lo, hi] = *range;
  if (volume.GetGridClass() != GRIDCLASS::SDF) return lo + (t + 1.0) * (hi - lo) * 0.5;
  // The halves of t lie on either side of the surface.
  if (t < 0.0) return lo + (t + 1.0) * (0.0 - lo);
  return t * hi;
}

zta::BaseObject* VolumeToMeshGenerator::MeshVolumes(zta::BaseObject* op, const std::vector<zta::BaseObject*>& volumes,
                                                    const zta::HierarchyHelp* hh) {
  if (!op || !hh) return nullptr;
  const zta::BaseContainer* bc = op->GetDataInstance();
  const bool useAbsolute = bc->GetBool(MESHER_USE_ABSOLUTE);
  const double adaptivity = bc->GetFloat(MESHER_ADAPTIVITY);
  MesherSettings settings;
  settings.curvatureMode = bc->GetInt32(MESHER_CURVATURE_MODE);
  settings.curvatureMap = bc->GetBool(MESHER_CURVATURE_MAP);
  settings.mapName = names_.empty() ? std::string() : names_[0];
  const zta::ThreadRef& thread = hh->GetThread();
  if (Stopped(thread)) return op->GetCache();

  const Int32 mode = zta::GetHostMode();
  const bool quiet = mode == zta::HOSTMODE_COMMANDLINE || mode == zta::HOSTMODE_LIBRARY ||
                     (hh->GetBuildFlags() & (zta::BUILDFLAGS_INTERNALRENDERER | zta::BUILDFLAGS_EXTERNALRENDERER));
  std::shared_ptr<ProgressHandler> progress;
  if (!quiet) {
    if (auto p = ProgressHandler::Get()) {
      progress = *p;
      progress->SetActive(true);
      progress->SetTitle(Text(kProgressResource) + "...");
      progress->SetSpinning();
    }
  }
  struct EndProgress {
    std::shared_ptr<ProgressHandler>& p;
    ~EndProgress() {
      if (p) p->ClearProgress(false);
    }
  } endProgress{progress};

  std::vector<std::unique_ptr<zta::BaseObject>> results;
  try {
    // The grids stand where their objects stand in the generator's space.
    for (zta::BaseObject* v : volumes)
      if (VolumeObjectData* data = VolumeDataOf(v)) data->SyncMatrixToGrid(v);
    if (!useAbsolute) {
      currentRanges_.clear();
      const double t = 2.0 * bc->GetFloat(MESHER_THRESHOLD_RELATIVE) - 1.0;
      for (zta::BaseObject* v : volumes) {
        if (!v) continue;
        auto iso = ResolveThreshold(v, t);
        if (!iso) return nullptr;
        auto meshed = MeshOneCall({v}, *iso, adaptivity, settings, thread);
        if (!meshed) return nullptr;
        for (auto& m : *meshed) results.push_back(std::move(m));
      }
      previousRanges_.clear();
      previousRanges_.swap(currentRanges_);
    } else {
      auto meshed = MeshOneCall(volumes, bc->GetFloat(MESHER_THRESHOLD_ABSOLUTE), adaptivity, settings, thread);
      if (!meshed) return nullptr;
      results = std::move(*meshed);
    }
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  if (Stopped(thread)) return op->GetCache();

  std::unique_ptr<zta::BaseObject> root;
  if (results.size() != 1) {
    root = zta::AllocObject(kNullType);
    if (!root) return nullptr;
  }
  std::unique_ptr<zta::BaseObject> single;
  for (auto& polygon : results) {
    if (!polygon) continue;
    if (zta::BaseTag* phong = polygon->GetTag(zta::HOST_TAG_PHONG)) {
      const std::unique_ptr<zta::GeListNode> removed = phong->Remove();
    }
    if (!zta::CopyTagsTo(op, polygon.get(), zta::COPYTAGS_WITH, zta::COPYTAGS_WITHOUT)) return nullptr;
    if (root) polygon.release()->InsertUnderLast(root.get());
    else single = std::move(polygon);
  }
  return root ? root.release() : single.release();
}

}  // namespace zelmar
