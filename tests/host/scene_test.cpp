#include <gtest/gtest.h>

#include <cmath>

#include "host/objects/polygonobject.h"
#include "host/objects/primitives.h"
#include "host/objects/uvwtag.h"
#include "host/scene/basedocument.h"
#include "host/scene/plugins.h"
#include "support/expect.h"

using namespace zta;
using zvtest::ExpectNear;

namespace {
BaseObject* NewNull(const char* name) {
  BaseObject* op = BaseObject::Alloc(HOST_TYPE_NULL).release();
  op->SetName(name);
  return op;
}

}  // namespace

TEST(Scene, TreeEditing) {
  auto doc = BaseDocument::Alloc();
  BaseObject* a = NewNull("a");
  BaseObject* b = NewNull("b");
  BaseObject* c = NewNull("c");
  BaseObject* d = NewNull("d");
  doc->InsertObject(a);
  doc->InsertObject(b, nullptr, a);  // after a
  doc->InsertObject(c, a);           // under a
  doc->InsertObject(d, a, c);        // under a, after c
  EXPECT_EQ(doc->GetFirstObject(), a);
  EXPECT_EQ(a->GetNext(), b);
  EXPECT_EQ(b->GetPrev(), a);
  EXPECT_EQ(a->GetDown(), c);
  EXPECT_EQ(c->GetNext(), d);
  EXPECT_EQ(d->GetUp(), a);
  EXPECT_EQ(a->GetUp(), nullptr);  // the list head is not a parent
  EXPECT_EQ(d->GetDocument(), doc.get());
  EXPECT_EQ(doc->SearchObject("d"), d);
  EXPECT_EQ(doc->SearchObject("zz"), nullptr);
  BaseObject* e = NewNull("e");
  EXPECT_TRUE(e->InsertBefore(d));
  EXPECT_EQ(c->GetNext(), e);
  BaseObject* loose = NewNull("loose");
  EXPECT_FALSE(loose->InsertBefore(doc->GetObjectListHead()));  // a head has no place
  GeListNode::Free(loose);
  GeListNode::Free(e);

  // A node cannot go under itself or its own descendant, nor be inserted twice.
  auto owned = a->Remove();
  EXPECT_EQ(a->GetDocument(), nullptr);
  EXPECT_EQ(doc->GetFirstObject(), b);
  EXPECT_FALSE(a->InsertUnder(c));
  EXPECT_FALSE(a->InsertUnder(a));
  EXPECT_TRUE(static_cast<GeListNode*>(owned.release())->InsertUnder(b));
  EXPECT_FALSE(a->InsertUnder(b));
  EXPECT_EQ(c->GetDocument(), doc.get());

  // The walk is depth first without recursion and stays inside its root.
  std::string order;
  WalkTree(b, [&](GeListNode* n) { order += static_cast<BaseObject*>(n)->GetName(); });
  EXPECT_EQ(order, "bacd");
  order.clear();
  WalkTree(a, [&](GeListNode* n) { order += static_cast<BaseObject*>(n)->GetName(); });
  EXPECT_EQ(order, "acd");

  // Freeing a node frees its children; links to them give null.
  BaseLink toD(d);
  GeListNode::Free(a);
  EXPECT_EQ(b->GetDown(), nullptr);
  EXPECT_EQ(toD.GetLink(doc.get()), nullptr);
  EXPECT_EQ(toD.ForceGetLink(), nullptr);
}

