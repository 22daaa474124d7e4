#include "modules/volumes/source/objects/volumefilter.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/description.h"
#include "host/scene/plugins.h"
#include "host/scene/undo.h"
#include "host/ui/hostmode.h"
#include "host/ui/statusbar.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kInfoFlags = 0x30000001;
constexpr zta::Int32 kDiskLevel = 1;
constexpr zta::Int32 kNameResource = 10069;
constexpr zta::Int32 kFilteringResource = 10053;
constexpr zta::Int32 kVolumeBuilderType = 1039859;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

// The tools take shared thread references; the host hands modifiers a plain pointer it owns.
zta::ThreadRef Borrow(zta::ZTAThread* thread) {
  return thread ? zta::ThreadRef(thread, [](zta::ZTAThread*) {}) : nullptr;
}

// The SDF operations that move the surface by an offset: they first widen the
// band so the moved surface still lies inside it.
bool IsSdfReshape(zta::Int32 op) {
  const auto t = SDFFILTERTYPE(op);
  return t == SDFFILTERTYPE::DILATE || t == SDFFILTERTYPE::ERODE || t == SDFFILTERTYPE::OPEN ||
         t == SDFFILTERTYPE::CLOSE;
}

// Runs a volume command on one volume and gives its only result; a run
// stopped through the thread gives the volume back unchanged.
Result<Volume> RunOnVolume(const char* command, const Volume& volume, const zta::BaseContainer& settings,
                           const zta::ThreadRef& thread) {
  if (Result<void> reg = RegisterVolumeCommands(); !reg) return reg.GetError();
  Result<std::unique_ptr<zta::BaseObject>> input = CreateVolumeObject(volume);
  if (!input) return input.GetError();
  Result<std::unique_ptr<zta::LegacyCommandDataInterface>> data = zta::CreateCommandData(kVolumeCommandDataClass);
  if (!data) return data.GetError();
  (*data)->GetSettings() = settings;
  (*data)->AddInput(input->get());
  const Result<zta::COMMANDRESULT> state = zta::InvokeCommand(command, **data, thread);
  if (!state) return state.GetError();
  if (*state == zta::COMMANDRESULT::BREAK) return volume;
  const std::vector<Volume> results = static_cast<VolumeCommandData&>(**data).GetResultVolumes();
  if (results.empty()) return Volume();
  return results.front();
}

// The mask settings shared by both filter commands.
void SetMask(zta::BaseContainer& settings, const zta::BaseContainer& bc, const zta::Matrix& matrix, zta::Int32 fieldsKey,
             zta::Int32 spaceKey) {
  if (!bc.GetBool(VOLUMEFILTER_USE_FIELDS)) return;
  auto fields = bc.GetCustomDataTyped<zta::FieldList>(VOLUMEFILTER_FIELDS);
  if (!fields || fields->GetLayerCount() == 0) return;
  settings.SetCustomData(fieldsKey, fields);
  settings.SetMatrix(spaceKey, matrix);
}

Result<Volume> FilterSdf(const zta::BaseContainer& bc, const Volume& volume, const zta::Matrix& matrix,
                         const zta::ThreadRef& thread) {
  const zta::Int32 op = bc.GetInt32(VOLUMEFILTER_SDFTYPE, 1);
  zta::BaseContainer settings;
  Volume source = volume;
  if (IsSdfReshape(op)) {
    zta::BaseContainer resize;
    resize.SetInt32(SDFFILTER_TYPE, zta::Int32(SDFFILTERTYPE::RESIZE));
    resize.SetInt32(SDFFILTER_ITERATIONS, 4);
    resize.SetInt32(SDFFILTER_HALFWIDTH, std::max<zta::Int32>(1, bc.GetInt32(VOLUMEFILTER_FIELD_MODE, 3)));
    Result<Volume> resized = RunOnVolume(kSdfFilterCommand, volume, resize, thread);
    if (!resized) return resized;
    if (!resized->HasGrid()) return zta::UnexpectedError("could not filter sdf volume");
    source = *resized;
  }
  settings.SetInt32(SDFFILTER_TYPE, op);
  settings.SetInt32(SDFFILTER_ITERATIONS, bc.GetInt32(VOLUMEFILTER_ITERATIONS, 1));
  // The panel offers the radius as the width of the smoothing stencils.
  settings.SetInt32(SDFFILTER_STENCILWIDTH, std::max<zta::Int32>(1, bc.GetInt32(VOLUMEFILTER_RADIUS, 1)));
  settings.SetInt32(SDFFILTER_ACCURACY, bc.GetInt32(VOLUMEFILTER_ACCURACY, 1));
  settings.SetFloat(SDFFILTER_OFFSET, bc.GetFloat(VOLUMEFILTER_OFFSET, 5.0));
  settings.SetFloat(SDFFILTER_STRENGTH, bc.GetFloat(VOLUMEFILTER_STRENGTH, 1.0));
  SetMask(settings, bc, matrix, SDFFILTER_MASKFIELDS, SDFFILTER_MASKSPACE);
  Result<Volume> out = RunOnVolume(kSdfFilterCommand, source, settings, thread);
  if (out && !out->HasGrid()) return zta::UnexpectedError("could not filter sdf volume");
  return out;
}

