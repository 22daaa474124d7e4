// Loading and saving a level set through the volume tools, against OpenVDB's
// plain io::File read and write of the same grid.
#include <benchmark/benchmark.h>
#include <openvdb/io/File.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <filesystem>

#include "modules/volumes/source/main.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"
#include "bench/module_main.h"

namespace {

const std::string& Dir() {
  static const std::string d = [] {
    auto p = std::filesystem::temp_directory_path() / "zv_io_bench";
    std::filesystem::create_directories(p);
    return p.string();
  }();
  return d;
}

openvdb::FloatGrid::Ptr& Sphere() {
  // About five million active voxels.
  static openvdb::FloatGrid::Ptr g = [] {
    auto grid = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(0.1f, 0.2f, 0.3f),
                                                                        0.004f, 3.0f);
    grid->setName("sphere");
    openvdb::io::File(Dir() + "/plain.vdb").write({grid});
    return grid;
  }();
  return g;
}

void PlainRead(benchmark::State& state) {
  Sphere();
  for (auto _ : state) {
    openvdb::io::File file(Dir() + "/plain.vdb");
    file.open(false);
    auto grid = file.readGrid("sphere");
    file.close();
    benchmark::DoNotOptimize(grid);
  }
  state.counters["voxels"] = double(Sphere()->activeVoxelCount());
}

void ToolsLoad(benchmark::State& state) {
  Sphere();
  const zta::Url url = zta::Url::FromSystemPath(Dir() + "/plain.vdb");
  for (auto _ : state) {
    auto volume = zelmar::Volume::Create();
    auto r = zelmar::VolumeToolsInterface::LoadGridIntoVolume(url, 1.0, 0, *volume, nullptr);
    if (!r) state.SkipWithError(r.GetError().GetMessage().c_str());
    benchmark::DoNotOptimize(volume);
  }
}

void PlainWrite(benchmark::State& state) {
  for (auto _ : state) {
    openvdb::io::File file(Dir() + "/plain_out.vdb");
    file.write({Sphere()});
    file.close();
  }
}

void ToolsSave(benchmark::State& state) {
  auto volume = zelmar::MakeVolume(Sphere()->deepCopy());
  const zta::Url url = zta::Url::FromSystemPath(Dir() + "/tools_out.vdb");
  for (auto _ : state) {
    auto r = zelmar::VolumeToolsInterface::SaveVDBFile(url, 1.0, {*volume}, {});
    if (!r) state.SkipWithError(r.GetError().GetMessage().c_str());
  }
}

}  // namespace

BENCHMARK(PlainRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ToolsLoad)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ToolsSave)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) { return zvbench::RunWithModule(argc, argv); }
