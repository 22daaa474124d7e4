// A Volume Builder of ten meshes (the project's knot and nine primitives, each
// about 300k active voxels): a full rebuild, against the rebuild after one
// input moved, which converts that input alone and folds the list again.
// Target: the second at most 0.15 of the first. Peak memory is reported as a
// counter (the process's peak resident size after the run).
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cmath>
#include <memory>
#include <string>

#include "host/modeling/meshio.h"
#include "host/objects/polygonobject.h"
#include "host/objects/primitives.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/itemtree.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "zelmar/volumecommands.h"
#include "bench/module_main.h"

namespace {

constexpr int kInputs = 10;
constexpr double kVoxel = 1.0;
constexpr double kTargetVoxels = 300000.0;

double PeakMiB() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_maxrss) / 1024.0;
}

// Active voxels of a mesh converted at the builder's voxel size and bands.
double ActiveVoxels(const zta::BaseObject& mesh) {
  auto made = zta::CreateCommandData(zelmar::kVolumeCommandDataClass);
  auto& data = static_cast<zelmar::VolumeCommandData&>(**made);
  data.GetSettings().SetFloat(zelmar::MESHTOVOLUME_GRIDSIZE, kVoxel);
  data.GetSettings().SetInt32(zelmar::MESHTOVOLUME_EXTERIORBAND, 2);
  data.GetSettings().SetInt32(zelmar::MESHTOVOLUME_INTERIORBAND, 2);
  data.AddInput(&mesh);
  if (!zta::InvokeCommand(zelmar::kMeshToVolumeCommand, data) || data.GetLegacyDataCount() == 0) return 0.0;
  return double(data.GetLegacyData(0)->volume.GetActiveVoxelCount());
}

// A mesh scaled so that its shell holds about kTargetVoxels voxels.
std::unique_ptr<zta::BaseObject> Scaled(std::unique_ptr<zta::PolygonObject> mesh) {
  for (int round = 0; round < 3; ++round) {
    const double n = ActiveVoxels(*mesh);
    if (n <= 0.0) break;
    const double f = std::sqrt(kTargetVoxels / n);
    if (std::abs(f - 1.0) < 0.02) break;
    auto* points = mesh->GetPointW();
    for (zta::Int32 i = 0; i < mesh->GetPointCount(); ++i) points[i] = points[i] * f;
  }
  return std::unique_ptr<zta::BaseObject>(mesh.release());
}

struct Scene {
  std::unique_ptr<zta::BaseDocument> doc;
  zta::BaseObject* builder = nullptr;
  zta::BaseObject* moved = nullptr;
};