// Settings of the filter command for the neighbourhood and per-value operations
// that fog and vector filters share.
zta::BaseContainer ValueFilterSettings(const zta::BaseContainer& bc, zta::Int32 type, const zta::Matrix& matrix) {
  zta::BaseContainer settings;
  settings.SetInt32(FILTER_TYPE, type);
  settings.SetInt32(FILTER_RADIUS, std::max<zta::Int32>(1, bc.GetInt32(VOLUMEFILTER_ITERATIONS_FOG, 1)));
  settings.SetInt32(FILTER_ITERATIONS, std::max<zta::Int32>(1, bc.GetInt32(VOLUMEFILTER_ITERATIONS, 1)));
  settings.SetFloat(FILTER_STRENGTH, bc.GetFloat(VOLUMEFILTER_STRENGTH, 1.0));
  SetMask(settings, bc, matrix, FILTER_MASKFIELDS, FILTER_MASKSPACE);
  return settings;
}

// The multiply operation takes its factor where the others take their
// strength; the layer's strength fades the factor instead, which gives the
// same values as fading the product.
double FadedFactor(const zta::BaseContainer& bc, double factor) {
  return 1.0 + bc.GetFloat(VOLUMEFILTER_STRENGTH, 1.0) * (factor - 1.0);
}

Result<Volume> FilterFog(const zta::BaseContainer& bc, const Volume& volume, const zta::Matrix& matrix,
                         const zta::ThreadRef& thread) {
  const zta::Int32 op = bc.GetInt32(VOLUMEFILTER_FOGTYPE, 1);
  zta::BaseContainer settings = ValueFilterSettings(bc, op, matrix);
  settings.SetFloat(FILTER_OLDMIN, bc.GetFloat(VOLUMEFILTER_REMAP_OLDMIN, 0.0));
  settings.SetFloat(FILTER_OLDMAX, bc.GetFloat(VOLUMEFILTER_REMAP_OLDMAX, 1.0));
  settings.SetFloat(FILTER_NEWMIN, bc.GetFloat(VOLUMEFILTER_REMAP_NEWMIN, 0.0));
  settings.SetFloat(FILTER_NEWMAX, bc.GetFloat(VOLUMEFILTER_REMAP_NEWMAX, 1.0));
  if (FILTERTYPE(op) == FILTERTYPE::ADD) settings.SetFloat(FILTER_OFFSET, bc.GetFloat(VOLUMEFILTER_FOG_ADD, 0.1));
  if (FILTERTYPE(op) == FILTERTYPE::MULTIPLY)
    settings.SetFloat(FILTER_STRENGTH, FadedFactor(bc, bc.GetFloat(VOLUMEFILTER_FOG_MULTIPLY, 2.0)));
  if (FILTERTYPE(op) == FILTERTYPE::CURVEREMAP) {
    if (auto curve = bc.GetCustomDataTyped<zta::SplineData>(VOLUMEFILTER_CURVE)) settings.SetCustomData(FILTER_CURVE, curve);
  }
  if (FILTERTYPE(op) == FILTERTYPE::INVERT) {
    // The centre is given in values, or, relative to the range, as a fraction
    // of the way from the smallest value to the largest.
    const double amount = bc.GetFloat(VOLUMEFILTER_RESHAPE_AMOUNT, 0.5);
    double centre = amount;
    if (bc.GetBool(VOLUMEFILTER_RESHAPE_NORMALIZE)) {
      const ValueRange range = volume.GetMinMaxValues(false);
      if (range.min <= range.max) centre = range.min + amount * (range.max - range.min);
    }
    settings.SetFloat(FILTER_INVERTCENTER, centre);
  }
  Result<Volume> out = RunOnVolume(kFilterCommand, volume, settings, thread);
  if (out && !out->HasGrid()) return zta::UnexpectedError("could not filter volume");
  return out;
}

