// MeshToVolume and VolumeToMesh against the OpenVDB calls they wrap, on the same data:
// MeshToVolume voxelises a sphere meshed at voxel size 0.008 (about 200k quads) at 0.01;
// VolumeToMesh meshes a sphere level set of voxel size 0.004 (about 800k quads).
#include <benchmark/benchmark.h>
#include <openvdb/tools/LevelSetSphere.h>
#include <openvdb/tools/MeshToVolume.h>
#include <openvdb/tools/VolumeToMesh.h>

#include "host/objects/polygonobject.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace {

constexpr double kVoxel = 0.01;

struct Data {
  std::vector<openvdb::Vec3s> points;
  std::vector<openvdb::Vec3I> triangles;
  std::vector<openvdb::Vec4I> quads;
  // The same mesh as the tool takes it.
  std::vector<zta::Vector> vertices;
  std::vector<zelmar::VolumeConversionPolygon> polygons;
  openvdb::FloatGrid::Ptr grid;
  zelmar::Volume volume;
};

const Data& GetData() {
  static const Data data = [] {
    Data d;
    auto sphere = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(0.1f, 0.2f, 0.3f), 0.008f);
    openvdb::tools::volumeToMesh(*sphere, d.points, d.triangles, d.quads, 0.0, 0.0);
    for (const auto& p : d.points) d.vertices.emplace_back(p[0], p[1], p[2]);
    for (const auto& q : d.quads) d.polygons.push_back({q[0], q[1], q[2], q[3]});
    for (const auto& t : d.triangles) d.polygons.push_back({t[0], t[1], t[2], zelmar::VolumeConversionPolygon::TRIANGLE});
    d.grid = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(0.1f, 0.2f, 0.3f), 0.004f);
    d.volume = *zelmar::MakeVolume(d.grid);
    return d;
  }();
  return data;
}

void MeshToVolumeTool(benchmark::State& state) {
  const Data& d = GetData();
  for (auto _ : state) {
    // The tool writes the vertices in place, so each run gets a fresh copy, as a caller would give it.
    std::vector<zta::Vector> vertices = d.vertices;
    auto v = zelmar::VolumeToolsInterface::MeshToVolume(vertices, d.polygons, zta::Matrix(), kVoxel, 3, 3, nullptr,
                                                        zelmar::POLYGONCONVERSIONFLAGS::NONE, nullptr);
    benchmark::DoNotOptimize(v);
  }
}

void MeshToVolumePlain(benchmark::State& state) {
  const Data& d = GetData();
  const auto xform = openvdb::math::Transform::createLinearTransform(kVoxel);
  for (auto _ : state) {
    auto g = openvdb::tools::meshToLevelSet<openvdb::FloatGrid>(*xform, d.points, d.triangles, d.quads, 3.0f);
    benchmark::DoNotOptimize(g);
  }
}

void VolumeToMeshTool(benchmark::State& state) {
  const Data& d = GetData();
  for (auto _ : state) {
    auto op = zelmar::VolumeToolsInterface::VolumeToMesh(d.volume, 0.0, double(state.range(0)) / 100.0);
    benchmark::DoNotOptimize(op);
  }
}

void VolumeToMeshPlain(benchmark::State& state) {
  const Data& d = GetData();
  for (auto _ : state) {
    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec3I> triangles;
    std::vector<openvdb::Vec4I> quads;
    openvdb::tools::volumeToMesh(*d.grid, points, triangles, quads, 0.0, double(state.range(0)) / 100.0);
    benchmark::DoNotOptimize(points);
  }
}

BENCHMARK(MeshToVolumeTool)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MeshToVolumePlain)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(VolumeToMeshTool)->Arg(0)->Arg(50)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(VolumeToMeshPlain)->Arg(0)->Arg(50)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (!zelmar::StartModuleStandalone(ZV_BIN_DIR).IsOk()) return 1;
  benchmark::RunSpecifiedBenchmarks();
  zelmar::StopModuleStandalone();
  return 0;
}