Scene& GetScene() {
  static Scene s = [] {
    Scene s;
    s.doc = zta::AllocDocument();
    auto b = zta::AllocObject(zelmar::ID_VOLUMEBUILDER);
    s.builder = b.release();
    s.builder->GetDataInstance()->SetFloat(zelmar::VOLUMEBUILDER_VOXELSIZE, kVoxel);
    s.doc->InsertObject(s.builder);
    auto* data = s.builder->GetNodeData<zelmar::VolumeBuilderData>();
    zta::ItemTreeItem* last = nullptr;
    for (int i = 0; i < kInputs; ++i) {
      std::unique_ptr<zta::PolygonObject> mesh;
      if (i == 0) {
        auto knot = zta::ReadMeshFile(std::string(ZV_BIN_DIR) + "/../../examples/knot.obj", nullptr);
        if (knot) mesh = std::move(*knot);
      } else if (i % 2) {
        mesh = zta::MakeSpherePolygons(50.0, 48, zta::PRIM_SPHERE_TYPE_STANDARD);
      } else {
        mesh = zta::MakeCubePolygons(zta::Vector(80, 80, 80), 4, 4, 4);
      }
      if (!mesh) std::abort();
      std::unique_ptr<zta::BaseObject> input = Scaled(std::move(mesh));
      // Side by side, overlapping a little, so that the union does real work.
      input->SetMl(zta::Matrix{zta::Vector(i * 140.0, 0, 0), {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
      input->SetName("input " + std::to_string(i));
      zta::BaseObject* raw = input.release();
      raw->InsertUnderLast(s.builder);
      last = data->AddLayer(s.builder, raw, nullptr, last, true, false, false);
      if (i == kInputs / 2) s.moved = raw;
    }
    zta::ExecutePasses(s.doc.get(), nullptr);
    return s;
  }();
  return s;
}

zta::Int64 ResultVoxels(const Scene& s) {
  const zta::BaseObject* cache = s.builder->GetCache();
  return cache ? zelmar::VolumeObjectData::GetVolume(cache).GetActiveVoxelCount() : 0;
}

// Everything is converted again: the voxel size moves by a hair, which the
// builder takes as a change of its settings.
void FullRebuild(benchmark::State& state) {
  Scene& s = GetScene();
  zta::BaseContainer* bc = s.builder->GetDataInstance();
  int flip = 0;
  for (auto _ : state) {
    bc->SetFloat(zelmar::VOLUMEBUILDER_VOXELSIZE, (++flip & 1) ? kVoxel * (1.0 + 1e-9) : kVoxel);
    if (!zta::ExecutePasses(s.doc.get(), nullptr)) state.SkipWithError("the pass failed");
  }
  const auto& stats = s.builder->GetNodeData<zelmar::VolumeBuilderData>()->GetStatistics();
  state.counters["result_voxels"] = double(ResultVoxels(s));
  state.counters["conversions"] = double(stats.conversions);
  state.counters["peak_rss_mib"] = PeakMiB();
}

// One input moves by a few voxels and back.
void MoveOneRebuild(benchmark::State& state) {
  Scene& s = GetScene();
  const zta::Matrix home = s.moved->GetMl();
  const auto& stats = s.builder->GetNodeData<zelmar::VolumeBuilderData>()->GetStatistics();
  const zta::Int64 folds = stats.folds, conversions = stats.conversions;
  int flip = 0;
  for (auto _ : state) {
    zta::Matrix m = home;
    if (++flip & 1) m.off.y += 3.0 * kVoxel;
    s.moved->SetMl(m);
    if (!zta::ExecutePasses(s.doc.get(), nullptr)) state.SkipWithError("the pass failed");
  }
  state.counters["result_voxels"] = double(ResultVoxels(s));
  // Joins and conversions per rebuild.
  state.counters["joins"] = double(stats.folds - folds) / double(state.iterations());
  state.counters["conversions"] = double(stats.conversions - conversions) / double(state.iterations());
  state.counters["peak_rss_mib"] = PeakMiB();
}

// The conversion of the moved input alone, as the builder makes it: what a
// rebuild after a move costs at the least.
void ConvertOneInput(benchmark::State& state) {
  Scene& s = GetScene();
  auto clone = s.moved->GetClone(zta::COPYFLAGS_NO_HIERARCHY);
  auto* mesh = static_cast<zta::BaseObject*>(clone.get());
  mesh->SetMl(s.moved->GetMg());
  for (auto _ : state) {
    auto made = zta::CreateCommandData(zelmar::kVolumeCommandDataClass);
    auto& data = static_cast<zelmar::VolumeCommandData&>(**made);
    data.GetSettings().SetFloat(zelmar::MESHTOVOLUME_GRIDSIZE, kVoxel);
    data.GetSettings().SetInt32(zelmar::MESHTOVOLUME_EXTERIORBAND, 2);
    data.GetSettings().SetInt32(zelmar::MESHTOVOLUME_INTERIORBAND, 2);
    data.GetSettings().SetMatrix(zelmar::MESHTOVOLUME_TRANSFORM, zta::MatrixScale(zta::Vector(kVoxel, kVoxel, kVoxel)));
    data.AddInput(mesh);
    if (!zta::InvokeCommand(zelmar::kMeshToVolumeCommand, data)) state.SkipWithError("the conversion failed");
  }
  state.counters["peak_rss_mib"] = PeakMiB();
}

BENCHMARK(FullRebuild)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(MoveOneRebuild)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(ConvertOneInput)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

int main(int argc, char** argv) { return zvbench::RunWithModule(argc, argv, [] { GetScene().doc.reset(); }); }