Result<Volume> FilterVector(const zta::BaseContainer& bc, const Volume& volume, const zta::Matrix& matrix,
                            const zta::ThreadRef& thread) {
  Result<Volume> out = Volume();
  switch (VECTORFILTERTYPE(bc.GetInt32(VOLUMEFILTER_VECTORTYPE, 1))) {
    case VECTORFILTERTYPE::ROTATE: {
      zta::Vector axis = bc.GetVector(VOLUMEFILTER_AXIS, zta::Vector(0, 1, 0));
      // In object space the axis turns with the volume's placement.
      if (bc.GetInt32(VOLUMEFILTER_ROTATE_SPACE) == 1) axis = matrix.TransformVector(axis);
      out = VolumeToolsInterface::RotateVectorVolume(volume, axis, bc.GetFloat(VOLUMEFILTER_ANGLE, 3.141592653589793), thread,
                                                     nullptr);
      break;
    }
    case VECTORFILTERTYPE::CURL: out = VolumeToolsInterface::CreateCurlVolume(volume, thread); break;
    case VECTORFILTERTYPE::NORMALIZE: out = VolumeToolsInterface::NormalizeVectorVolume(volume, thread); break;
    case VECTORFILTERTYPE::GAUSSIAN:
    case VECTORFILTERTYPE::MEANVALUE:
    case VECTORFILTERTYPE::MEDIANVALUE:
      out = RunOnVolume(kFilterCommand, volume,
                        ValueFilterSettings(bc, bc.GetInt32(VOLUMEFILTER_VECTORTYPE, 1), matrix), thread);
      break;
    case VECTORFILTERTYPE::INVERT: {
      zta::BaseContainer settings = ValueFilterSettings(bc, zta::Int32(FILTERTYPE::INVERT), matrix);
      settings.SetFloat(FILTER_INVERTCENTER, 0.0);
      out = RunOnVolume(kFilterCommand, volume, settings, thread);
      break;
    }
    case VECTORFILTERTYPE::SCALE: {
      zta::BaseContainer settings = ValueFilterSettings(bc, zta::Int32(FILTERTYPE::MULTIPLY), matrix);
      settings.SetFloat(FILTER_STRENGTH, FadedFactor(bc, bc.GetFloat(VOLUMEFILTER_VECTOR_SCALE, 1.0)));
      out = RunOnVolume(kFilterCommand, volume, settings, thread);
      break;
    }
    default: return volume;
  }
  if (!out) return out;
  if (!out->HasGrid()) return zta::UnexpectedError("could not filter volume");
  return out;
}

}  // namespace

std::unique_ptr<zta::NodeData> VolumeFilter::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeFilter());
}

bool VolumeFilter::Register() {
  if (!zta::RegisterObjectPlugin(ID_VOLUMEFILTER, Text(kNameResource), kInfoFlags, &VolumeFilter::Alloc,
                                 "ovolumefilter", kDiskLevel))
    return false;
  bool all = true;
  for (const CreateVolumeFilterCommand::Kind& k : CreateVolumeFilterCommand::Kinds())
    all = zta::RegisterCommandPlugin(k.id, Text(k.nameResource), 0,
                                     std::make_shared<CreateVolumeFilterCommand>(k.volumeType, k.operation)) &&
          all;
  return all;
}

bool VolumeFilter::InitNode(zta::GeListNode* node) {
  auto* op = static_cast<zta::BaseObject*>(node);
  if (!op) return false;
  zta::BaseContainer* bc = op->GetDataInstance();
  if (zta::BaseContainer* host = bc->GetContainerInstance(VOLUMEOBJECT_HOSTFLAGS)) host->SetBool(1, true);
  if (!bc->GetCustomData(VOLUMEFILTER_CURVE, zta::SplineData::kCustomTypeId))
    bc->SetCustomData(VOLUMEFILTER_CURVE, zta::SplineData::MakeLinear());
  if (!bc->GetCustomData(VOLUMEFILTER_FIELDS, zta::FieldList::kCustomTypeId))
    bc->SetCustomData(VOLUMEFILTER_FIELDS, std::make_shared<zta::FieldList>());
  return true;
}

