// Union of two level sets through BoolVolumes, in process: on equal and on
// unlike transforms, against OpenVDB's csgUnionCopy on the same grids, and
// with an empty accumulator, where no voxel is read or copied: the result
// shares the other grid, and what remains is the new Volume's bounding-box
// cache, one step per leaf node.
#include <benchmark/benchmark.h>
#include <openvdb/tools/Composite.h>

#include "modules/volumes/source/main.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"
#include "bench/module_main.h"

namespace {

using zelmar::Volume;
using Tools = zelmar::VolumeToolsInterface;

// A sphere of radius 1 whose narrow band (half width 3) holds about
// 3 * (0.005 / voxel)^2 million active voxels.
Volume Sphere(double voxel, const zta::Vector& centre) {
  auto v = Tools::CreateSphereVolume(1.0, centre, voxel, 3, nullptr, nullptr);
  if (!v) std::abort();
  return *v;
}

const Volume& A() {
  static const Volume v = Sphere(0.005, {0.0, 0.0, 0.0});
  return v;
}
const Volume& BEqual() {
  static const Volume v = Sphere(0.005, {0.8, 0.1, 0.0});
  return v;
}
const Volume& BUnlike() {
  static const Volume v = Sphere(0.0055, {0.8, 0.1, 0.0});
  return v;
}

void Count(benchmark::State& state, const Volume& a, const Volume& b) {
  state.counters["voxels_a"] = double(a.GetActiveVoxelCount());
  state.counters["voxels_b"] = double(b.GetActiveVoxelCount());
}

void UnionEqual(benchmark::State& state) {
  const Volume &a = A(), &b = BEqual();
  for (auto _ : state) {
    auto out = Tools::BoolVolumes(a, b, zelmar::BOOLTYPE::UNION);
    if (!out) state.SkipWithError(out.GetError().GetMessage().c_str());
    benchmark::DoNotOptimize(out);
  }
  Count(state, a, b);
}

void UnionUnlike(benchmark::State& state) {
  const Volume &a = A(), &b = BUnlike();
  for (auto _ : state) {
    auto out = Tools::BoolVolumes(a, b, zelmar::BOOLTYPE::UNION);
    if (!out) state.SkipWithError(out.GetError().GetMessage().c_str());
    benchmark::DoNotOptimize(out);
  }
  Count(state, a, b);
}

// OpenVDB's own copying union on the same equal-transform grids: the floor.
void VdbUnionCopyEqual(benchmark::State& state) {
  const auto a = openvdb::gridConstPtrCast<openvdb::FloatGrid>(zelmar::VolumeImpl::GetGrid(A()));
  const auto b = openvdb::gridConstPtrCast<openvdb::FloatGrid>(zelmar::VolumeImpl::GetGrid(BEqual()));
  for (auto _ : state) benchmark::DoNotOptimize(openvdb::tools::csgUnionCopy(*a, *b));
  Count(state, A(), BEqual());
}

// An empty accumulator joined with spheres of growing size: the time per
// active voxel of the other grid stay far below one memory access.
void UnionEmptyAccumulator(benchmark::State& state) {
  static const Volume empty = [] {
    Volume v = *Tools::CreateNewFloat32Volume(0.015f);
    v.SetGridClass(zelmar::GRIDCLASS::SDF);
    return v;
  }();
  const double voxel = 0.005 * double(state.range(0)) / 8.0;
  const Volume other = Sphere(voxel, {0.3, 0.0, 0.0});
  for (auto _ : state) {
    auto out = Tools::BoolVolumes(empty, other, zelmar::BOOLTYPE::UNION);
    if (!out || zelmar::VolumeImpl::GetGrid(*out) != zelmar::VolumeImpl::GetGrid(other))
      state.SkipWithError("the empty accumulator did not share the other grid");
    benchmark::DoNotOptimize(out);
  }
  state.counters["voxels_other"] = double(other.GetActiveVoxelCount());
  state.counters["s_per_voxel"] = benchmark::Counter(double(other.GetActiveVoxelCount()),
                                                      benchmark::Counter::kIsIterationInvariantRate |
                                                          benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(UnionEqual)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(VdbUnionCopyEqual)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(UnionUnlike)->Unit(benchmark::kMillisecond)->UseRealTime();
// range(0) / 8 scales the voxel size: 64 -> 8x coarser (~50k voxels), 8 -> ~3M voxels.
BENCHMARK(UnionEmptyAccumulator)->Arg(64)->Arg(24)->Arg(8)->Unit(benchmark::kMicrosecond)->UseRealTime();

int main(int argc, char** argv) { return zvbench::RunWithModule(argc, argv); }
