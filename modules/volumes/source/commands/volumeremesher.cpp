#include "modules/volumes/source/commands/volumeremesher.h"

#include <memory>
#include <vector>

#include "host/modeling/copytags.h"
#include "host/modeling/modeling.h"
#include "host/objects/polygonobject.h"
#include "host/objects/subdivision.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/hosttypes.h"
#include "host/scene/itemtree.h"
#include "host/scene/messages.h"
#include "host/scene/undo.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumebuildertag.h"
#include "modules/volumes/source/objects/volumefilter.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kNameResource = 10025;
constexpr zta::Int32 kTitleResource = 10028;
constexpr double kDefaultVoxelSize = 10.0;
constexpr zta::Int32 kVolumeMesherType = 1039861;
constexpr zta::Int32 kMesherIsoParameter = 6000;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

// Tags whose records follow the old points or polygons, or that the new
// surface makes again, stay behind.
const std::vector<zta::Int32> kTagsNotCopied = {5673, 5701, 5674, 431000045, 5682, 1023800, 5616};

// The polygon objects an object shows: itself, or those in its cache.
bool ShowsPolygons(const zta::BaseObject* op) {
  std::vector<const zta::BaseObject*> stack{op};
  bool first = true;
  while (!stack.empty()) {
    const zta::BaseObject* n = stack.back();
    stack.pop_back();
    if (n->GetType() == zta::HOST_TYPE_POLYGON) return true;
    if (!first && n->GetNext()) stack.push_back(n->GetNext());
    if (!first && n->GetDown()) stack.push_back(n->GetDown());
    if (n->GetCache()) stack.push_back(n->GetCache());
    first = false;
  }
  return false;
}

// Runs a volume command on `input`; the first output object, taken from the data.
zta::Result<std::unique_ptr<zta::BaseObject>> RunCommand(const char* id, const zta::BaseObject* input,
                                                         const zta::BaseContainer& settings) {
  if (auto reg = RegisterVolumeCommands(); !reg) return reg.GetError();
  auto data = zta::CreateCommandData(kVolumeCommandDataClass);
  if (!data) return data.GetError();
  (*data)->GetSettings() = settings;
  (*data)->AddInput(input);
  auto state = zta::InvokeCommand(id, **data, nullptr);
  if (!state) return state.GetError();
  zta::BaseObject* out = (*data)->GetOutput(0);
  if (!out) return std::unique_ptr<zta::BaseObject>();
  std::unique_ptr<zta::BaseList2D> copy = out->GetClone();
  return std::unique_ptr<zta::BaseObject>(static_cast<zta::BaseObject*>(copy.release()));
}

zta::BaseObject* LastChild(zta::BaseObject* parent) {
  zta::BaseObject* c = parent->GetDown();
  while (c && c->GetNext()) c = c->GetNext();
  return c;
}

}  // namespace

bool VolumeRemesherSettingsDialog::InitValues() {
  SetFloat(REMESH_VOXEL_SIZE, settings_.GetFloat(REMESH_VOXEL_SIZE, kDefaultVoxelSize), 0.01, 1e18);
  SetInt32(REMESH_SUBDIVISION, settings_.GetInt32(REMESH_SUBDIVISION, 0), 0, 7);
  SetFloat(REMESH_SMOOTHING, settings_.GetFloat(REMESH_SMOOTHING, 0.0), 0.0, 1.0);
  SetBool(REMESH_LIVE, settings_.GetBool(REMESH_LIVE, false));
  return true;
}

void VolumeRemesherSettingsDialog::StoreValues() {
  zta::Float f = 0.0;
  zta::Int32 i = 0;
  bool b = false;
  if (GetFloat(REMESH_VOXEL_SIZE, f)) settings_.SetFloat(REMESH_VOXEL_SIZE, f);
  if (GetInt32(REMESH_SUBDIVISION, i)) settings_.SetInt32(REMESH_SUBDIVISION, i);
  if (GetFloat(REMESH_SMOOTHING, f)) settings_.SetFloat(REMESH_SMOOTHING, f);
  if (GetBool(REMESH_LIVE, b)) settings_.SetBool(REMESH_LIVE, b);
}

bool VolumeRemesherCommand::Register() {
  return zta::RegisterCommandPlugin(ID_VOLUMEREMESHER, Text(kNameResource), 0,
                                    std::make_shared<VolumeRemesherCommand>());
}

zta::Int32 VolumeRemesherCommand::GetState(zta::BaseDocument* doc) {
  if (!doc) return 0;
  for (const zta::BaseObject* op : doc->GetActiveObjects(zta::GETACTIVEOBJECTFLAGS_NONE))
    if (ShowsPolygons(op)) return kCommandEnabled;
  return 0;
}