bool VolumeFilter::DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) {
  auto* op = static_cast<zta::BaseObject*>(node);
  if (!op || !description || !description->LoadDescription(ID_VOLUMEFILTER)) return false;
  const zta::BaseContainer& bc = *op->GetDataInstance();
  constexpr zta::Int32 kOptional[] = {
      VOLUMEFILTER_SDFTYPE,       VOLUMEFILTER_FOGTYPE,        VOLUMEFILTER_VECTORTYPE,     VOLUMEFILTER_RADIUS,
      VOLUMEFILTER_ITERATIONS_FOG, VOLUMEFILTER_ITERATIONS,    VOLUMEFILTER_ACCURACY,       VOLUMEFILTER_OFFSET,
      VOLUMEFILTER_REMAP_OLDMIN,  VOLUMEFILTER_REMAP_OLDMAX,   VOLUMEFILTER_REMAP_NEWMIN,   VOLUMEFILTER_REMAP_NEWMAX,
      VOLUMEFILTER_CURVE,         VOLUMEFILTER_VECTOR_SCALE,   VOLUMEFILTER_AXIS,           VOLUMEFILTER_ANGLE,
      VOLUMEFILTER_ROTATE_SPACE,  VOLUMEFILTER_FOG_ADD,        VOLUMEFILTER_FOG_MULTIPLY,   VOLUMEFILTER_RESHAPE_AMOUNT,
      VOLUMEFILTER_RESHAPE_NORMALIZE, VOLUMEFILTER_FIELD_MODE};
  for (zta::Int32 id : kOptional) description->Hide(zta::DescID(id));
  std::vector<zta::Int32> shown;
  switch (bc.GetInt32(VOLUMEFILTER_VOLUMETYPE)) {
    case VOLUMEFILTER_TYPE_SDF:
      shown.push_back(VOLUMEFILTER_SDFTYPE);
      switch (bc.GetInt32(VOLUMEFILTER_SDFTYPE, 1)) {
        case 1: case 4: case 5: shown.insert(shown.end(), {VOLUMEFILTER_ITERATIONS, VOLUMEFILTER_RADIUS}); break;
        case 2: case 3: case 9: case 10:
          shown.insert(shown.end(), {VOLUMEFILTER_OFFSET, VOLUMEFILTER_ITERATIONS, VOLUMEFILTER_FIELD_MODE});
          break;
        case 6: case 7: shown.insert(shown.end(), {VOLUMEFILTER_RADIUS, VOLUMEFILTER_ITERATIONS}); break;
        default: break;
      }
      break;
    case VOLUMEFILTER_TYPE_FOG:
      shown.push_back(VOLUMEFILTER_FOGTYPE);
      switch (bc.GetInt32(VOLUMEFILTER_FOGTYPE, 1)) {
        case 1: case 2: case 3:
          shown.insert(shown.end(), {VOLUMEFILTER_ITERATIONS_FOG, VOLUMEFILTER_ACCURACY, VOLUMEFILTER_ITERATIONS});
          break;
        case 4: shown.push_back(VOLUMEFILTER_FOG_ADD); break;
        case 5:
          shown.insert(shown.end(), {VOLUMEFILTER_REMAP_OLDMIN, VOLUMEFILTER_REMAP_OLDMAX, VOLUMEFILTER_REMAP_NEWMIN,
                                     VOLUMEFILTER_REMAP_NEWMAX});
          break;
        case 6: shown.push_back(VOLUMEFILTER_CURVE); break;
        case 7: shown.push_back(VOLUMEFILTER_FOG_MULTIPLY); break;
        case 9: shown.insert(shown.end(), {VOLUMEFILTER_RESHAPE_AMOUNT, VOLUMEFILTER_RESHAPE_NORMALIZE}); break;
        default: break;
      }
      break;
    case VOLUMEFILTER_TYPE_VECTOR:
      shown.push_back(VOLUMEFILTER_VECTORTYPE);
      switch (bc.GetInt32(VOLUMEFILTER_VECTORTYPE, 1)) {
        case 1: case 2: case 3:
          shown.insert(shown.end(), {VOLUMEFILTER_ITERATIONS_FOG, VOLUMEFILTER_ACCURACY, VOLUMEFILTER_ITERATIONS});
          break;
        case 7: shown.push_back(VOLUMEFILTER_VECTOR_SCALE); break;
        case 8: shown.insert(shown.end(), {VOLUMEFILTER_ROTATE_SPACE, VOLUMEFILTER_AXIS, VOLUMEFILTER_ANGLE}); break;
        default: break;
      }
      break;
    default: break;
  }
  for (zta::Int32 id : shown) description->Hide(zta::DescID(id), false);
  flags |= zta::DESCFLAGS_DESC_LOADED;
  return true;
}