TEST(Scene, MatricesAndBounds) {
  auto doc = BaseDocument::Alloc();
  BaseObject* parent = NewNull("p");
  doc->InsertObject(parent);
  parent->SetMl(MatrixMove(Vector(10, 0, 0)) * MatrixScale(Vector(2)));
  auto poly = PolygonObject::Alloc(2, 0);
  poly->GetPointW()[0] = Vector(-1, -2, -3);
  poly->GetPointW()[1] = Vector(3, 2, 1);
  PolygonObject* child = poly.release();
  doc->InsertObject(child, parent);
  child->SetMl(MatrixMove(Vector(0, 1, 0)));
  ExpectNear(child->GetMg().off, Vector(10, 2, 0));
  ExpectNear(child->GetMg().GetScale(), Vector(2, 2, 2));
  // An object's own scale is that of its local matrix, not the parents'.
  ExpectNear(parent->GetScale(), Vector(2, 2, 2));
  ExpectNear(child->GetScale(), Vector(1, 1, 1));

  // Setting the global matrix keeps it through the parent.
  child->SetMg(MatrixMove(Vector(0, 0, 4)));
  ExpectNear(child->GetMg().off, Vector(0, 0, 4));
  ExpectNear(child->GetMl().off, Vector(-5, 0, 2));

  // A frozen matrix sits between parent and local values.
  child->SetFrozenMatrix(MatrixMove(Vector(1, 0, 0)));
  ExpectNear(child->GetMl().off, Vector(-4, 0, 2));
  child->SetMl(Matrix());
  ExpectNear(child->GetMl().off, Vector(0, 0, 0));
  ExpectNear(child->GetFrozenMatrix().off, Vector(1, 0, 0));

  ExpectNear(child->GetMp(), Vector(1, 0, -1));
  ExpectNear(child->GetRad(), Vector(2, 2, 2));

  // A generator measures its cache in its own space.
  auto cube = BaseObject::Alloc(HOST_TYPE_CUBE);
  ExpectNear(cube->GetRad(), Vector(0, 0, 0));
  HierarchyHelp hh(doc.get(), nullptr, 0);
  std::unique_ptr<BaseObject> built(cube->GetObjectData()->BuildVirtualObjects(cube.get(), &hh));
  ASSERT_TRUE(built);
  built->SetMl(MatrixMove(Vector(0, 50, 0)));
  cube->SetCache(std::move(built));
  ExpectNear(cube->GetRad(), Vector(100, 100, 100));
  ExpectNear(cube->GetMp(), Vector(0, 50, 0));
  // The cache's own global matrix runs through its generator.
  cube->SetMl(MatrixMove(Vector(1, 1, 1)));
  ExpectNear(cube->GetCache()->GetMg().off, Vector(1, 51, 1));
  EXPECT_EQ(cube->GetCache()->GetCacheParent(), cube.get());
}

TEST(Scene, DirtyCounters) {
  auto doc = BaseDocument::Alloc();
  BaseObject* parent = NewNull("p");
  BaseObject* child = NewNull("c");
  doc->InsertObject(parent);
  doc->InsertObject(child, parent);
  const UInt32 m0 = child->GetDirty(DIRTYFLAGS_MATRIX);
  const UInt32 d0 = child->GetDirty(DIRTYFLAGS_DATA);
  const UInt32 changes0 = doc->GetChangeCount();

  child->SetMl(MatrixMove(Vector(1, 0, 0)));
  EXPECT_EQ(child->GetDirty(DIRTYFLAGS_MATRIX), m0 + 1);
  EXPECT_EQ(child->GetDirty(DIRTYFLAGS_DATA), d0);
  EXPECT_GT(doc->GetChangeCount(), changes0);

  // Parameter edits count as data changes.
  child->GetDataInstance()->SetFloat(1000, 1.0);
  EXPECT_EQ(child->GetDirty(DIRTYFLAGS_DATA), d0 + 1);
  // A word of several bits sums their counters (6 = matrix + data).
  EXPECT_EQ(child->GetDirty(6), child->GetDirty(DIRTYFLAGS_MATRIX) + child->GetDirty(DIRTYFLAGS_DATA));
  child->SetDirty(DIRTYFLAGS_DESCRIPTION);
  EXPECT_EQ(child->GetDirty(DIRTYFLAGS_DESCRIPTION), 1u);
  EXPECT_EQ(child->GetDirty(DIRTYFLAGS_CACHE), 0u);

  // The hierarchy's counter sees the child, its tags and its caches.
  const UInt32 h0 = parent->GetHDirty(DIRTYFLAGS_DATA);
  child->SetDirty(DIRTYFLAGS_DATA);
  EXPECT_EQ(parent->GetHDirty(DIRTYFLAGS_DATA), h0 + 1);
  BaseTag* tag = child->MakeTag(HOST_TAG_PHONG);
  ASSERT_NE(tag, nullptr);
  const UInt32 h1 = parent->GetHDirty(DIRTYFLAGS_DATA);
  tag->SetDirty(DIRTYFLAGS_DATA);
  EXPECT_EQ(parent->GetHDirty(DIRTYFLAGS_DATA), h1 + 1);
  EXPECT_EQ(doc->GetHDirty(DIRTYFLAGS_DATA), doc->GetDirty(DIRTYFLAGS_DATA) + parent->GetHDirty(DIRTYFLAGS_DATA));
  const UInt32 c0 = child->GetDirty(DIRTYFLAGS_CACHE);
  child->SetCache(PolygonObject::Alloc(0, 0));
  EXPECT_EQ(child->GetDirty(DIRTYFLAGS_CACHE), c0 + 1);
  // Children coming and going move the parent's children counter, the
  // document's for the top level.
  const UInt32 kids = parent->GetDirty(DIRTYFLAGS_CHILDREN), top = doc->GetDirty(DIRTYFLAGS_CHILDREN);
  auto taken = child->Remove();
  EXPECT_EQ(parent->GetDirty(DIRTYFLAGS_CHILDREN), kids + 1);
  static_cast<BaseObject*>(taken.release())->InsertUnder(parent);
  EXPECT_EQ(parent->GetDirty(DIRTYFLAGS_CHILDREN), kids + 2);
  doc->InsertObject(NewNull("late"));
  EXPECT_GT(doc->GetDirty(DIRTYFLAGS_CHILDREN), top);
}

