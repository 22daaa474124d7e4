// Parallel reads through grid accessors, one accessor per worker, over the
// five million active voxels of a level set: by index coordinate and by world
// position through the linear sampler, against OpenVDB's own value accessor
// on the same walk. The argument is the number of worker threads; compare the
// rates of 1 and 2 (or more) workers for the scaling.
//
// On a machine that other work keeps busy the wall time cannot show the
// scaling, so each run also reports the CPU time of the whole process per
// voxel (cpu_ns_per_voxel) and the cores it had on average (cores_used):
// when the CPU time per voxel stays the same with more workers, they split
// the walk without waiting on each other, and the rate grows with the cores
// they get.
#include <benchmark/benchmark.h>
#include <openvdb/tools/Interpolation.h>
#include <openvdb/tools/LevelSetSphere.h>
#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <ctime>

#include "modules/volumes/source/main.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumeaccessors.h"
#include "bench/module_main.h"

namespace {

using zelmar::Volume;

struct Field {
  Volume volume;
  openvdb::FloatGrid::Ptr grid;
  std::vector<openvdb::Coord> leaves;  // origins of the leaves, the units of work
  int64_t voxels = 0;                  // every voxel of those leaves
};

const Field& Sphere() {
  static const Field f = [] {
    Field out;
    out.grid = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(0.1f, 0.2f, 0.3f),
                                                                         0.004f, 3.0f);
    out.volume = *zelmar::MakeVolume(out.grid);
    for (auto leaf = out.grid->tree().cbeginLeaf(); leaf; ++leaf) out.leaves.push_back(leaf->origin());
    out.voxels = int64_t(out.leaves.size()) * 512;
    return out;
  }();
  return f;
}

double ProcessCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

double WallSeconds() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

struct Clocks {
  double cpu = ProcessCpuSeconds();
  double wall = WallSeconds();
};

// Items per second; the process's CPU time per item over the whole run; and
// the cores the process had on average (CPU time over wall time).
void Report(benchmark::State& state, int64_t voxels, const Clocks& start) {
  const double cpu = ProcessCpuSeconds() - start.cpu, wall = WallSeconds() - start.wall;
  state.SetItemsProcessed(state.iterations() * voxels);
  state.counters["cpu_ns_per_voxel"] = 1e9 * cpu / double(state.iterations() * voxels);
  state.counters["cores_used"] = cpu / wall;
}

// Runs body(range, sum) over the leaves with `threads` workers and returns the sum.
template <typename Body>
double ParallelOverLeaves(int threads, const Field& f, Body&& body) {
  tbb::task_arena arena(threads);
  tbb::enumerable_thread_specific<double> sums(0.0);
  arena.execute([&] {
    tbb::parallel_for(tbb::blocked_range<size_t>(0, f.leaves.size(), 32),
                      [&](const tbb::blocked_range<size_t>& r) { sums.local() += body(r); });
  });
  return sums.combine([](double a, double b) { return a + b; });
}

// One accessor per worker thread, made and opened on the worker's first range.
template <typename Read>
void AccessorWalk(benchmark::State& state, zelmar::VOLUMESAMPLER sampler, Read&& read) {
  const Field& f = Sphere();
  const int threads = int(state.range(0));
  const Clocks start;
  for (auto _ : state) {
    tbb::enumerable_thread_specific<zelmar::GridAccessorRef<float>> accessors([&] {
      auto acc = *zelmar::GridAccessorCreationImpl::Create<float>();
      if (!acc->Init(f.volume, sampler)) std::abort();
      return acc;
    });
    const double sum = ParallelOverLeaves(threads, f, [&](const tbb::blocked_range<size_t>& r) {
      zelmar::GridAccessorInterface<float>& acc = *accessors.local();
      double s = 0.0;
      for (size_t n = r.begin(); n != r.end(); ++n) {
        const openvdb::Coord o = f.leaves[n];
        for (int i = 0; i < 8; ++i)
          for (int j = 0; j < 8; ++j)
            for (int k = 0; k < 8; ++k) s += read(acc, o.x() + i, o.y() + j, o.z() + k);
      }
      return s;
    });
    benchmark::DoNotOptimize(sum);
  }
  Report(state, f.voxels, start);
}

void AccessorByIndex(benchmark::State& state) {
  AccessorWalk(state, zelmar::VOLUMESAMPLER::NEAREST,
               [](zelmar::GridAccessorInterface<float>& acc, int i, int j, int k) {
                 return double(acc.GetValueIntVector32({i, j, k}));
               });
}

// World positions between voxel centres, so that the sampler interpolates.
void AccessorByWorldPositionLinear(benchmark::State& state) {
  AccessorWalk(state, zelmar::VOLUMESAMPLER::LINEAR,
               [](zelmar::GridAccessorInterface<float>& acc, int i, int j, int k) {
                 return double(acc.GetValueVector(zta::Vector((i + 0.3) * 0.004, (j + 0.6) * 0.004, (k + 0.1) * 0.004)));
               });
}

// The same two walks on OpenVDB's own accessor and sampler, one per worker.
void OpenVDBByIndex(benchmark::State& state) {
  const Field& f = Sphere();
  const int threads = int(state.range(0));
  const Clocks start;
  for (auto _ : state) {
    const double sum = ParallelOverLeaves(threads, f, [&](const tbb::blocked_range<size_t>& r) {
      openvdb::FloatGrid::ConstAccessor acc = f.grid->getConstAccessor();
      double s = 0.0;
      for (size_t n = r.begin(); n != r.end(); ++n) {
        const openvdb::Coord o = f.leaves[n];
        for (int i = 0; i < 8; ++i)
          for (int j = 0; j < 8; ++j)
            for (int k = 0; k < 8; ++k) s += acc.getValue(openvdb::Coord(o.x() + i, o.y() + j, o.z() + k));
      }
      return s;
    });
    benchmark::DoNotOptimize(sum);
  }
  Report(state, f.voxels, start);
}

void OpenVDBByWorldPositionLinear(benchmark::State& state) {
  const Field& f = Sphere();
  const int threads = int(state.range(0));
  const Clocks start;
  for (auto _ : state) {
    const double sum = ParallelOverLeaves(threads, f, [&](const tbb::blocked_range<size_t>& r) {
      openvdb::FloatGrid::ConstAccessor acc = f.grid->getConstAccessor();
      openvdb::tools::GridSampler<openvdb::FloatGrid::ConstAccessor, openvdb::tools::BoxSampler> sampler(
          acc, f.grid->transform());
      double s = 0.0;
      for (size_t n = r.begin(); n != r.end(); ++n) {
        const openvdb::Coord o = f.leaves[n];
        for (int i = 0; i < 8; ++i)
          for (int j = 0; j < 8; ++j)
            for (int k = 0; k < 8; ++k)
              s += sampler.wsSample(openvdb::Vec3d((o.x() + i + 0.3) * 0.004, (o.y() + j + 0.6) * 0.004,
                                                   (o.z() + k + 0.1) * 0.004));
      }
      return s;
    });
    benchmark::DoNotOptimize(sum);
  }
  Report(state, f.voxels, start);
}

void Threads(benchmark::internal::Benchmark* b) {
  b->ArgName("threads")->Arg(1)->Arg(2)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(AccessorByIndex)->Apply(Threads);
BENCHMARK(OpenVDBByIndex)->Apply(Threads);
BENCHMARK(AccessorByWorldPositionLinear)->Apply(Threads);
BENCHMARK(OpenVDBByWorldPositionLinear)->Apply(Threads);

}  // namespace

int main(int argc, char** argv) { return zvbench::RunWithModule(argc, argv); }
