// The evaluation pass: its order, what it rebuilds and when, stopping.
#include <gtest/gtest.h>

#include "host/objects/polygonobject.h"
#include "testplugins.h"

using namespace zta;
using namespace hosttest;

namespace {

int Builds(BaseObject* op) { return Data<CountingGenerator>(op)->builds; }

std::vector<std::string> Names(const std::vector<VisibleObject>& v) {
  std::vector<std::string> out;
  for (const VisibleObject& o : v) out.push_back(o.op->GetName());
  return out;
}

}  // namespace

TEST(Passes, NestedGeneratorsBuildOnceAndOnlyWhatChanged) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  // outer { inner { p } }, other { q }
  BaseObject* outer = Add(doc.get(), ID_COUNTING_GENERATOR, "outer");
  BaseObject* inner = Add(doc.get(), ID_COUNTING_GENERATOR, "inner", outer);
  BaseObject* p = Add(doc.get(), HOST_TYPE_POLYGON, "p", inner);
  BaseObject* other = Add(doc.get(), ID_COUNTING_GENERATOR, "other");
  BaseObject* q = Add(doc.get(), HOST_TYPE_POLYGON, "q", other);

  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(outer), 1);
  EXPECT_EQ(Builds(inner), 1);
  EXPECT_EQ(Builds(other), 1);
  // The outer cache holds the inner one's copy, which holds p's.
  ASSERT_NE(outer->GetCache(), nullptr);
  EXPECT_NE(doc->SearchObject("p"), nullptr);
  std::vector<std::string> inOuter;
  WalkTree(outer->GetCache(), [&](GeListNode* n) { inOuter.push_back(static_cast<BaseObject*>(n)->GetName()); });
  EXPECT_NE(std::find(inOuter.begin(), inOuter.end(), "inner.points"), inOuter.end());
  EXPECT_NE(std::find(inOuter.begin(), inOuter.end(), "p"), inOuter.end());
  // Consumed children are inputs: not drawn on their own.
  EXPECT_TRUE(IsInputObject(inner));
  EXPECT_TRUE(IsInputObject(q));
  EXPECT_FALSE(IsInputObject(outer));
  const auto shown = Names(GetVisibleObjects(doc.get()));
  EXPECT_EQ(std::count(shown.begin(), shown.end(), "p"), 1);  // once, from the outer cache
  EXPECT_EQ(std::count(shown.begin(), shown.end(), "q"), 1);
  EXPECT_EQ(std::count(shown.begin(), shown.end(), "outer.points"), 1);

  // Nothing changed: nothing builds, and no counter of the scene moves.
  const UInt32 changes = doc->GetChangeCount();
  BaseObject* cache = outer->GetCache();
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(outer) + Builds(inner) + Builds(other), 3);
  EXPECT_EQ(outer->GetCache(), cache);
  EXPECT_EQ(doc->GetChangeCount(), changes);

  // Moving the innermost input rebuilds the two generators above it, once each.
  p->SetMl(MatrixMove(Vector(5, 0, 0)));
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(inner), 2);
  EXPECT_EQ(Builds(outer), 2);
  EXPECT_EQ(Builds(other), 1);
  EXPECT_EQ(Data<CountingGenerator>(inner)->lastDirty, (std::vector<bool>{true}));

  // Moving a generator itself rebuilds nothing: its cache lives in its space.
  outer->SetMl(MatrixMove(Vector(0, 9, 0)));
  other->SetMl(MatrixMove(Vector(0, 9, 0)));
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(outer) + Builds(inner) + Builds(other), 5);

  // A parameter of one generator rebuilds that one and those that read it.
  inner->GetDataInstance()->SetFloat(TEST_SIZE, 3.0);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(inner), 3);
  EXPECT_EQ(Builds(outer), 3);
  EXPECT_EQ(Builds(other), 1);
  // Storing the value it already holds is no change.
  inner->GetDataInstance()->SetFloat(TEST_SIZE, 3.0);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(inner), 3);

  // A child taken out, and one put in, rebuild the parent.
  auto taken = q->Remove();
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(other), 2);
  static_cast<BaseObject*>(taken.release())->InsertUnder(other);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(other), 3);

  // A new frame asks every generator again.
  doc->SetTime(BaseTime(1, 30));
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(outer), 4);
  EXPECT_EQ(Builds(other), 4);
}

TEST(Passes, PriorityListRunsAroundTheCaches) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* a = Add(doc.get(), ID_RECORDING_OBJECT, "a");
  Data<RecordingObject>(a)->priorities = {5001, 1000};
  BaseObject* gen = Add(doc.get(), ID_COUNTING_GENERATOR, "gen");
  BaseObject* b = Add(doc.get(), ID_RECORDING_OBJECT, "b");
  Data<RecordingObject>(b)->priorities = {4500, 1000};
  ASSERT_NE(b->MakeTag(ID_RECORDING_TAG), nullptr);
  Journal().clear();
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Journal(), (std::vector<std::string>{"a:1000", "b:1000", "b.tag:3000", "b:4500", "gen:build", "a:5001"}));

  // Only the list, or only the caches.
  Journal().clear();
  gen->GetDataInstance()->SetFloat(TEST_SIZE, 2.0);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr, EXECUTIONFLAGS_EXPRESSION));
  EXPECT_EQ(Journal().size(), 5u);
  Journal().clear();
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr, EXECUTIONFLAGS_CACHEBUILDING));
  EXPECT_EQ(Journal(), (std::vector<std::string>{"gen:build"}));

  // An entry that frees a later node: the node's entries are passed over.
  BaseObject* victim = Add(doc.get(), ID_RECORDING_OBJECT, "victim");
  Data<RecordingObject>(victim)->priorities = {3500};
  Data<RecordingObject>(a)->priorities = {2500};
  a->GetDataInstance()->SetLink(TEST_LINK, victim);
  Journal().clear();
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(doc->SearchObject("victim"), nullptr);
  EXPECT_EQ(std::count(Journal().begin(), Journal().end(), "victim:3500"), 0);

  // A user break from an entry ends the pass before the caches.
  Data<RecordingObject>(b)->breakAt = 1000;
  gen->GetDataInstance()->SetFloat(TEST_SIZE, 4.0);
  Journal().clear();
  EXPECT_FALSE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(std::count(Journal().begin(), Journal().end(), "gen:build"), 0);
  EXPECT_FALSE(ExecutePasses(nullptr, nullptr));
}