TEST(Scene, PolygonObjectAndTags) {
  auto op = PolygonObject::Alloc(4, 1);
  ASSERT_TRUE(op);
  EXPECT_EQ(PolygonObject::Alloc(-1, 0), nullptr);
  EXPECT_TRUE(op->IsInstanceOf(HOST_TYPE_POLYGON));
  EXPECT_TRUE(op->IsInstanceOf(HOST_TYPE_POINT));
  EXPECT_TRUE(op->IsInstanceOf(HOST_TYPE_OBJECT));
  EXPECT_FALSE(op->IsInstanceOf(HOST_TYPE_SPLINE));
  // Points and polygons live in the object's own tags.
  ASSERT_NE(op->GetTag(HOST_TAG_POINT), nullptr);
  ASSERT_NE(op->GetTag(HOST_TAG_POLYGON), nullptr);
  EXPECT_EQ(static_cast<VariableTag*>(op->GetTag(HOST_TAG_POINT))->GetDataCount(), 4);
  for (int i = 0; i < 4; ++i) op->GetPointW()[i] = Vector(i, 0, 0);
  op->GetPolygonW()[0] = CPolygon(0, 1, 2, 3);
  EXPECT_FALSE(op->GetPolygonR()[0].IsTriangle());
  EXPECT_TRUE(CPolygon(0, 1, 2).IsTriangle());
  EXPECT_TRUE(op->IsValid());

  // Resizing keeps the leading data and zeroes the new.
  ASSERT_TRUE(op->ResizeObject(5, 2));
  EXPECT_EQ(op->GetPointR()[3], Vector(3, 0, 0));
  EXPECT_EQ(op->GetPointR()[4], Vector(0, 0, 0));
  EXPECT_EQ(op->GetPolygonR()[0], CPolygon(0, 1, 2, 3));
  EXPECT_FALSE(op->ResizeObject(-1, 2));
  EXPECT_EQ(op->GetPointCount(), 5);
  op->GetPolygonW()[1] = CPolygon(0, 1, 7);
  EXPECT_FALSE(op->IsValid());
  op->GetPolygonW()[1] = CPolygon(0, 1, 4);

  auto uvw = UVWTag::Alloc(2);
  uvw->Set(1, {Vector(0, 0, 0), Vector(1, 0, 0), Vector(1, 1, 0), Vector(1, 1, 0)});
  uvw->Set(5, {Vector(9), Vector(9), Vector(9), Vector(9)});  // ignored
  EXPECT_EQ(uvw->Get(5).a, Vector(0));
  UVWTag* u = uvw.release();
  op->InsertTag(u);
  EXPECT_EQ(u->GetObject(), op.get());
  EXPECT_EQ(op->GetTag(HOST_TAG_UVW), u);
  EXPECT_EQ(op->GetTag(HOST_TAG_UVW, 1), nullptr);
  EXPECT_EQ(BaseTag::Alloc(123456), nullptr);

  // A clone copies points, polygons and tags, and owns them apart.
  auto clone = op->GetClone();
  auto* c = static_cast<PolygonObject*>(clone.get());
  ASSERT_EQ(c->GetPointCount(), 5);
  EXPECT_EQ(c->GetPolygonR()[1], CPolygon(0, 1, 4));
  EXPECT_EQ(static_cast<UVWTag*>(c->GetTag(HOST_TAG_UVW))->Get(1).b, Vector(1, 0, 0));
  int pointTags = 0;
  for (BaseTag* t = c->GetFirstTag(); t; t = t->GetNext()) pointTags += t->GetType() == HOST_TAG_POINT;
  EXPECT_EQ(pointTags, 1);
  c->GetPointW()[0] = Vector(-5);
  EXPECT_EQ(op->GetPointR()[0], Vector(0, 0, 0));
}

