// The display of a level set of about five million active voxels: reading
// the grid into display points, building the device buffers, and drawing a
// 1920x1080 frame with the software renderer. The peer is OpenVDB's own walk
// over the same active voxels, the least any display must spend on them.
#include <benchmark/benchmark.h>
#include <openvdb/tools/LevelSetSphere.h>
#include <sys/resource.h>

#include <algorithm>

#include "host/scene/basedocument.h"
#include "host/ui/basedraw.h"
#include "host/ui/glcontext.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumedraw.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volume_impl.h"
#include "bench/module_main.h"

namespace {

const zelmar::Volume& Sphere() {
  static const zelmar::Volume v = [] {
    auto grid = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(0.1f, 0.2f, 0.3f),
                                                                        0.004f, 3.0f);
    return *zelmar::MakeVolume(grid);
  }();
  return v;
}

double ProcessCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + 1e-6 * double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

// The processor time of every thread of the process (the renderer's and
// TBB's included) spent in the timed loop, per iteration: on a shared machine
// a steadier measure of the work than the time on the clock.
class CpuClock {
 public:
  CpuClock() : start_(ProcessCpuSeconds()) {}
  void Report(benchmark::State& state) const {
    state.counters["cpu_ms"] = (ProcessCpuSeconds() - start_) * 1000.0 / double(std::max<int64_t>(state.iterations(), 1));
  }

 private:
  double start_;
};

void PeakMemory(benchmark::State& state) {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_MB"] = double(usage.ru_maxrss) / 1024.0;
  state.counters["voxels"] = double(Sphere().GetActiveVoxelCount());
}

void PlainActiveWalk(benchmark::State& state) {
  auto grid = openvdb::gridConstPtrCast<openvdb::FloatGrid>(zelmar::VolumeImpl::GetGrid(Sphere()));
  const CpuClock cpu;
  for (auto _ : state) {
    double sum = 0;
    for (auto it = grid->cbeginValueOn(); it; ++it) sum += *it;
    benchmark::DoNotOptimize(sum);
  }
  cpu.Report(state);
  PeakMemory(state);
}

void CollectPoints(benchmark::State& state) {
  std::vector<zta::Vector32> points, colors, normals;
  const CpuClock cpu;
  for (auto _ : state) {
    zelmar::CollectDisplayPoints(Sphere(), points, colors, normals);
    benchmark::DoNotOptimize(points.data());
  }
  cpu.Report(state);
  state.counters["points"] = double(points.size());
  PeakMemory(state);
}

// One view and one volume object in a document.
struct Scene {
  std::unique_ptr<zta::OffscreenContext> context;
  std::unique_ptr<zta::BaseDraw> bd;
  std::unique_ptr<zta::BaseDocument> doc;
  zta::BaseObject* op = nullptr;
  bool ok = false;
  Scene() {
    auto ctx = zta::OffscreenContext::Create(1920, 1080);
    if (!ctx) return;
    context = std::move(ctx.GetValue());
    bd = std::make_unique<zta::BaseDraw>(1920, 1080);
    bd->SetView({2.5, 2.0, -4.0}, {0.1, 0.2, -0.3}, {0, 1, 0}, 0.5236, 1.0, 12.0, true);
    doc = zta::BaseDocument::Alloc();
    op = zelmar::VolumeObjectData::MakeObject(Sphere()).release();
    doc->InsertObject(op);
    ok = true;
  }
  ~Scene() {
    doc.reset();
    bd.reset();
    context.reset();
  }
  void Draw() {
    bd->Clear();
    zta::BaseDrawHelp bh(bd.get(), doc.get());
    bh.SetMg(op->GetMg());
    op->GetNodeData<zelmar::VolumeObjectData>()->DrawObject(op, zta::DRAWPASS::OBJECT, bd.get(), &bh);
  }
};

// How many voxels a display of the sphere puts in its buffers.
double ShownVoxels(Scene& scene) {
  zelmar::VolumeObjectDisplay display;
  display.gridType = Sphere().GetGridType();
  display.gridClass = Sphere().GetGridClass();
  zta::BaseDrawHelp bh(scene.bd.get(), scene.doc.get());
  bh.SetMg(scene.op->GetMg());
  (void)zelmar::DrawVolume(display, Sphere(), scene.op->GetMg(), scene.op, scene.bd.get(), &bh, zta::Vector(0.8), true);
  return double(display.pointCount);
}

// A changed grid: the points read again, the buffers made and filled on the
// device, and the frame drawn once (the device works lazily until then).
void BuildBuffersAndDraw(benchmark::State& state) {
  Scene scene;
  if (!scene.ok) return state.SkipWithError("no OpenGL driver");
  const CpuClock cpu;
  for (auto _ : state) {
    scene.op->GetNodeData<zelmar::VolumeObjectData>()->SetVolume(scene.op, Sphere());
    scene.Draw();
    benchmark::DoNotOptimize(scene.bd->ReadPixels());
  }
  cpu.Report(state);
  PeakMemory(state);
}

// The same frame again: only the drawing, from the buffers already there.
void DrawFrame(benchmark::State& state) {
  Scene scene;
  if (!scene.ok) return state.SkipWithError("no OpenGL driver");
  scene.Draw();
  const CpuClock cpu;
  for (auto _ : state) {
    scene.Draw();
    benchmark::DoNotOptimize(scene.bd->ReadPixels());
  }
  cpu.Report(state);
  state.counters["shown"] = ShownVoxels(scene);
  PeakMemory(state);
}

// The least a frame costs: the picture cleared and read back, nothing drawn.
void EmptyFrame(benchmark::State& state) {
  Scene scene;
  if (!scene.ok) return state.SkipWithError("no OpenGL driver");
  const CpuClock cpu;
  for (auto _ : state) {
    scene.bd->Clear();
    benchmark::DoNotOptimize(scene.bd->ReadPixels());
  }
  cpu.Report(state);
  PeakMemory(state);
}

}  // namespace

BENCHMARK(PlainActiveWalk)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(CollectPoints)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BuildBuffersAndDraw)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(DrawFrame)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(EmptyFrame)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) { return zvbench::RunWithModule(argc, argv); }
