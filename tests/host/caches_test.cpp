// The cache contract between the pass and a generator, hierarchy clones and
// dependence lists.
#include <gtest/gtest.h>

#include "host/objects/primitives.h"
#include "testplugins.h"

using namespace zta;
using namespace hosttest;

namespace {

std::vector<std::pair<std::string, Int32>> Contents(const BaseObject* root) {
  std::vector<std::pair<std::string, Int32>> out;
  WalkTree(const_cast<BaseObject*>(root), [&](GeListNode* n) {
    auto* op = static_cast<BaseObject*>(n);
    out.emplace_back(op->GetName(), op->GetType());
  });
  return out;
}

// A generator reading the object of TEST_LINK by its hierarchy clone.
class CloningLinkGenerator : public ObjectData {
 public:
  BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) override {
    ++builds;
    BeginDependenceList(op);
    auto root = BaseObject::Alloc(HOST_TYPE_NULL);
    auto* linked = static_cast<BaseObject*>(op->GetDataInstance()->GetLink(TEST_LINK, hh->GetDocument(), HOST_TYPE_OBJECT));
    if (linked)
      if (auto clone = GetHierarchyClone(hh, linked, HIERARCHYCLONEFLAGS_ASIS, nullptr)) clone.release()->InsertUnder(root.get());
    return root.release();
  }
  int builds = 0;
};
constexpr Int32 ID_CLONING_LINK = 1999150;

}  // namespace

TEST(Caches, NullKeepsTheLastCacheAndTheNewCacheReplacesTheOld) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* gen = Add(doc.get(), ID_COUNTING_GENERATOR, "gen");
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  BaseObject* first = gen->GetCache();
  ASSERT_NE(first, nullptr);
  BaseLink toFirst(first);

  // A failing build keeps the cache, and is asked again until it succeeds.
  gen->GetDataInstance()->SetBool(TEST_FAIL, true);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(gen->GetCache(), first);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Data<CountingGenerator>(gen)->builds, 3);
  EXPECT_EQ(gen->GetCache(), first);
  gen->GetDataInstance()->SetBool(TEST_FAIL, false);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_NE(gen->GetCache(), first);
  EXPECT_EQ(toFirst.ForceGetLink(), nullptr);  // the object freed the old cache
  EXPECT_EQ(gen->GetCache()->GetCacheParent(), gen);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Data<CountingGenerator>(gen)->builds, 4);
}

TEST(Caches, TheSameCacheBackMeansUnchanged) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* gen = Add(doc.get(), ID_COUNTING_GENERATOR, "gen");
  BaseObject* sphere = Add(doc.get(), HOST_TYPE_SPHERE, "sphere", gen);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  BaseObject* sphereCache = sphere->GetCache();
  ASSERT_NE(sphereCache, nullptr);
  EXPECT_EQ(Data<CountingGenerator>(gen)->lastDirty, (std::vector<bool>{true}));
  const UInt32 counter = sphere->GetDirty(DIRTYFLAGS_CACHE);

  // A new frame asks both; the sphere keeps its cache, so it reads as clean.
  doc->SetTime(BaseTime(2, 30));
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Data<CountingGenerator>(gen)->builds, 2);
  EXPECT_EQ(sphere->GetCache(), sphereCache);
  EXPECT_EQ(sphere->GetDirty(DIRTYFLAGS_CACHE), counter);
  EXPECT_EQ(Data<CountingGenerator>(gen)->lastDirty, (std::vector<bool>{false}));

  // Other build flags rebuild; the cache remembers which it was built for.
  EXPECT_EQ(GetCacheBuildFlags(gen), BUILDFLAGS_NONE);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr, EXECUTIONFLAGS_ALL, BUILDFLAGS_EXTERNALRENDERER));
  EXPECT_EQ(Data<CountingGenerator>(gen)->builds, 3);
  EXPECT_EQ(GetCacheBuildFlags(gen), BUILDFLAGS_EXTERNALRENDERER);
  EXPECT_EQ(GetCacheBuildFlags(nullptr), -1);

  // Outside a document, BuildCaches does what a pass does for one hierarchy.
  auto free = BaseObject::Alloc(HOST_TYPE_CUBE);
  EXPECT_EQ(GetCacheBuildFlags(free.get()), -1);
  ASSERT_TRUE(BuildCaches(free.get(), nullptr, BUILDFLAGS_INTERNALRENDERER));
  ASSERT_NE(free->GetCache(), nullptr);
  EXPECT_EQ(free->GetCache()->GetType(), HOST_TYPE_POLYGON);
  EXPECT_EQ(GetCacheBuildFlags(free.get()), BUILDFLAGS_INTERNALRENDERER);
  EXPECT_FALSE(BuildCaches(nullptr, nullptr));
}