TEST(Scene, DocumentTimeActiveObjectAndClone) {
  auto doc = BaseDocument::Alloc();
  EXPECT_EQ(doc->GetFps(), 30);
  EXPECT_FALSE(doc->SetFps(0));
  EXPECT_TRUE(doc->SetFps(25));
  doc->SetTime(BaseTime(50, 25));
  EXPECT_EQ(doc->GetTime().GetNumerator(), 2);
  EXPECT_EQ(doc->GetTime().GetDenominator(), 1);
  EXPECT_EQ(doc->GetTime().GetFrame(doc->GetFps()), 50);
  EXPECT_EQ(BaseTime(1, 30).GetFrame(30), 1);
  EXPECT_FALSE(doc->SetTimeRange(BaseTime(2, 1), BaseTime(1, 1)));
  EXPECT_TRUE(doc->SetTimeRange(BaseTime(0, 1), BaseTime(4, 1)));
  EXPECT_EQ(doc->GetMaxTime(), BaseTime(4, 1));
  EXPECT_EQ(doc->GetMinTime(), BaseTime(0, 1));
  doc->SetDocumentPath("/scenes");
  doc->SetDocumentName("a.zta");

  BaseObject* a = NewNull("a");
  BaseObject* b = NewNull("b");
  doc->InsertObject(a);
  doc->InsertObject(b, a);
  b->GetDataInstance()->SetLink(1, a);
  doc->SetActiveObject(b);
  EXPECT_EQ(doc->GetActiveObject(), b);
  EXPECT_TRUE(b->GetBit(BIT_ACTIVE));
  doc->SetActiveObject(a);
  EXPECT_FALSE(b->GetBit(BIT_ACTIVE));
  // Several selected: the last one is the active object; a selected child of
  // a selected object counts only when asked for.
  doc->SetActiveObject(b, SELECTION_ADD);
  EXPECT_EQ(doc->GetActiveObject(), b);
  EXPECT_EQ(doc->GetActiveObjects(), (std::vector<BaseObject*>{a}));
  EXPECT_EQ(doc->GetActiveObjects(GETACTIVEOBJECTFLAGS_CHILDREN), (std::vector<BaseObject*>{a, b}));
  doc->SetActiveObject(b, SELECTION_SUB);
  EXPECT_EQ(doc->GetActiveObject(), a);
  EXPECT_EQ(doc->GetActiveObjects(GETACTIVEOBJECTFLAGS_CHILDREN), (std::vector<BaseObject*>{a}));
  doc->SetActiveObject(b, SELECTION_ADD);
  doc->SetActiveObject(nullptr);
  EXPECT_TRUE(doc->GetActiveObjects(GETACTIVEOBJECTFLAGS_CHILDREN).empty());
  EXPECT_EQ(doc->GetActiveObject(), nullptr);
  doc->SetActiveObject(a);
  // Numbered node bits, beyond the first word; copies keep them.
  EXPECT_FALSE(b->ChangeNBit(92, NBITCONTROL::SET));
  EXPECT_TRUE(b->GetNBit(92));
  EXPECT_TRUE(b->ChangeNBit(92, NBITCONTROL::TOGGLE));
  EXPECT_FALSE(b->GetNBit(92));
  b->ChangeNBit(14, NBITCONTROL::SET);
  b->ChangeNBit(63, NBITCONTROL::SET);
  b->ChangeNBit(63, NBITCONTROL::CLEAR);
  EXPECT_FALSE(b->GetNBit(63));
  EXPECT_FALSE(b->ChangeNBit(128, NBITCONTROL::SET));
  EXPECT_FALSE(b->GetNBit(-1));
  EXPECT_TRUE(b->GetClone()->GetNBit(14));

  // A cloned document has its own objects, and links inside it reach them.
  auto cloneBase = doc->GetClone();
  auto* copy = static_cast<BaseDocument*>(cloneBase.get());
  EXPECT_EQ(copy->GetTime(), doc->GetTime());
  EXPECT_EQ(copy->GetDocumentName(), "a.zta");
  BaseObject* ca = copy->GetFirstObject();
  ASSERT_NE(ca, nullptr);
  EXPECT_NE(ca, a);
  BaseObject* cb = ca->GetDown();
  ASSERT_NE(cb, nullptr);
  EXPECT_EQ(cb->GetDataInstance()->GetLink(1, copy), ca);
  EXPECT_EQ(b->GetDataInstance()->GetLink(1, doc.get()), a);
  EXPECT_EQ(copy->GetActiveObject(), ca);

  // Cloning a hierarchy moves links within it to the copies.
  auto sub = a->GetClone();
  auto* sa = static_cast<BaseObject*>(sub.get());
  EXPECT_EQ(sa->GetDown()->GetDataInstance()->GetLink(1, nullptr), sa);
  auto flat = a->GetClone(COPYFLAGS_NO_HIERARCHY);
  EXPECT_EQ(static_cast<BaseObject*>(flat.get())->GetDown(), nullptr);

  // Siblings from one on, cloned in order under another parent, each with its children.
  BaseObject* c = NewNull("c");
  doc->InsertObject(c, nullptr, a);
  auto holder = NewNull("holder");
  ASSERT_TRUE(CloneSiblingsUnder(a, holder, COPYFLAGS_NONE, nullptr));
  ASSERT_NE(holder->GetDown(), nullptr);
  const auto* first = static_cast<BaseObject*>(holder->GetDown());
  EXPECT_EQ(first->GetName(), "a");
  ASSERT_NE(first->GetDown(), nullptr);
  EXPECT_EQ(static_cast<BaseObject*>(first->GetDown())->GetName(), "b");
  ASSERT_NE(first->GetNext(), nullptr);
  EXPECT_EQ(static_cast<BaseObject*>(first->GetNext())->GetName(), "c");
  EXPECT_EQ(first->GetNext()->GetNext(), nullptr);
  EXPECT_EQ(a->GetNext(), c);  // the originals stay where they were
  GeListNode::Free(holder);
}