bool VolumeRemesherCommand::Execute(zta::BaseDocument* doc) {
  if (!doc) return false;
  VolumeRemesherSettingsDialog dialog(settings_);
  if (!dialog.Open()) return true;
  dialog.StoreValues();
  return RunRemesh(doc).IsOk();
}

zta::Result<void> VolumeRemesherCommand::RunRemesh(zta::BaseDocument* doc) {
  if (!doc) return zta::NullptrError("no document");
  zta::Result<void> done = settings_.GetBool(REMESH_LIVE) ? BuildLiveSetup(doc) : BakeRemesh(doc);
  doc->EventAdd();
  return done;
}

zta::Result<void> VolumeRemesherCommand::BakeRemesh(zta::BaseDocument* doc) {
  std::vector<zta::BaseObject*> sources;
  for (zta::BaseObject* op : doc->GetActiveObjects(zta::GETACTIVEOBJECTFLAGS_NONE))
    if (ShowsPolygons(op)) sources.push_back(op);
  if (sources.empty()) return {};
  const double voxelSize = settings_.GetFloat(REMESH_VOXEL_SIZE, kDefaultVoxelSize);
  const zta::Int32 subdivision = settings_.GetInt32(REMESH_SUBDIVISION, 0);
  const double smoothing = settings_.GetFloat(REMESH_SMOOTHING, 0.0);

  // The sources as they show, each in its place in the world, in a scratch
  // document, joined into one polygon object in world space.
  std::unique_ptr<zta::BaseDocument> scratch = zta::AllocDocument();
  scratch->SetFps(doc->GetFps());
  scratch->SetTime(doc->GetTime());
  std::vector<zta::BaseObject*> copies;
  for (zta::BaseObject* src : sources) {
    std::unique_ptr<zta::BaseList2D> clone = src->GetClone();
    if (!clone) return zta::OutOfMemoryError("the sources could not be copied");
    auto* copy = static_cast<zta::BaseObject*>(clone.release());
    zta::BaseObject* top = copy;
    if (subdivision > 0) {
      std::unique_ptr<zta::BaseObject> sds = zta::AllocObject(zta::HOST_TYPE_SUBDIVISION);
      if (!sds) return zta::OutOfMemoryError("the subdivision could not be made");
      sds->GetDataInstance()->SetInt32(zta::SDSOBJECT_SUBEDITOR, subdivision);
      sds->GetDataInstance()->SetInt32(zta::SDSOBJECT_SUBRAY, subdivision);
      top = sds.release();
      scratch->InsertObject(top);
      scratch->InsertObject(copy, top);
    } else {
      scratch->InsertObject(copy);
    }
    copy->SetMg(src->GetMg());
    copies.push_back(top);
  }
  zta::ModelingCommandData join;
  join.doc = scratch.get();
  join.objects = copies;
  join.op = copies.front();
  join.bc.SetBool(zta::MDATA_CURRENTSTATETOOBJECT_JOIN, true);
  join.bc.SetBool(zta::MDATA_CURRENTSTATETOOBJECT_EVALUATE, true);
  if (auto ok = zta::SendModelingCommand(zta::MCOMMAND_CURRENTSTATETOOBJECT, join); !ok) return ok;
  zta::BaseObject* merged = nullptr;
  for (auto& r : join.result)
    if (r && r->GetType() == zta::HOST_TYPE_POLYGON) merged = r.get();
  if (!merged) return {};

  // Through voxels: a level set, an optional smoothing, and its surface.
  zta::BaseContainer toVolume;
  toVolume.SetFloat(MESHTOVOLUME_GRIDSIZE, voxelSize);
  auto volume = RunCommand(kMeshToVolumeCommand, merged, toVolume);
  if (!volume) return volume.GetError();
  if (!*volume) return {};
  if (smoothing > 0.0) {
    zta::BaseContainer smooth;
    smooth.SetInt32(SDFFILTER_TYPE, zta::Int32(SDFFILTERTYPE::GAUSSIAN));
    smooth.SetFloat(SDFFILTER_STRENGTH, smoothing);
    auto smoothed = RunCommand(kSdfFilterCommand, volume->get(), smooth);
    if (!smoothed) return smoothed.GetError();
    if (!*smoothed) return {};
    volume = std::move(smoothed);
  }
  auto mesh = RunCommand(kVolumeToMeshCommand, volume->get(), zta::BaseContainer());
  if (!mesh) return mesh.GetError();
  if (!*mesh) return {};
  std::unique_ptr<zta::BaseObject> result = std::move(*mesh);
  result->SetName(sources.front()->GetName());
  zta::CopyTagsTo(sources.front(), result.get(), zta::COPYTAGS_ANY, zta::COPYTAGS_WITHOUT, kTagsNotCopied);

  doc->StartUndo();
  for (zta::BaseObject* src : sources) {
    doc->AddUndo(zta::UNDOTYPE::DELETEOBJ, src);
    std::unique_ptr<zta::GeListNode> gone = src->Remove();
  }
  zta::BaseObject* inserted = result.release();
  doc->InsertObject(inserted);
  doc->AddUndo(zta::UNDOTYPE::NEWOBJ, inserted);
  doc->EndUndo();
  doc->SetActiveObject(inserted);
  return {};
}