TEST(Caches, HierarchyClonesGiveTheCurrentStateOfTheKindsAskedFor) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* group = Add(doc.get(), HOST_TYPE_NULL, "group");
  group->SetMl(MatrixMove(Vector(1, 0, 0)));
  BaseObject* sphere = Add(doc.get(), HOST_TYPE_SPHERE, "sphere", group);
  sphere->SetMl(MatrixMove(Vector(0, 2, 0)));
  Add(doc.get(), ID_PLAIN_VOLUME, "volume", group);
  Add(doc.get(), HOST_TYPE_SPLINE, "spline", group);

  // As it is: the sphere stays a sphere, nothing is built.
  auto asis = GetHierarchyClone(nullptr, group, HIERARCHYCLONEFLAGS_ASIS, nullptr);
  ASSERT_TRUE(asis);
  EXPECT_EQ(Contents(asis.get()), (std::vector<std::pair<std::string, Int32>>{
                                       {"group", HOST_TYPE_NULL}, {"sphere", HOST_TYPE_SPHERE},
                                       {"volume", ID_PLAIN_VOLUME}, {"spline", HOST_TYPE_SPLINE}}));
  EXPECT_EQ(sphere->GetCache(), nullptr);

  // The current state, as a generator asks for it: the sphere's cache, built
  // on the way, standing where the sphere stands; kinds not asked become Nulls.
  HierarchyHelp hh(doc.get(), nullptr, BUILDFLAGS_NONE);
  bool dirty = false;
  auto polys = GetHierarchyClone(&hh, group, HIERARCHYCLONEFLAGS_ASPOLY, &dirty);
  EXPECT_TRUE(dirty);
  ASSERT_NE(sphere->GetCache(), nullptr);
  auto got = Contents(polys.get());
  ASSERT_EQ(got.size(), 4u);
  EXPECT_EQ(got[1].second, HOST_TYPE_POLYGON);
  EXPECT_EQ(got[2], (std::pair<std::string, Int32>{"volume", HOST_TYPE_NULL}));
  EXPECT_EQ(got[3], (std::pair<std::string, Int32>{"spline", HOST_TYPE_NULL}));
  EXPECT_EQ(polys->GetDown()->GetMl().off, Vector(0, 2, 0));
  EXPECT_EQ(polys->GetMl().off, Vector(1, 0, 0));
  auto volumes = GetHierarchyClone(&hh, group, HIERARCHYCLONEFLAGS_ASVOLUME | HIERARCHYCLONEFLAGS_ASSPLINE, nullptr);
  got = Contents(volumes.get());
  EXPECT_EQ(got[1].second, HOST_TYPE_NULL);
  EXPECT_EQ(got[2].second, ID_PLAIN_VOLUME);
  EXPECT_EQ(got[3].second, HOST_TYPE_SPLINE);
  EXPECT_EQ(GetHierarchyClone(&hh, nullptr, HIERARCHYCLONEFLAGS_ASPOLY, &dirty), nullptr);

  // Links inside the copy point at the copies when the caller keeps a translation.
  sphere->GetDataInstance()->SetLink(TEST_LINK, group);
  AliasTrans trans;
  auto linked = GetHierarchyClone(&hh, group, HIERARCHYCLONEFLAGS_ASIS, nullptr, &trans);
  EXPECT_EQ(trans.Translate(group), linked.get());
}

TEST(Caches, DependenceListsFollowLinkedObjectsWhereTheyStand) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* holder = Add(doc.get(), HOST_TYPE_NULL, "holder");
  BaseObject* target = Add(doc.get(), HOST_TYPE_POLYGON, "target", holder);
  BaseObject* gen = Add(doc.get(), ID_LINKING_GENERATOR, "gen");
  gen->GetDataInstance()->SetLink(TEST_LINK, target);
  auto* ld = Data<LinkingGenerator>(gen);

  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(ld->builds, 1);
  EXPECT_EQ(ld->lastDifferences, 1);  // a new input
  EXPECT_TRUE(IsInputObject(target));
  EXPECT_TRUE(GetVisibleObjects(doc.get()).empty());  // the target is consumed; Nulls show nothing

  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(ld->builds, 1);
  // The target does not move itself, but its parent moves it in the world.
  holder->SetMl(MatrixMove(Vector(0, 0, 3)));
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(ld->builds, 2);
  EXPECT_EQ(ld->lastDifferences, 1);
  EXPECT_EQ(gen->GetCache()->GetMl().off, Vector(0, 0, 3));
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(ld->builds, 2);

  // Between builds, the list tells its differences without a build.
  BeginDependenceList(gen);
  AddDependence(gen, target);
  EXPECT_EQ(CheckDependenceList(gen), 0);
  target->SetDirty(DIRTYFLAGS_DATA);
  EXPECT_EQ(CheckDependenceList(gen), 1);
  BeginDependenceList(gen);
  EXPECT_EQ(CheckDependenceList(gen), 1);  // the target left
  AddDependence(gen, holder);
  EXPECT_EQ(CheckDependenceList(gen), 2);
  TouchDependenceList(gen);
  EXPECT_EQ(CheckDependenceList(gen), 0);
  EXPECT_TRUE(IsInputObject(holder));
  EXPECT_FALSE(IsInputObject(target));

  // A generator that goes gives its inputs back.
  GeListNode::Free(gen);
  EXPECT_FALSE(IsInputObject(holder));
  EXPECT_EQ(GetVisibleObjects(doc.get()).size(), 1u);
}

TEST(Caches, CyclesOfLinksEnd) {
  RegisterTestPlugins();
  static const bool registered = RegisterObjectPlugin(ID_CLONING_LINK, "Cloning link", OBJECT_GENERATOR,
                                                      [] { return std::make_unique<CloningLinkGenerator>(); }, "", 0);
  ASSERT_TRUE(registered);
  auto doc = BaseDocument::Alloc();
  BaseObject* a = Add(doc.get(), ID_CLONING_LINK, "a");
  BaseObject* b = Add(doc.get(), ID_CLONING_LINK, "b");
  a->GetDataInstance()->SetLink(TEST_LINK, b);
  b->GetDataInstance()->SetLink(TEST_LINK, a);
  // Each reads the other as it stands while it builds itself; copies of
  // generators in the caches stop nesting at a fixed depth.
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_GE(Data<CloningLinkGenerator>(a)->builds, 1);
  EXPECT_GE(Data<CloningLinkGenerator>(b)->builds, 1);
  ASSERT_NE(a->GetCache(), nullptr);
  ASSERT_NE(b->GetCache(), nullptr);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
}