TEST(Scene, Undo) {
  auto doc = BaseDocument::Alloc();
  BaseObject* a = NewNull("a");
  doc->InsertObject(a);
  a->GetDataInstance()->SetInt32(1, 1);
  EXPECT_FALSE(doc->AddUndo(UNDOTYPE::CHANGE, a));  // no open step

  doc->StartUndo();
  EXPECT_TRUE(doc->AddUndo(UNDOTYPE::CHANGE, a));
  a->GetDataInstance()->SetInt32(1, 2);
  a->SetMl(MatrixMove(Vector(5, 0, 0)));
  BaseObject* b = NewNull("b");
  doc->InsertObject(b, a);
  EXPECT_TRUE(doc->AddUndo(UNDOTYPE::NEWOBJ, b));
  doc->EndUndo();
  EXPECT_EQ(doc->GetUndoCount(), 1);
  BaseLink toA(a);

  ASSERT_TRUE(doc->DoUndo());
  BaseObject* restored = doc->GetFirstObject();
  ASSERT_NE(restored, nullptr);
  EXPECT_EQ(restored->GetDataInstance()->GetInt32(1), 1);
  EXPECT_EQ(restored->GetMl().off, Vector(0, 0, 0));
  EXPECT_EQ(restored->GetDown(), nullptr);
  EXPECT_EQ(toA.GetLink(doc.get()), restored);  // the marker goes with the restored state

  doc->StartUndo();
  EXPECT_TRUE(doc->AddUndo(UNDOTYPE::DELETEOBJ, restored));
  GeListNode::Free(restored);
  doc->EndUndo();
  EXPECT_EQ(doc->GetFirstObject(), nullptr);
  ASSERT_TRUE(doc->DoUndo());
  ASSERT_NE(doc->GetFirstObject(), nullptr);
  EXPECT_EQ(doc->GetFirstObject()->GetName(), "a");
  EXPECT_FALSE(doc->DoUndo());
}

