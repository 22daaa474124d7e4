// SampleField over one batch of positions, as the field-to-volume tools hand
// it over: a million voxel centres against a list of four layers. The second
// argument caps the worker threads (0: all), to show what the parallel batch
// gains over one thread.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "host/fields/fieldlist.h"
#include "host/ui/parallel.h"

namespace {

zta::FieldList MakeList() {
  zta::FieldList list;
  list.InsertLayer(std::make_unique<zta::SphericalFieldLayer>(60.0, 0.3));
  auto linear = std::make_unique<zta::LinearFieldLayer>(100.0);
  linear->SetBlend(zta::FIELDBLEND::MULTIPLY);
  list.InsertLayer(std::move(linear), 0);
  auto box = std::make_unique<zta::BoxFieldLayer>(zta::Vector(40, 40, 40), 0.5);
  box->SetBlend(zta::FIELDBLEND::MAX);
  box->SetMatrix(zta::MatrixMove(zta::Vector(30, 0, 0)));
  list.InsertLayer(std::move(box), 0);
  auto noise = std::make_unique<zta::NoiseFieldLayer>(12.0, 7);
  noise->SetBlend(zta::FIELDBLEND::ADD);
  noise->SetStrength(0.2);
  list.InsertLayer(std::move(noise), 0);
  return list;
}

// Voxel centres of a 100^3 block of 1-unit voxels about the origin.
std::vector<zta::Vector> MakePositions(int64_t n) {
  std::vector<zta::Vector> p;
  p.reserve(size_t(n));
  const int side = 100;
  for (int64_t i = 0; i < n; ++i)
    p.emplace_back(double(i % side) - 50.0, double((i / side) % side) - 50.0, double(i / (side * side)) - 50.0);
  return p;
}

void BM_SampleField(benchmark::State& state) {
  const int64_t n = state.range(0);
  const int flags = int(state.range(2));
  zta::SetMaxThreads(int32_t(state.range(1)));
  const zta::FieldList list = MakeList();
  const std::vector<zta::Vector> positions = MakePositions(n);
  zta::FieldOutput out;
  for (auto _ : state) {
    auto r = zta::SampleField(list, zta::FieldInput(positions.data(), n), out, flags);
    if (!r) state.SkipWithError(r.GetError().GetMessage().c_str());
    benchmark::DoNotOptimize(out.values.data());
  }
  zta::SetMaxThreads(0);
  state.SetItemsProcessed(state.iterations() * n);
}

}  // namespace

BENCHMARK(BM_SampleField)
    ->ArgNames({"positions", "threads", "flags"})
    ->Args({1000000, 0, zta::FIELDSAMPLE_FLAG_VALUE})
    ->Args({1000000, 1, zta::FIELDSAMPLE_FLAG_VALUE})
    ->Args({1000000, 0, zta::FIELDSAMPLE_FLAG_VALUE | zta::FIELDSAMPLE_FLAG_DIRECTION})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_MAIN();
