// A scene of 50 volume objects of about a million active voxels each, saved
// (the save hook writes each grid to its file in "vol") and loaded again,
// against writing and reading the same grids, one file each, with plain
// io::File. The scene adds bookkeeping, not work: target at most 1.1.
#include <benchmark/benchmark.h>
#include <openvdb/io/File.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/scenefile.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volume_impl.h"
#include "bench/module_main.h"

namespace {

namespace fs = std::filesystem;
constexpr int kObjects = 50;

struct Data {
  std::vector<openvdb::FloatGrid::Ptr> grids;
  fs::path dir;
};

const Data& GetData() {
  static const Data data = [] {
    Data d;
    // Radius 1 at voxel 1/115: about a million active voxels in a band of 3.
    for (int i = 0; i < kObjects; ++i) {
      auto g = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(float(i), 0.0f, 0.0f),
                                                                        1.0f / 115.0f);
      g->setName("Volume" + std::to_string(i));
      d.grids.push_back(g);
    }
    d.dir = fs::temp_directory_path() / ("zv-volumescene-bench-" + std::to_string(::getpid()));
    fs::create_directories(d.dir);
    return d;
  }();
  return data;
}

std::unique_ptr<zta::BaseDocument> MakeScene(const Data& d) {
  auto doc = zta::AllocDocument();
  for (const auto& g : d.grids) {
    auto op = zelmar::VolumeObjectData::MakeObject(*zelmar::MakeVolume(g));
    op->SetName(g->getName());
    doc->InsertObject(op.release());
  }
  return doc;
}

void SceneSave(benchmark::State& state) {
  const Data& d = GetData();
  const fs::path dir = d.dir / "scene";
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove_all(dir);
    fs::create_directories(dir);
    auto doc = MakeScene(d);
    state.ResumeTiming();
    auto saved = zta::SaveDocument(doc.get(), (dir / "scene.zscene").string());
    if (!saved) state.SkipWithError(saved.GetError().GetMessage().c_str());
  }
  state.counters["active_voxels"] = double(d.grids.front()->activeVoxelCount());
}

void SceneLoad(benchmark::State& state) {
  const Data& d = GetData();
  const fs::path dir = d.dir / "scene";
  {
    fs::remove_all(dir);
    fs::create_directories(dir);
    auto doc = MakeScene(d);
    if (!zta::SaveDocument(doc.get(), (dir / "scene.zscene").string())) state.SkipWithError("save failed");
  }
  for (auto _ : state) {
    auto loaded = zta::LoadDocument((dir / "scene.zscene").string());
    if (!loaded) state.SkipWithError(loaded.GetError().GetMessage().c_str());
    benchmark::DoNotOptimize(loaded);
  }
}

void PlainWrite(benchmark::State& state) {
  const Data& d = GetData();
  const fs::path dir = d.dir / "plain";
  fs::create_directories(dir);
  for (auto _ : state) {
    for (const auto& g : d.grids) {
      openvdb::io::File f((dir / (g->getName() + ".vdb")).string());
      f.write({g});
      f.close();
    }
  }
}

void PlainRead(benchmark::State& state) {
  const Data& d = GetData();
  const fs::path dir = d.dir / "plain";
  fs::create_directories(dir);
  for (const auto& g : d.grids) {
    openvdb::io::File f((dir / (g->getName() + ".vdb")).string());
    f.write({g});
    f.close();
  }
  for (auto _ : state) {
    openvdb::GridPtrVec grids;
    for (const auto& g : d.grids) {
      openvdb::io::File f((dir / (g->getName() + ".vdb")).string());
      f.open(/*delayLoad=*/false);
      grids.push_back(f.readGrid(g->getName()));
      f.close();
    }
    benchmark::DoNotOptimize(grids);
  }
}

BENCHMARK(SceneSave)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(PlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(SceneLoad)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(PlainRead)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

}  // namespace

int main(int argc, char** argv) { return zvbench::RunWithModule(argc, argv, [] { fs::remove_all(GetData().dir); }); }