zta::Result<void> VolumeRemesherCommand::BuildLiveSetup(zta::BaseDocument* doc) {
  const std::vector<zta::BaseObject*> sources = doc->GetActiveObjects(zta::GETACTIVEOBJECTFLAGS_NONE);
  if (sources.empty()) return {};
  std::unique_ptr<zta::BaseObject> builderMade = zta::AllocObject(ID_VOLUMEBUILDER);
  std::unique_ptr<zta::BaseObject> mesherMade = zta::AllocObject(kVolumeMesherType);
  if (!builderMade || !mesherMade) return {};
  const double voxelSize = settings_.GetFloat(REMESH_VOXEL_SIZE, kDefaultVoxelSize);
  const zta::Int32 subdivision = settings_.GetInt32(REMESH_SUBDIVISION, 0);
  const double smoothing = settings_.GetFloat(REMESH_SMOOTHING, 0.0);

  doc->StartUndo();
  zta::BaseObject* mesher = mesherMade.release();
  mesher->Message(zta::MSG_MENUPREPARE);
  doc->InsertObject(mesher);
  doc->AddUndo(zta::UNDOTYPE::NEWOBJ, mesher);
  zta::BaseObject* builder = builderMade.release();
  doc->InsertObject(builder, mesher);
  mesher->GetDataInstance()->SetFloat(kMesherIsoParameter, 0.0);
  builder->GetDataInstance()->SetFloat(VOLUMEBUILDER_VOXELSIZE, voxelSize);
  auto* data = builder->GetNodeData<VolumeBuilderData>();

  zta::ItemTreeItem* previous = nullptr;
  for (zta::BaseObject* src : sources) {
    doc->AddUndo(zta::UNDOTYPE::HIERARCHY_PSR, src);
    const zta::Matrix mg = src->GetMg();
    std::unique_ptr<zta::GeListNode> taken = src->Remove();
    zta::BaseObject* input = src;
    if (subdivision > 0) {
      std::unique_ptr<zta::BaseObject> sds = zta::AllocObject(zta::HOST_TYPE_SUBDIVISION);
      if (!sds) {
        doc->InsertObject(static_cast<zta::BaseObject*>(taken.release()));
        doc->EndUndo();
        return zta::OutOfMemoryError("the subdivision could not be made");
      }
      sds->GetDataInstance()->SetInt32(zta::SDSOBJECT_SUBEDITOR, subdivision);
      sds->GetDataInstance()->SetInt32(zta::SDSOBJECT_SUBRAY, subdivision);
      input = sds.release();
      doc->InsertObject(input, builder, LastChild(builder));
      doc->InsertObject(static_cast<zta::BaseObject*>(taken.release()), input);
    } else {
      doc->InsertObject(static_cast<zta::BaseObject*>(taken.release()), builder, LastChild(builder));
    }
    src->SetMg(mg);
    previous = data ? data->AddLayer(builder, input, nullptr, previous, true, false, false) : nullptr;
    // Sources from other tools may have holes: the conversion closes them first.
    if (zta::BaseTag* tag = FindTag(builder, input)) tag->GetDataInstance()->SetBool(VOLUMEBUILDERTAG_CLOSEHOLES, true);
  }
  if (smoothing != 0.0) {
    CreateVolumeFilterCommand smooth(VOLUMEFILTER_TYPE_SDF, zta::Int32(SDFFILTERTYPE::GAUSSIAN));
    if (zta::BaseObject* filter = smooth.AddTo(builder)) {
      zta::BaseContainer* bc = filter->GetDataInstance();
      bc->SetInt32(VOLUMEFILTER_RADIUS, 3);
      bc->SetFloat(VOLUMEFILTER_STRENGTH, smoothing);
      bc->SetInt32(VOLUMEFILTER_VOLUMETYPE, VOLUMEFILTER_TYPE_SDF);
      bc->SetInt32(VOLUMEFILTER_ITERATIONS, 10);
    }
  }
  doc->EndUndo();
  doc->SetActiveObject(mesher);
  return {};
}

}  // namespace zelmar
