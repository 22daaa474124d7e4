// libFuzzer target: the volume commands' settings. Each input picks a command,
// writes settings into its data (values of the setting's type and of other
// types, in and far out of range, links to objects of every kind, field lists
// and curves) and runs it on small inputs of the kinds commands take. A run
// gives results or one error line, never a crash, a leak or undefined
// behaviour, and leaves its inputs as they were. Work that is slow only
// because it was asked for (thousands of iterations, voxels far smaller than
// the inputs) stays outside what the settings can ask. Built and run by
// "./zv fuzz commands [SECONDS]".
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/objects/fieldobjects.h"
#include "host/objects/particles.h"
#include "host/objects/polygonobject.h"
#include "host/objects/splineobject.h"
#include "modules/volumes/source/main.h"
#include "tests/fuzz/fuzzfile.h"
#include "zelmar/memorylimit.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumetools.h"

using zelmar::COMMANDVALUETYPE;
using zelmar::Volume;
using zelmar::VolumeToolsInterface;
using zta::Vector;

namespace {

// What an input object looks like from outside: its kind and, for a volume,
// its grid's identity and active voxels; for a polygon object its counts.
struct Snapshot {
  const void* grid = nullptr;
  zelmar::Int active = 0;
  zta::Int32 points = 0, polygons = 0;
  bool operator==(const Snapshot&) const = default;
};

struct Pool {
  std::vector<std::unique_ptr<zta::BaseObject>> objects;
  std::vector<Snapshot> before;
  std::shared_ptr<zta::FieldList> fields;
  std::shared_ptr<zta::SplineData> curve;
};

Pool* g_pool = nullptr;

Snapshot Take(const zta::BaseObject* op) {
  Snapshot s;
  if (op->GetType() == zta::HOST_TYPE_POLYGON) {
    const auto* poly = static_cast<const zta::PolygonObject*>(op);
    s.points = poly->GetPointCount();
    s.polygons = poly->GetPolygonCount();
    return s;
  }
  const Volume v = zelmar::GetObjectVolume(op);
  if (v.HasGrid()) {
    s.grid = v.GetImpl();
    s.active = v.GetActiveVoxelCount();
  }
  return s;
}

Volume Must(zta::Result<Volume> r) {
  if (!r) zvfuzz::Fail("an input could not be made", r.GetError().GetMessage());
  return *r;
}

void AddVolume(Pool& pool, const Volume& v) {
  auto op = zelmar::CreateVolumeObject(v);
  if (!op) zvfuzz::Fail("a volume object could not be made", op.GetError().GetMessage());
  pool.objects.push_back(std::move(*op));
}

// Inputs of every kind a command takes: level sets, fog, vectors, a mesh, a
// spline, particles, a field carrier, and an empty volume.
Pool* MakePool() {
  auto* pool = new Pool;
  const Volume sdf = Must(VolumeToolsInterface::CreateSphereVolume(1.0, Vector(0, 0, 0), 0.2, 3, nullptr, nullptr));
  const Volume other = Must(VolumeToolsInterface::CreateSphereVolume(0.6, Vector(0.5, 0.2, 0), 0.15, 3, nullptr, nullptr));
  AddVolume(*pool, sdf);
  AddVolume(*pool, other);
  AddVolume(*pool, Must(VolumeToolsInterface::ConvertSDFToFog(sdf, std::numeric_limits<double>::max())));
  AddVolume(*pool, Must(VolumeToolsInterface::CreateGradientVolume(sdf, nullptr)));
  AddVolume(*pool, *Volume::Create());
  auto cube = zta::PolygonObject::Alloc(8, 6);
  for (int i = 0; i < 8; ++i) cube->GetPointW()[i] = Vector(i & 1 ? 1 : 0, i & 2 ? 1 : 0, i & 4 ? 1 : 0);
  const zta::CPolygon faces[6] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  std::copy(faces, faces + 6, cube->GetPolygonW());
  pool->objects.push_back(std::move(cube));
  auto spline = zta::SplineObject::Alloc(3, zta::SPLINETYPE::LINEAR);
  spline->GetPointW()[0] = Vector(0, 0, 0);
  spline->GetPointW()[1] = Vector(1, 0.5, 0);
  spline->GetPointW()[2] = Vector(1.5, 0, 0.5);
  pool->objects.push_back(std::move(spline));
  auto group = zta::ParticleGroupObject::Alloc();
  if (!group->SetParticles({Vector(0, 0, 0), Vector(0.7, 0, 0), Vector(0, 0.4, 0.3)}, {0.3, 0.2, 0.5},
                           {Vector(), Vector(0, 1, 0), Vector(0.5, 0, 0)}))
    zvfuzz::Fail("particles could not be made", "");
  pool->objects.push_back(std::move(group));
  pool->fields = std::make_shared<zta::FieldList>();
  pool->fields->InsertLayer(std::make_unique<zta::SphericalFieldLayer>(0.8, 0.1));
  auto carrier = zta::FieldObject::Alloc();
  carrier->SetFieldList(*pool->fields);
  pool->objects.push_back(std::move(carrier));
  pool->curve = std::make_shared<zta::SplineData>();
  pool->curve->InsertKnot(0.0, 1.0, zta::CURVEINTERPOLATION::LINEAR);
  pool->curve->InsertKnot(1.0, 0.25, zta::CURVEINTERPOLATION::LINEAR);
  for (const auto& op : pool->objects) pool->before.push_back(Take(op.get()));
  return pool;
}

// Whole numbers a setting may meet: the usual ones, the edges of each enum,
// and the extremes of the type.
zta::Int32 PickInt(FuzzedDataProvider& in) {
  static const zta::Int32 kSpecial[] = {std::numeric_limits<zta::Int32>::min(), -1000000, -1, 0, 1, 2, 3, 4, 5, 6,
                                        7, 8, 12, 13, 20, 21, 64, 1000000, std::numeric_limits<zta::Int32>::max()};
  if (in.ConsumeBool()) return in.PickValueInArray(kSpecial);
  return in.ConsumeIntegralInRange<zta::Int32>(-8, 24);
}

double PickFloat(FuzzedDataProvider& in) {
  static const double kSpecial[] = {0.0, -0.0, -1.0, 0.05, 0.1, 0.25, 0.5, 1.0, 2.0, 1e-300, 5e-324, 1e300,
                                    std::numeric_limits<double>::max(), -std::numeric_limits<double>::max(),
                                    std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                    std::numeric_limits<double>::quiet_NaN()};
  if (in.ConsumeBool()) return in.PickValueInArray(kSpecial);
  return in.ConsumeFloatingPointInRange<double>(-4.0, 4.0);
}

Vector PickVector(FuzzedDataProvider& in) { return Vector(PickFloat(in), PickFloat(in), PickFloat(in)); }

zta::Matrix PickMatrix(FuzzedDataProvider& in) {
  switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: return zta::Matrix();
    case 1: return zta::MatrixScale(Vector(PickFloat(in))) * zta::MatrixMove(PickVector(in));
    case 2: return zta::Matrix{PickVector(in), PickVector(in), PickVector(in), PickVector(in)};
    default: return zta::Matrix{Vector(), Vector(1, 0, 0), Vector(0, 1, 0), Vector(0, 0, 0)};
  }
}