void VolumeFilter::GetObjectBounds(zta::BaseObject*, zta::Vector* mp, zta::Vector* rad) {
  if (mp) *mp = zta::Vector();
  if (rad) *rad = zta::Vector();
}

bool VolumeFilter::ModifyObject(zta::BaseObject* mod, zta::BaseDocument* doc, zta::BaseObject* op, const zta::Matrix&,
                                const zta::Matrix&, zta::Float, zta::Int32, zta::ZTAThread* thread) {
  if (!mod || !op || op->GetType() != ID_VOLUMEOBJECT) return true;
  // In a builder's list the builder runs the filter itself, on its own volumes.
  if (const zta::BaseObject* parent = mod->GetUp(); parent && parent->GetType() == kVolumeBuilderType) return true;
  const bool showProgress = zta::GetHostMode() != zta::HOSTMODE_COMMANDLINE && zta::GetHostMode() != zta::HOSTMODE_LIBRARY;
  if (showProgress) zta::StatusSetText(Text(kFilteringResource) + " " + op->GetName() + "...");
  // The filter works in the grid's own frame; the object keeps its placement.
  const zta::Matrix ml = op->GetMl();
  op->SetMl(zta::Matrix());
  const Result<void> done = Filter(mod, op, doc, thread, zta::Matrix());
  op->SetMl(ml);
  if (showProgress) zta::StatusClear();
  if (!done) return false;
  op->SetDirty(zta::DIRTYFLAGS_DATA);
  return true;
}

void VolumeFilter::CheckDirtyState(zta::BaseObject* op, zta::BaseDocument* doc) {
  if (!op) return;
  auto fields = op->GetDataInstance()->GetCustomDataTyped<zta::FieldList>(VOLUMEFILTER_FIELDS);
  const zta::UInt32 dirty = fields ? fields->GetDirty(doc, 0) : 0;
  if (dirty == fieldDirty_) return;
  fieldDirty_ = dirty;
  op->SetDirty(zta::DIRTYFLAGS_DATA);
}

zta::Result<void> VolumeFilter::Filter(zta::BaseObject* modifier, zta::BaseObject* object, zta::BaseDocument*,
                                       zta::ZTAThread* thread, const zta::Matrix& matrix) {
  if (!modifier || !object || object->GetType() != ID_VOLUMEOBJECT) return {};
  if (!modifier->GetDeformMode()) return {};
  auto* data = object->GetNodeData<VolumeObjectData>();
  if (!data) return zta::IllegalArgumentError("object needs to be a volume object");
  const zta::BaseContainer& bc = *modifier->GetDataInstance();
  const zta::Int32 filterType = bc.GetInt32(VOLUMEFILTER_VOLUMETYPE, -1);
  const Volume volume = data->GetVolume();
  const zta::ThreadRef ref = Borrow(thread);
  const GRIDTYPE type = volume.GetGridType();
  const GRIDCLASS cls = volume.GetGridClass();
  const bool scalar = type == GRIDTYPE::FLOAT || type == GRIDTYPE::DOUBLE;
  const bool vector = type == GRIDTYPE::VEC3S || type == GRIDTYPE::VEC3D || type == GRIDTYPE::VEC3I;
  const double strength = bc.GetFloat(VOLUMEFILTER_STRENGTH, 1.0);

  Result<Volume> out = Volume();
  if (scalar && cls == GRIDCLASS::SDF && filterType == VOLUMEFILTER_TYPE_SDF) {
    if (strength == 0.0) return {};
    out = FilterSdf(bc, volume, matrix, ref);
  } else if (scalar && (cls == GRIDCLASS::FOG || cls == GRIDCLASS::UNKNOWN) && filterType == VOLUMEFILTER_TYPE_FOG) {
    if (strength == 0.0) return {};
    out = FilterFog(bc, volume, matrix, ref);
  } else if (vector && filterType == VOLUMEFILTER_TYPE_VECTOR) {
    if (!volume.HasGrid()) return zta::IllegalArgumentError("volume object needs to have a grid attached");
    out = FilterVector(bc, volume, matrix, ref);
  } else {
    return {};
  }
  if (!out) return out.GetError();
  data->SetVolume(object, *out);
  return {};
}