namespace {
// A plug-in that records what the host called.
struct Calls {
  int init = 0, free = 0, copy = 0, message = 0, build = 0;
};
Calls g_calls;

class RecordingData : public ObjectData {
 public:
  bool InitNode(GeListNode* node) override {
    ++g_calls.init;
    static_cast<BaseList2D*>(node)->GetDataInstance()->SetFloat(1000, 2.0);
    return true;
  }
  void FreeNode(GeListNode*) override { ++g_calls.free; }
  bool CopyNode(NodeData* dest, const GeListNode*, GeListNode*, Int32, AliasTrans*) const override {
    ++g_calls.copy;
    static_cast<RecordingData*>(dest)->value = value;
    return true;
  }
  bool HandleMessage(GeListNode*, Int32 type, void*) override {
    ++g_calls.message;
    return type != 99;
  }
  BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) override {
    ++g_calls.build;
    if (op->GetCache()) return op->GetCache();
    auto poly = MakeCubePolygons(Vector(op->GetDataInstance()->GetFloat(1000)), 1, 1, 1);
    return poly.release();
  }
  int value = 0;
};

class RefusingData : public ObjectData {
 public:
  bool InitNode(GeListNode*) override { return false; }
};
}  // namespace

TEST(Scene, PluginRegistryAndNodeData) {
  constexpr Int32 kId = 1999001, kRefusing = 1999002, kTag = 1999003;
  ASSERT_TRUE(RegisterObjectPlugin(kId, "Recorder", OBJECT_GENERATOR, [] { return std::make_unique<RecordingData>(); },
                                   "orecorder", 1));
  EXPECT_FALSE(RegisterObjectPlugin(kId, "Again", 0, [] { return std::make_unique<RecordingData>(); }, "", 0));
  EXPECT_FALSE(RegisterObjectPlugin(1999009, "", 0, [] { return std::make_unique<RecordingData>(); }, "", 0));
  EXPECT_FALSE(RegisterTagPlugin(1999010, "NoAlloc", 0, nullptr, "", 0));
  ASSERT_TRUE(RegisterObjectPlugin(kRefusing, "Refuser", 0, [] { return std::make_unique<RefusingData>(); }, "", 0));
  ASSERT_TRUE(RegisterTagPlugin(kTag, "Tagger", 0, [] { return std::make_unique<TagData>(); }, "ttagger", 0));
  ASSERT_NE(FindPlugin(kId), nullptr);
  EXPECT_EQ(FindPlugin(kId)->diskLevel, 1);
  EXPECT_EQ(FindPlugin(kId)->description, "orecorder");

  g_calls = {};
  {
    auto op = BaseObject::Alloc(kId);
    ASSERT_TRUE(op);
    EXPECT_EQ(g_calls.init, 1);
    EXPECT_EQ(op->GetType(), kId);
    EXPECT_EQ(op->GetInfo(), OBJECT_GENERATOR);
    EXPECT_EQ(op->GetDataInstance()->GetFloat(1000), 2.0);
    ASSERT_NE(op->GetNodeData<RecordingData>(), nullptr);
    op->GetNodeData<RecordingData>()->value = 7;
    EXPECT_TRUE(op->Message(1));
    EXPECT_FALSE(op->Message(99));
    EXPECT_EQ(g_calls.message, 2);

    auto clone = op->GetClone();
    EXPECT_EQ(g_calls.init, 2);
    EXPECT_EQ(g_calls.copy, 1);
    EXPECT_EQ(clone->GetNodeData<RecordingData>()->value, 7);

    HierarchyHelp hh(nullptr, nullptr, 0);
    std::unique_ptr<BaseObject> cache(op->GetObjectData()->BuildVirtualObjects(op.get(), &hh));
    ASSERT_TRUE(cache);
    op->SetCache(std::move(cache));
    EXPECT_EQ(op->GetObjectData()->BuildVirtualObjects(op.get(), &hh), op->GetCache());
    EXPECT_EQ(g_calls.build, 2);
    EXPECT_EQ(op->GetCache()->GetType(), HOST_TYPE_POLYGON);
  }
  EXPECT_EQ(g_calls.free, 2);

  EXPECT_EQ(BaseObject::Alloc(kRefusing), nullptr);
  auto tag = BaseTag::Alloc(kTag);
  ASSERT_TRUE(tag);
  EXPECT_NE(tag->GetNodeData<TagData>(), nullptr);
  EXPECT_EQ(BaseObject::Alloc(kTag), nullptr);  // a tag id is not an object

  const auto tags = GetPlugins(PLUGINTYPE::TAG);
  EXPECT_EQ(std::count_if(tags.begin(), tags.end(), [&](const PluginInfo& p) { return p.id == kTag; }), 1);
  EXPECT_TRUE(std::none_of(tags.begin(), tags.end(), [&](const PluginInfo& p) { return p.id == kId; }));
  EXPECT_TRUE(UnregisterPlugin(kId));
  EXPECT_FALSE(UnregisterPlugin(kId));
  EXPECT_EQ(BaseObject::Alloc(kId), nullptr);
  UnregisterPlugin(kRefusing);
  UnregisterPlugin(kTag);
}