// Settings whose size is the work asked for: voxels of a size far below the
// inputs' (about a unit across), bands and stencils of thousands of voxels,
// radii and boxes of thousands of units. Valid requests for huge work are not
// what this target looks for; finite values beyond these bounds are brought
// back to them, while zero, negative and non-finite ones stay as they are.
bool IsSizeSetting(const std::string& name) { return name == "gridsize"; }
bool IsWorkInt(const std::string& name) {
  return name == "iterations" || name == "bandwidth" || name == "exteriorband" || name == "interiorband" ||
         name == "halfwidth" || name == "stencilwidth" || name == "radius";
}
bool IsWorkFloat(const std::string& name) {
  return name == "radius" || name == "size" || name == "offset" || name == "density" || name == "velocityscale" ||
         name == "interiordistance" || name == "boxmin" || name == "boxmax";
}
double Bounded(double v, double most) { return std::isfinite(v) ? std::clamp(v, -most, most) : v; }
template <typename T>
T BoundedWork(const std::string& name, T v) {
  return IsWorkInt(name) && std::isfinite(double(v)) ? std::min(v, T(name == "iterations" ? 4 : 12)) : v;
}

void SetValue(FuzzedDataProvider& in, const Pool& pool, const zelmar::VolumeCommandSetting& s,
              COMMANDVALUETYPE type, zta::BaseContainer& bc) {
  const std::string name = s.name;
  switch (type) {
    case COMMANDVALUETYPE::BOOL: bc.SetBool(s.key, in.ConsumeBool()); break;
    case COMMANDVALUETYPE::INT32: {
      zta::Int32 v = PickInt(in);
      bc.SetInt32(s.key, BoundedWork(name, v));
      break;
    }
    case COMMANDVALUETYPE::FLOAT: {
      double v = PickFloat(in);
      if (IsSizeSetting(name) && std::isfinite(v) && v > 0.0 && v < 0.1) v = 0.1;
      if (IsWorkFloat(name)) v = Bounded(v, name == "density" ? 20.0 : 2.0);
      // A whole-number setting given as a float is read as its whole number: the same bound.
      bc.SetFloat(s.key, BoundedWork(name, v));
      break;
    }
    case COMMANDVALUETYPE::VECTOR: {
      Vector v = PickVector(in);
      if (IsWorkFloat(name)) v = Vector(Bounded(v.x, 2.0), Bounded(v.y, 2.0), Bounded(v.z, 2.0));
      bc.SetVector(s.key, v);
      break;
    }
    case COMMANDVALUETYPE::MATRIX: {
      zta::Matrix m = PickMatrix(in);
      // A creation transform's axes are its voxels: as with sizes, not below a tenth.
      for (Vector* axis : {&m.v1, &m.v2, &m.v3})
        if (const double l = axis->GetLength(); std::isfinite(l) && l > 0.0 && l < 0.1) *axis = *axis * (0.1 / l);
      bc.SetMatrix(s.key, m);
      break;
    }
    case COMMANDVALUETYPE::LINK: {
      const size_t at = in.ConsumeIntegralInRange<size_t>(0, pool.objects.size());
      bc.SetLink(s.key, at < pool.objects.size() ? pool.objects[at].get() : nullptr);
      break;
    }
    case COMMANDVALUETYPE::FIELDLIST: bc.SetCustomData(s.key, pool.fields); break;
    case COMMANDVALUETYPE::SPLINEDATA: bc.SetCustomData(s.key, pool.curve); break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  auto started = zelmar::StartModuleStandalone(ZV_FUZZ_MODULE_DIR);
  if (!started.IsOk()) zvfuzz::Fail("the module did not start", started.GetError().GetMessage());
  g_pool = MakePool();
  // The fuzzer stops a run above 2 GiB: work that states its memory beforehand
  // (fields sampled over a box, a mirror) is held to a quarter of that.
  zelmar::MemoryLimitInterface::SetLimit(uint64_t(512) << 20);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const auto& infos = zelmar::GetVolumeCommandInfos();
  const zelmar::VolumeCommandInfo& info = infos[in.ConsumeIntegralInRange<size_t>(0, infos.size() - 1)];
  auto made = zta::CreateCommandData(zelmar::kVolumeCommandDataClass);
  if (!made) zvfuzz::Fail("no command data", made.GetError().GetMessage());
  zta::LegacyCommandDataInterface& commandData = **made;

  const int inputs = in.ConsumeIntegralInRange(0, 3);
  for (int i = 0; i < inputs; ++i)
    commandData.AddInput(g_pool->objects[in.ConsumeIntegralInRange<size_t>(0, g_pool->objects.size() - 1)].get());
  const int settings = in.ConsumeIntegralInRange(0, 6);
  for (int i = 0; i < settings && !info.settings.empty(); ++i) {
    const auto& s = info.settings[in.ConsumeIntegralInRange<size_t>(0, info.settings.size() - 1)];
    // Now and then a value of another type under the key, as a careless caller writes it.
    const COMMANDVALUETYPE type =
        in.ConsumeIntegralInRange(0, 7) == 0 ? COMMANDVALUETYPE(in.ConsumeIntegralInRange(0, 7)) : s.type;
    SetValue(in, *g_pool, s, type, commandData.GetSettings());
  }
  if (in.ConsumeBool()) {
    // Any key, a command's own among them, with a whole number.
    const zta::Int32 key = in.ConsumeIntegralInRange(-2, 40);
    zta::Int32 v = PickInt(in);
    for (const auto& s : info.settings)
      if (s.key == key) v = BoundedWork(s.name, v);
    commandData.GetSettings().SetInt32(key, v);
  }

  auto run = zta::InvokeCommand(info.id, commandData, nullptr);
  // Some failures carry only their source location (a memory exception, an
  // index past the end), so a message may be empty; never more than a line.
  if (!run && run.GetError().GetMessage().find('\n') != std::string::npos)
    zvfuzz::Fail("an error that is not one line", run.GetError().GetMessage());
  for (zta::Int32 i = 0; i < commandData.GetOutputCount(); ++i)
    if (!commandData.GetOutput(i)) zvfuzz::Fail("a command gave a null output", info.id);
  for (size_t i = 0; i < g_pool->objects.size(); ++i)
    if (!(Take(g_pool->objects[i].get()) == g_pool->before[i])) zvfuzz::Fail("a command changed its input", info.id);
  return 0;
}