const std::vector<CreateVolumeFilterCommand::Kind>& CreateVolumeFilterCommand::Kinds() {
  // The ids reach menus and layouts: they never change.
  static const std::vector<Kind> kinds = {
      {1040113, VOLUMEFILTER_TYPE_SDF, zta::Int32(SDFFILTERTYPE::GAUSSIAN), 10072},
      {1040114, VOLUMEFILTER_TYPE_SDF, zta::Int32(SDFFILTERTYPE::MEANCURVATURE), 10073},
      {465002103, VOLUMEFILTER_TYPE_SDF, zta::Int32(SDFFILTERTYPE::DILATE), 10074},
      {1040737, VOLUMEFILTER_TYPE_FOG, zta::Int32(FILTERTYPE::GAUSSIAN), 10075},
      {465002105, VOLUMEFILTER_TYPE_FOG, zta::Int32(FILTERTYPE::MEANVALUE), 10076},
      {465002107, VOLUMEFILTER_TYPE_FOG, zta::Int32(FILTERTYPE::MULTIPLY), 10077},
      {1040738, VOLUMEFILTER_TYPE_FOG, zta::Int32(FILTERTYPE::REMAP), 10078},
      {465002109, VOLUMEFILTER_TYPE_FOG, zta::Int32(FILTERTYPE::CURVEREMAP), 10079},
      {465002111, VOLUMEFILTER_TYPE_FOG, zta::Int32(FILTERTYPE::INVERT), 10080},
      {465002113, VOLUMEFILTER_TYPE_VECTOR, zta::Int32(VECTORFILTERTYPE::GAUSSIAN), 10081},
      {465002115, VOLUMEFILTER_TYPE_VECTOR, zta::Int32(VECTORFILTERTYPE::MEANVALUE), 10082},
      {465002117, VOLUMEFILTER_TYPE_VECTOR, zta::Int32(VECTORFILTERTYPE::CURL), 10083},
      {465002119, VOLUMEFILTER_TYPE_VECTOR, zta::Int32(VECTORFILTERTYPE::NORMALIZE), 10084},
      {465002121, VOLUMEFILTER_TYPE_VECTOR, zta::Int32(VECTORFILTERTYPE::SCALE), 10085},
      {465002123, VOLUMEFILTER_TYPE_VECTOR, zta::Int32(VECTORFILTERTYPE::ROTATE), 10086},
  };
  return kinds;
}

zta::Int32 CreateVolumeFilterCommand::GetState(zta::BaseDocument* doc) {
  const zta::BaseObject* active = doc ? doc->GetActiveObject() : nullptr;
  return active && active->GetType() == ID_VOLUMEBUILDER ? 0x40000000 : 0;
}

zta::BaseObject* CreateVolumeFilterCommand::AddTo(zta::BaseObject* builder) const {
  VolumeBuilderData* data = builder && builder->GetType() == ID_VOLUMEBUILDER
                                ? builder->GetNodeData<VolumeBuilderData>()
                                : nullptr;
  if (!data) return nullptr;
  std::unique_ptr<zta::BaseObject> filter = zta::AllocObject(ID_VOLUMEFILTER);
  if (!filter) return nullptr;
  zta::BaseContainer* bc = filter->GetDataInstance();
  bc->SetInt32(VOLUMEFILTER_VOLUMETYPE, volumeType_);
  const zta::Int32 typeKey = volumeType_ == VOLUMEFILTER_TYPE_SDF   ? VOLUMEFILTER_SDFTYPE
                             : volumeType_ == VOLUMEFILTER_TYPE_FOG ? VOLUMEFILTER_FOGTYPE
                                                                    : VOLUMEFILTER_VECTORTYPE;
  bc->SetInt32(typeKey, operation_);
  for (const Kind& k : Kinds())
    if (k.volumeType == volumeType_ && k.operation == operation_) filter->SetName(Text(k.nameResource));
  zta::BaseObject* made = filter.release();
  // The builder takes the filter into its list of filters and gives it a row.
  if (!data->AddLayer(builder, made, nullptr, nullptr, false, false, true)) {
    delete made;
    return nullptr;
  }
  return made;
}

bool CreateVolumeFilterCommand::Execute(zta::BaseDocument* doc) {
  zta::BaseObject* builder = doc ? doc->GetActiveObject() : nullptr;
  if (!builder || builder->GetType() != ID_VOLUMEBUILDER) return false;
  doc->StartUndo();
  doc->AddUndo(zta::UNDOTYPE::CHANGE, builder);
  zta::BaseObject* filter = AddTo(builder);
  doc->EndUndo();
  if (!filter) return false;
  builder->SetDirty(zta::DIRTYFLAGS_DATA);
  doc->EventAdd();
  return true;
}

}  // namespace zelmar