TEST(Passes, StopRequestEndsWithinOneGeneratorAndKeepsTheCaches) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* first = Add(doc.get(), ID_COUNTING_GENERATOR, "first");
  BaseObject* second = Add(doc.get(), ID_COUNTING_GENERATOR, "second");
  BaseObject* third = Add(doc.get(), ID_COUNTING_GENERATOR, "third");
  Add(doc.get(), HOST_TYPE_POLYGON, "p", second);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  BaseObject* caches[] = {first->GetCache(), second->GetCache(), third->GetCache()};

  for (BaseObject* g : {first, second, third}) g->GetDataInstance()->SetFloat(TEST_SIZE, 7.0);
  auto thread = std::make_shared<ZTAThread>();
  Data<CountingGenerator>(second)->stopOnBuild = true;
  EXPECT_FALSE(ExecutePasses(doc.get(), thread));
  EXPECT_EQ(Builds(first), 2);
  EXPECT_EQ(Builds(second), 2);
  EXPECT_EQ(Builds(third), 1);  // never asked
  EXPECT_NE(first->GetCache(), caches[0]);
  EXPECT_EQ(second->GetCache(), caches[1]);  // the stopped build is dropped
  EXPECT_EQ(third->GetCache(), caches[2]);

  // The next pass picks up what was left.
  Data<CountingGenerator>(second)->stopOnBuild = false;
  thread->Reset();
  ASSERT_TRUE(ExecutePasses(doc.get(), thread));
  EXPECT_EQ(Builds(first), 2);
  EXPECT_EQ(Builds(second), 3);
  EXPECT_EQ(Builds(third), 2);
  EXPECT_NE(second->GetCache(), caches[1]);
}

TEST(Passes, ModifiersDeformTheirParentOnlyWhenSomethingChanged) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  auto poly = PolygonObject::Alloc(1, 0);
  poly->GetPointW()[0] = Vector(1, 2, 3);
  poly->SetName("poly");
  auto* p = poly.release();
  doc->InsertObject(p);
  BaseObject* mod = Add(doc.get(), ID_OFFSET_MODIFIER, "mod", p);
  mod->GetDataInstance()->SetVector(TEST_OFFSET, Vector(10, 0, 0));
  auto* md = Data<OffsetModifier>(mod);

  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  auto* deformed = dynamic_cast<PolygonObject*>(p->GetDeformCache());
  ASSERT_NE(deformed, nullptr);
  EXPECT_EQ(deformed->GetPointR()[0], Vector(11, 2, 3));
  EXPECT_EQ(p->GetPointR()[0], Vector(1, 2, 3));  // the object itself stays
  EXPECT_EQ(md->modifies, 1);
  // What shows is the deformed copy, where the object stands.
  p->SetMl(MatrixMove(Vector(0, 0, 100)));
  const auto shown = GetVisibleObjects(doc.get());
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].op, deformed);
  EXPECT_EQ(shown[0].mg.off, Vector(0, 0, 100));

  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(md->modifies, 1);
  mod->GetDataInstance()->SetVector(TEST_OFFSET, Vector(0, 1, 0));
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(md->modifies, 2);
  EXPECT_EQ(static_cast<PolygonObject*>(p->GetDeformCache())->GetPointR()[0], Vector(1, 3, 3));
  // CheckDirtyState lets a modifier say that something outside changed.
  md->external = 1;
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(md->modifies, 3);
  // Switched off, the modifier leaves the object undeformed.
  mod->SetDeformMode(false);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(p->GetDeformCache(), nullptr);
  EXPECT_EQ(GetVisibleObjects(doc.get())[0].op, p);
}

TEST(Passes, SwitchedOffGeneratorsAndHiddenObjects) {
  RegisterTestPlugins();
  auto doc = BaseDocument::Alloc();
  BaseObject* gen = Add(doc.get(), ID_COUNTING_GENERATOR, "gen");
  BaseObject* p = Add(doc.get(), HOST_TYPE_POLYGON, "p", gen);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_TRUE(IsInputObject(p));
  gen->SetDeformMode(false);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(gen), 1);
  EXPECT_FALSE(IsInputObject(p));
  EXPECT_EQ(Names(GetVisibleObjects(doc.get())), (std::vector<std::string>{"p"}));
  gen->SetDeformMode(true);
  ASSERT_TRUE(ExecutePasses(doc.get(), nullptr));
  EXPECT_EQ(Builds(gen), 2);
  EXPECT_TRUE(IsInputObject(p));
  // Hidden in the editor, shown in a render.
  gen->SetEditorMode(MODE_OFF);
  EXPECT_TRUE(GetVisibleObjects(doc.get()).empty());
  EXPECT_FALSE(GetVisibleObjects(doc.get(), true).empty());
}
