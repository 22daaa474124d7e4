// ExecutePasses over a document of 10,000 objects: 500 groups, each a Null
// holding a generator that consumes three polygon objects by hierarchy clones,
// five sphere primitives and ten loose polygon objects. Timed: a pass with
// nothing dirty, a pass after one loose object moved (nothing to rebuild), and
// a pass after one input moved (its generator rebuilds). The counters give the
// time per 1,000 objects and the peak resident memory of the process.
#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <memory>

#include "host/objects/polygonobject.h"
#include "host/objects/primitives.h"
#include "host/scene/execution.h"
#include "host/scene/plugins.h"

namespace {

using namespace zta;

constexpr Int32 kGeneratorId = 1999901;
constexpr int kGroups = 500;
constexpr int kObjectsPerGroup = 20;

// Copies its children's current state under a Null.
class CopyGenerator : public ObjectData {
 public:
  BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) override {
    auto root = BaseObject::Alloc(HOST_TYPE_NULL);
    BeginDependenceList(op);
    for (BaseObject* c = op->GetDown(); c; c = c->GetNext())
      if (auto clone = GetHierarchyClone(hh, c, HIERARCHYCLONEFLAGS_ASPOLY, nullptr)) clone.release()->InsertUnderLast(root.get());
    return root.release();
  }
};

BaseObject* Insert(std::unique_ptr<BaseObject> op, BaseObject* parent) {
  BaseObject* p = op.release();
  p->InsertUnderLast(parent);
  return p;
}

std::unique_ptr<PolygonObject> Quad() {
  auto poly = PolygonObject::Alloc(4, 1);
  poly->GetPointW()[1] = Vector(1, 0, 0);
  poly->GetPointW()[2] = Vector(1, 1, 0);
  poly->GetPointW()[3] = Vector(0, 1, 0);
  poly->GetPolygonW()[0] = CPolygon(0, 1, 2, 3);
  return poly;
}

struct Scene {
  std::unique_ptr<BaseDocument> doc = BaseDocument::Alloc();
  BaseObject* input = nullptr;  // a polygon consumed by a generator
  BaseObject* loose = nullptr;  // a polygon nobody consumes
};

Scene MakeScene() {
  static const bool registered = RegisterObjectPlugin(kGeneratorId, "Copy generator", OBJECT_GENERATOR | OBJECT_INPUT,
                                                      [] { return std::make_unique<CopyGenerator>(); }, "", 0);
  (void)registered;
  Scene s;
  for (int g = 0; g < kGroups; ++g) {
    auto group = BaseObject::Alloc(HOST_TYPE_NULL);
    BaseObject* parent = group.get();
    s.doc->InsertObject(group.release());
    BaseObject* gen = Insert(BaseObject::Alloc(kGeneratorId), parent);
    for (int i = 0; i < 3; ++i) s.input = Insert(Quad(), gen);
    for (int i = 0; i < 5; ++i) {
      BaseObject* sphere = Insert(BaseObject::Alloc(HOST_TYPE_SPHERE), parent);
      sphere->GetDataInstance()->SetInt32(PRIM_SPHERE_SUB, 6);
    }
    for (int i = 0; i < 10; ++i) s.loose = Insert(Quad(), parent);
  }
  ExecutePasses(s.doc.get(), nullptr);
  return s;
}

void Report(benchmark::State& state) {
  constexpr double kThousands = kGroups * kObjectsPerGroup / 1000.0;
  state.counters["per_1000_objects"] =
      benchmark::Counter(kThousands, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_rss_MiB"] = double(usage.ru_maxrss) / 1024.0;
}

void BM_PassNothingDirty(benchmark::State& state) {
  Scene s = MakeScene();
  for (auto _ : state) benchmark::DoNotOptimize(ExecutePasses(s.doc.get(), nullptr));
  Report(state);
}

void BM_PassOneObjectMoved(benchmark::State& state) {
  Scene s = MakeScene();
  double x = 0;
  for (auto _ : state) {
    s.loose->SetMl(MatrixMove(Vector(x += 1, 0, 0)));
    benchmark::DoNotOptimize(ExecutePasses(s.doc.get(), nullptr));
  }
  Report(state);
}

void BM_PassOneInputMoved(benchmark::State& state) {
  Scene s = MakeScene();
  double x = 0;
  for (auto _ : state) {
    s.input->SetMl(MatrixMove(Vector(x += 1, 0, 0)));
    benchmark::DoNotOptimize(ExecutePasses(s.doc.get(), nullptr));
  }
  Report(state);
}

}  // namespace

BENCHMARK(BM_PassNothingDirty)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PassOneObjectMoved)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PassOneInputMoved)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
