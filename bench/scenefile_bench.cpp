// Scene files: save and load of a scene of many objects and of one polygon
// object of a million polygons, with the file's size as bytes processed (so
// the figures read as MB/s). A save includes the sync to disk; a load includes
// resolving every link of the scene once, so that a load that did not scale
// linearly in the number of nodes would show in the per-node times of the
// 10,000 and 40,000 object scenes. Each runs in both forms: native (form 0)
// and JSON (form 1).
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "host/objects/phongtag.h"
#include "host/objects/polygonobject.h"
#include "host/objects/primitives.h"
#include "host/scene/basedocument.h"
#include "host/scene/scenefile.h"
#include "host/scene/scenejson.h"

namespace {

using namespace zta;

std::string TempPath(const char* name) {
  return (std::filesystem::temp_directory_path() / (std::string("zv-bench-") + std::to_string(getpid()) + "-" + name))
      .string();
}

double PeakRssMb() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_maxrss) / 1024.0;
}

// Groups of ten: a null with nine children (spheres and cubes with their
// parameters set, a Phong tag each), every child linking to a child of the
// group before it.
std::unique_ptr<BaseDocument> ManyObjects(int64_t count) {
  auto doc = BaseDocument::Alloc();
  BaseObject* previous = nullptr;
  for (int64_t g = 0; g < count / 10; ++g) {
    auto group = BaseObject::Alloc(HOST_TYPE_NULL);
    group->SetName("group " + std::to_string(g));
    group->SetMl(MatrixMove(Vector(double(g), 0, 0)));
    BaseObject* parent = group.get();
    group.release()->InsertUnderLast(doc->GetObjectListHead());
    BaseObject* first = nullptr;
    for (int k = 0; k < 9; ++k) {
      auto op = BaseObject::Alloc(k % 2 ? HOST_TYPE_CUBE : HOST_TYPE_SPHERE);
      op->SetName("item " + std::to_string(k));
      op->SetMl(MatrixMove(Vector(0, double(k), 0)) * MatrixRotY(0.1 * k));
      op->GetDataInstance()->SetFloat(PRIM_SPHERE_RAD, 10.0 + k);
      op->GetDataInstance()->SetLink(2000, previous);
      op->InsertTag(PhongTag::Alloc().release());
      if (!first) first = op.get();
      op.release()->InsertUnderLast(parent);
    }
    previous = first;
  }
  return doc;
}

// A grid of quads: n x n points, (n-1)^2 quads.
std::unique_ptr<BaseDocument> BigMesh(int64_t polygons) {
  auto doc = BaseDocument::Alloc();
  const Int32 n = Int32(std::sqrt(double(polygons))) + 1;
  auto op = PolygonObject::Alloc(n * n, (n - 1) * (n - 1));
  Vector* p = op->GetPointW();
  for (Int32 j = 0; j < n; ++j)
    for (Int32 i = 0; i < n; ++i) p[j * n + i] = Vector(i, std::sin(i * 0.01) * std::cos(j * 0.01), j);
  CPolygon* q = op->GetPolygonW();
  for (Int32 j = 0; j + 1 < n; ++j)
    for (Int32 i = 0; i + 1 < n; ++i) q[j * (n - 1) + i] = CPolygon(j * n + i, j * n + i + 1, (j + 1) * n + i + 1, (j + 1) * n + i);
  op->SetName("terrain");
  op.release()->InsertUnderLast(doc->GetObjectListHead());
  return doc;
}

std::unique_ptr<BaseDocument> Make(int64_t kind, int64_t size) { return kind == 0 ? ManyObjects(size) : BigMesh(size); }

const char* Suffix(int64_t form) { return form == 0 ? ".zscene" : ".json"; }

Result<void> Save(int64_t form, BaseDocument* doc, const std::string& path) {
  return form == 0 ? SaveDocument(doc, path) : SaveDocumentJson(doc, path);
}

Result<std::unique_ptr<BaseDocument>> Load(int64_t form, const std::string& path) {
  return form == 0 ? LoadDocument(path) : LoadDocumentJson(path);
}

void BM_Save(benchmark::State& state) {
  auto doc = Make(state.range(1), state.range(2));
  const std::string path = TempPath((std::string("save") + Suffix(state.range(0))).c_str());
  for (auto _ : state) {
    auto r = Save(state.range(0), doc.get(), path);
    if (!r) state.SkipWithError(r.GetError().GetMessage().c_str());
  }
  const auto bytes = int64_t(std::filesystem::file_size(path));
  state.SetBytesProcessed(state.iterations() * bytes);
  state.counters["file_mb"] = double(bytes) / 1e6;
  state.counters["peak_rss_mb"] = PeakRssMb();
  std::filesystem::remove(path);
}

void BM_Load(benchmark::State& state) {
  const std::string path = TempPath((std::string("load") + Suffix(state.range(0))).c_str());
  {
    auto doc = Make(state.range(1), state.range(2));
    if (auto r = Save(state.range(0), doc.get(), path); !r) state.SkipWithError(r.GetError().GetMessage().c_str());
  }
  int64_t nodes = 0;
  for (auto _ : state) {
    auto r = Load(state.range(0), path);
    if (!r) {
      state.SkipWithError(r.GetError().GetMessage().c_str());
      break;
    }
    // Every link once, as the first evaluation after a load would.
    BaseDocument* doc = r.GetValue().get();
    int64_t resolved = 0;
    nodes = 0;
    doc->ForEachNode([&](BaseList2D* n) {
      ++nodes;
      resolved += n->GetDataInstance()->GetLink(2000, doc) != nullptr;
      return false;
    });
    benchmark::DoNotOptimize(resolved);
  }
  state.SetBytesProcessed(state.iterations() * int64_t(std::filesystem::file_size(path)));
  state.counters["nodes"] = double(nodes);
  state.counters["us_per_node"] =
      benchmark::Counter(double(nodes) * 1e-6, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["peak_rss_mb"] = PeakRssMb();
  std::filesystem::remove(path);
}

}  // namespace

// Arguments: form (0 native, 1 JSON), scene (0 many objects, 1 one big mesh), its size.
BENCHMARK(BM_Save)->ArgNames({"form", "mesh", "size"})->ArgsProduct({{0, 1}, {0}, {10000, 40000}})
    ->ArgsProduct({{0, 1}, {1}, {1000000}})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Load)->ArgNames({"form", "mesh", "size"})->ArgsProduct({{0, 1}, {0}, {10000, 40000}})
    ->ArgsProduct({{0, 1}, {1}, {1000000}})->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