TEST(Scene, SceneLoadersSaversAndCommandsRegisterByKind) {
  constexpr Int32 kLoader = 1999011, kSaver = 1999012, kCommand = 1999013;
  struct Counting : CommandData {
    int runs = 0;
    bool Execute(BaseDocument* doc) override { return doc && ++runs > 0; }
  };
  auto command = std::make_shared<Counting>();
  const auto alloc = [] { return std::make_unique<NodeData>(); };
  ASSERT_TRUE(RegisterSceneLoaderPlugin(kLoader, "VDB Import", 0, alloc, "fvdbimport"));
  ASSERT_TRUE(RegisterSceneSaverPlugin(kSaver, "VDB Export", 0, alloc, "fvdbexport", "vdb"));
  ASSERT_TRUE(RegisterCommandPlugin(kCommand, "Reset", 0, command));
  // Taken ids, missing allocators, commands or names are refused.
  EXPECT_FALSE(RegisterSceneSaverPlugin(kLoader, "Again", 0, alloc, "", "vdb"));
  EXPECT_FALSE(RegisterSceneLoaderPlugin(1999014, "No allocator", 0, nullptr, ""));
  EXPECT_FALSE(RegisterCommandPlugin(1999014, "No command", 0, nullptr));
  EXPECT_FALSE(RegisterCommandPlugin(1999014, "", 0, command));
  EXPECT_EQ(FindPlugin(1999014), nullptr);

  const auto loaders = GetPlugins(PLUGINTYPE::SCENELOADER);
  ASSERT_EQ(std::count_if(loaders.begin(), loaders.end(), [&](const PluginInfo& p) { return p.id == kLoader; }), 1);
  EXPECT_EQ(FindPlugin(kLoader)->description, "fvdbimport");
  EXPECT_EQ(FindPlugin(kSaver)->type, PLUGINTYPE::SCENESAVER);
  EXPECT_EQ(FindPlugin(kSaver)->suffix, "vdb");
  EXPECT_TRUE(FindPlugin(kSaver)->alloc());
  // They are no scene nodes.
  EXPECT_EQ(BaseObject::Alloc(kLoader), nullptr);
  EXPECT_EQ(BaseTag::Alloc(kSaver), nullptr);

  // A command is reached through the registry as the one registered.
  const PluginInfo* reset = FindPlugin(kCommand);
  ASSERT_NE(reset, nullptr);
  EXPECT_EQ(reset->type, PLUGINTYPE::COMMAND);
  auto doc = BaseDocument::Alloc();
  EXPECT_EQ(reset->command->GetState(doc.get()), 1);
  EXPECT_TRUE(reset->command->Execute(doc.get()));
  EXPECT_EQ(command->runs, 1);

  for (Int32 id : {kLoader, kSaver, kCommand}) EXPECT_TRUE(UnregisterPlugin(id));
  EXPECT_EQ(FindPlugin(kCommand), nullptr);
}

TEST(Scene, SceneHooks) {
  constexpr Int32 kHook = 1999020;
  struct Hook : SceneHookData {};
  ASSERT_TRUE(RegisterSceneHookPlugin(kHook, "Hook", 0, [] { return std::make_unique<Hook>(); }, 3000, 0));
  auto doc = BaseDocument::Alloc();
  BaseList2D* h = doc->FindSceneHook(kHook);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(doc->FindSceneHook(kHook), h);
  EXPECT_EQ(h->GetDocument(), doc.get());
  EXPECT_EQ(doc->FindSceneHook(1999021), nullptr);
  EXPECT_EQ(doc->FindByMarker(h->GetMarker()), h);
  UnregisterPlugin(kHook);
}
