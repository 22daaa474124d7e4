#pragma once
// The scene that the scene-file tests of both forms save and load: every host
// object type, tag and custom data type, plug-in nodes with a branch and
// links, a plug-in tag and a scene hook; with the dump that compares them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "host/scene/checklist.h"
#include "host/scene/itemtree.h"
#include "host/scene/unitscale.h"
#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/objects/fieldobjects.h"
#include "host/objects/particles.h"
#include "host/objects/phongtag.h"
#include "host/objects/polygonobject.h"
#include "host/objects/primitives.h"
#include "host/objects/splineobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"
#include "host/scene/basedocument.h"
#include "host/scene/customdataclass.h"
#include "host/scene/hyperfile.h"
#include "host/scene/opaquenodedata.h"
#include "host/scene/plugins.h"
#include "host/scene/scenefile.h"
#include "support/run.h"
#include "support/scenedump.h"

using namespace zta;
using zvtest::SceneDump;

namespace {

constexpr Int32 kGroupId = 1999401, kLinkTagId = 1999402, kHookId = 1999403, kCustomId = 1999404;

// ---- plug-ins of the tests

// A node with a branch of its own (like a Volume Set's list), a counter and a
// link, at disk level 2. It remembers the level it was read at.
class GroupData : public ObjectData {
 public:
  bool InitNode(GeListNode* node) override {
    head_ = std::make_unique<GeListHead>();
    head_->SetOwner(node);
    return true;
  }
  bool WriteNode(const GeListNode* node, HyperFile* hf) const override {
    return hf->WriteInt32(counter) && hf->WriteLink(target) && hf->WriteNodeList(*head_, NODECLASS::OBJECT);
  }
  bool ReadNode(GeListNode* node, HyperFile* hf, Int32 level) override {
    readLevel = level;
    return hf->ReadInt32(&counter) && hf->ReadLink(&target) && hf->ReadNodeList(head_.get(), NODECLASS::OBJECT);
  }
  bool CopyNode(NodeData* dest, const GeListNode*, GeListNode*, Int32 flags, AliasTrans* trans) const override {
    auto* d = static_cast<GroupData*>(dest);
    d->counter = counter;
    d->target = trans ? trans->Translate(target) : target;
    for (GeListNode* n = head_->GetFirst(); n; n = n->GetNext()) {
      auto clone = static_cast<BaseList2D*>(n)->GetClone(flags, trans);
      if (!clone) return false;
      clone.release()->InsertUnderLast(d->head_.get());
    }
    return true;
  }
  Int32 ListBranches(GeListNode*, BranchInfo* info, Int32 max, Int32) const override {
    if (max < 1) return 0;
    info[0] = {head_.get(), "Members", 1039858, 1};
    return 1;
  }
  GeListHead* Head() const { return head_.get(); }

  Int32 counter = 0;
  BaseLink target;
  Int32 readLevel = -1;

 private:
  std::unique_ptr<GeListHead> head_;
};

// A tag that keeps a link in a member, as the volume tag keeps its slots.
class LinkTagData : public TagData {
 public:
  bool WriteNode(const GeListNode*, HyperFile* hf) const override { return hf->WriteLink(link) && hf->WriteString(note); }
  bool ReadNode(GeListNode*, HyperFile* hf, Int32 level) override { return hf->ReadLink(&link) && hf->ReadString(&note); }
  bool CopyNode(NodeData* dest, const GeListNode*, GeListNode*, Int32, AliasTrans* trans) const override {
    auto* d = static_cast<LinkTagData*>(dest);
    d->link = trans ? trans->Translate(link) : link;
    d->note = note;
    return true;
  }
  BaseLink link;
  String note;
};

// A scene hook that notes the events it sees and the kind of stream it writes
// into, and fails its WriteNode on request.
struct HookLog {
  std::vector<std::string> events;
  std::vector<Int32> writtenKinds;
  bool failWrite = false;
  bool refuseSave = false;
};
HookLog g_hook;

class RecordingHook : public SceneHookData {
 public:
  bool HandleMessage(GeListNode*, Int32 type, void* data) override {
    if (type != MSG_DOCUMENTINFO) return true;
    const auto* info = static_cast<DocumentInfoData*>(data);
    g_hook.events.push_back("hook " + std::to_string(info->type) + " " + std::filesystem::path(info->url).filename().string());
    return !(g_hook.refuseSave && (info->type == DOCUMENTINFO_TYPE_SAVE_BEFORE || info->type == DOCUMENTINFO_TYPE_SAVEAS_BEFORE));
  }
  bool WriteNode(const GeListNode*, HyperFile* hf) const override {
    g_hook.writtenKinds.push_back(hf->GetFileKind());
    if (g_hook.failWrite) return false;
    return hf->WriteString(state);
  }
  bool ReadNode(GeListNode*, HyperFile* hf, Int32) override { return hf->ReadString(&state); }
  String state;
};

// An object plug-in that notes the document events it sees, to check their order.
class EventObjectData : public ObjectData {
 public:
  bool HandleMessage(GeListNode*, Int32 type, void* data) override {
    if (type == MSG_DOCUMENTINFO) g_hook.events.push_back("object " + std::to_string(static_cast<DocumentInfoData*>(data)->type));
    return true;
  }
};

// A custom type of the tests: a number and a link.
class TestCustom : public CustomDataType {
 public:
  static constexpr Int32 kCustomTypeId = kCustomId;
  Int32 GetCustomTypeId() const override { return kCustomId; }
  std::unique_ptr<CustomDataType> Clone() const override { return std::make_unique<TestCustom>(*this); }
  bool IsEqual(const CustomDataType& o) const override {
    auto* t = dynamic_cast<const TestCustom*>(&o);
    return t && t->value == value && t->link == link;
  }
  Int32 value = 0;
  BaseLink link;
};

class TestCustomClass : public CustomDataTypeClass {
 public:
  Int32 GetId() const override { return kCustomId; }
  const char* GetName() const override { return "testcustom"; }
  bool Write(const CustomDataType& d, HyperFile& hf) const override {
    auto& t = static_cast<const TestCustom&>(d);
    return hf.WriteInt32(t.value) && hf.WriteLink(t.link);
  }
  std::unique_ptr<CustomDataType> Read(HyperFile& hf, Int32) const override {
    auto t = std::make_unique<TestCustom>();
    if (!hf.ReadInt32(&t->value) || !hf.ReadLink(&t->link)) return nullptr;
    return t;
  }
  std::unique_ptr<CustomDataType> TranslateLinks(const CustomDataType& d, const AliasTrans& trans) const override {
    auto& t = static_cast<const TestCustom&>(d);
    const BaseLink moved = trans.Translate(t.link);
    if (moved == t.link) return nullptr;
    auto c = std::make_unique<TestCustom>(t);
    c->link = moved;
    return c;
  }
};

constexpr Int32 kEventObjectId = 1999405;

void RegisterTestPlugins() {
  RegisterObjectPlugin(kGroupId, "Group", 0, [] { return std::make_unique<GroupData>(); }, "ogroup", 2);
  RegisterTagPlugin(kLinkTagId, "Link Tag", 0, [] { return std::make_unique<LinkTagData>(); }, "tlink", 1);
  RegisterSceneHookPlugin(kHookId, "Recording Hook", 0, [] { return std::make_unique<RecordingHook>(); }, 3000, 0);
  RegisterObjectPlugin(kEventObjectId, "Event Object", 0, [] { return std::make_unique<EventObjectData>(); }, "", 0);
  RegisterCustomDataTypeClass(std::make_unique<TestCustomClass>());
}

void UnregisterTestPlugins() {
  UnregisterPlugin(kGroupId);
  UnregisterPlugin(kLinkTagId);
  UnregisterPlugin(kHookId);
  UnregisterPlugin(kEventObjectId);
  UnregisterCustomDataTypeClass(kCustomId);
}

struct Plugins {
  Plugins() { RegisterTestPlugins(); }
  ~Plugins() { UnregisterTestPlugins(); }
};

// What the test plug-ins hold, for the dump.
SceneDump Dump() {
  return SceneDump([](const BaseList2D& n, const BaseDocument& doc, std::ostream& o) {
    if (auto* g = dynamic_cast<const GroupData*>(n.GetNodeData()))
      o << "  group " << g->counter << " -> " << SceneDump::Where(g->target.GetLink(&doc)) << "\n";
    if (auto* t = dynamic_cast<const LinkTagData*>(n.GetNodeData()))
      o << "  linktag '" << t->note << "' -> " << SceneDump::Where(t->link.GetLink(&doc)) << "\n";
    if (auto* h = dynamic_cast<const RecordingHook*>(n.GetNodeData())) o << "  hook '" << h->state << "'\n";
  });
}

BaseObject* Add(BaseDocument* doc, std::unique_ptr<BaseObject> op, const char* name, BaseObject* parent = nullptr) {
  BaseObject* p = op.release();
  p->SetName(name);
  if (parent) p->InsertUnderLast(parent);
  else p->InsertUnderLast(doc->GetObjectListHead());
  return p;
}

// A scene of every host object type and tag, every value type of GeData,
// every custom type, links of every kind, a plug-in node with a branch, a
// plug-in tag and a scene hook.
std::unique_ptr<BaseDocument> MakeScene() {
  auto doc = BaseDocument::Alloc();
  doc->SetFps(25);
  doc->SetTimeRange(BaseTime(-1, 5), BaseTime(7, 2));
  doc->SetTime(BaseTime(3, 25));
  SetDocumentUnit(doc.get(), UnitScaleData(2.5, DOCUMENTUNIT::MM));
  doc->GetDataInstance()->SetString(100, "document note");

  BaseObject* group = Add(doc.get(), BaseObject::Alloc(HOST_TYPE_NULL), "group");
  group->SetMl(MatrixMove(Vector(1, 2, 3)) * MatrixRotY(0.3));
  group->SetFrozenMatrix(MatrixScale(Vector(2, 1, 1)) * MatrixRotX(0.1));
  group->SetEditorMode(MODE_OFF);
  group->SetRenderMode(MODE_ON);
  group->SetDeformMode(false);
  group->SetBit(BIT_CONTROLOBJECT);

  auto mesh = PolygonObject::Alloc(5, 2);
  for (int i = 0; i < 5; ++i) mesh->GetPointW()[i] = Vector(i * 0.1, i * i * 0.3, -i / 3.0);
  mesh->GetPolygonW()[0] = CPolygon(0, 1, 2);
  mesh->GetPolygonW()[1] = CPolygon(1, 2, 3, 4);
  auto uvw = UVWTag::Alloc(2);
  uvw->Set(0, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 1, 0}});
  uvw->Set(1, {{0.25, 0.5, 0}, {1, 1, 0}, {0, 0.75, 0}, {0.125, 0, 0}});
  mesh->InsertTag(uvw.release(), mesh->GetTag(HOST_TAG_POLYGON));
  auto vmap = VertexMapTag::Alloc(5);
  for (int i = 0; i < 5; ++i) vmap->GetDataAddressW()[i] = float(i) / 7.0f;
  vmap->SetName("weights");
  mesh->InsertTag(vmap.release());
  mesh->InsertTag(PhongTag::Alloc().release());
  BaseObject* meshOp = Add(doc.get(), std::move(mesh), "mesh", group);

  auto spline = SplineObject::Alloc(5, SPLINETYPE::AKIMA);
  for (int i = 0; i < 5; ++i) spline->GetPointW()[i] = Vector(i, std::sin(i), 0);
  spline->SetSegments({{2, true}, {3, false}});
  Add(doc.get(), std::move(spline), "spline", group);
  auto line = LineObject::Alloc(3);
  line->GetPointW()[2] = Vector(1, 1, 1);
  Add(doc.get(), std::move(line), "line", meshOp);

  auto sphere = BaseObject::Alloc(HOST_TYPE_SPHERE);
  sphere->GetDataInstance()->SetFloat(PRIM_SPHERE_RAD, 42.5);
  BaseObject* sphereOp = Add(doc.get(), std::move(sphere), "sphere");
  // A node that lacks one of its defaults.
  Add(doc.get(), BaseObject::Alloc(HOST_TYPE_CUBE), "cube")->GetDataInstance()->RemoveData(PRIM_CUBE_SUBY);
  auto emitter = BaseObject::Alloc(HOST_TYPE_EMITTER);
  emitter->GetDataInstance()->SetFloat(EMITTER_BIRTHRATE, 12.0);
  Add(doc.get(), std::move(emitter), "emitter");
  auto particles = ParticleGroupObject::Alloc();
  particles->SetParticles({{1, 2, 3}, {4, 5, 6}}, {0.5, 0.25}, {{0, 1, 0}, {1, 0, 0}});
  Add(doc.get(), std::move(particles), "particles");
  Add(doc.get(), BaseObject::Alloc(HOST_TYPE_MATRIX), "matrix");

  // A field list whose layers stand at linked objects.
  FieldList fields;
  auto sph = std::make_unique<SphericalFieldLayer>(3.0, 0.25);
  sph->SetLinkedObject(sphereOp);
  sph->SetBlend(FIELDBLEND::MAX);
  fields.InsertLayer(std::move(sph));
  auto lin = std::make_unique<LinearFieldLayer>(7.0);
  lin->SetMatrix(MatrixMove(Vector(0, 0, 1)));
  lin->SetStrength(0.5);
  fields.InsertLayer(std::move(lin));
  fields.InsertLayer(std::make_unique<BoxFieldLayer>(Vector(1, 2, 3), 0.1));
  auto noise = std::make_unique<NoiseFieldLayer>(0.75, 17);
  noise->SetEnabled(false);
  noise->SetLinkedObject(meshOp);
  fields.InsertLayer(std::move(noise));
  auto fieldObject = FieldObject::Alloc(HOST_TYPE_FIELD_OBJECT);
  fieldObject->SetFieldList(fields);
  BaseObject* fieldOp = Add(doc.get(), std::move(fieldObject), "field");
  Add(doc.get(), FieldObject::Alloc(HOST_TYPE_FIELD_CARRIER), "carrier", fieldOp);

  // Every value type, links in a container, a nested container and custom values.
  BaseContainer* bc = meshOp->GetDataInstance();
  bc->SetInt32(1, -7);
  bc->SetInt64(2, Int64(1) << 40);
  bc->SetBool(3, true);
  bc->SetFloat(4, 1.0 / 3.0);
  bc->SetVector(5, Vector(1e-300, -0.0, 7));
  bc->SetMatrix(6, MatrixRotZ(1.0) * MatrixMove(Vector(5, 6, 7)));
  bc->SetString(7, "caf\xc3\xa9 \"quoted\"\n");
  bc->SetTime(8, BaseTime(-5, 3));
  bc->SetLink(9, sphereOp);
  bc->SetData(10, GeData());
  BaseContainer inner(77);
  inner.SetLink(1, group);
  inner.SetFloat(2, 2.5);
  BaseContainer deeper;
  deeper.SetLink(5, fieldOp);
  inner.SetContainer(3, deeper);
  bc->SetContainer(11, inner);
  auto curve = SplineData::MakeLinear();
  curve->SetRange(0, 2, -1, 1);
  curve->InsertKnot(0.5, 0.75, CURVEINTERPOLATION::STEP);
  bc->SetCustomData(12, curve);
  auto custom = std::make_shared<TestCustom>();
  custom->value = 99;
  custom->link.SetLink(group);
  bc->SetCustomData(13, custom);
  bc->SetLink(14, nullptr);

  // A plug-in node with a branch, whose members link back into the tree.
  BaseObject* set = Add(doc.get(), BaseObject::Alloc(kGroupId), "set");
  auto* setData = set->GetNodeData<GroupData>();
  setData->counter = 5;
  setData->target.SetLink(meshOp);
  auto member = BaseObject::Alloc(HOST_TYPE_NULL);
  member->SetName("member");
  member->GetDataInstance()->SetLink(1, sphereOp);
  BaseObject* memberOp = member.get();
  member.release()->InsertUnderLast(setData->Head());
  auto nested = BaseObject::Alloc(HOST_TYPE_CUBE);
  nested->SetName("nested");
  nested->InsertUnderLast(memberOp);
  nested.release();
  sphereOp->GetDataInstance()->SetLink(2, memberOp);

  auto* tag = sphereOp->MakeTag(kLinkTagId);
  tag->SetName("tag");
  tag->GetNodeData<LinkTagData>()->link.SetLink(memberOp);
  tag->GetNodeData<LinkTagData>()->note = "member";

  // An item tree whose rows link into the tree and into the branch, one with
  // a child and a row container that links too; a check list.
  auto tree = std::make_shared<ItemTree>();
  BaseContainer row;
  row.SetLink(1, meshOp);
  row.SetFloat(2, 0.5);
  ItemTreeItem* first = tree->InsertItem(nullptr, nullptr, TREEITEM_CHECKED, GeData(row), sphereOp);
  tree->InsertItem(first, nullptr, TREEITEM_OPEN | 0x4000, GeData(Int32(3)), memberOp);
  tree->InsertItem(nullptr, first, 0, GeData(), static_cast<const BaseList2D*>(nullptr));
  sphereOp->GetDataInstance()->SetCustomData(20, tree);
  auto checks = std::make_shared<CheckListData>();
  checks->SetEntries({"density", "temperature", "density"});
  checks->SetChecked(1, false);
  sphereOp->GetDataInstance()->SetCustomData(21, checks);

  Add(doc.get(), BaseObject::Alloc(kEventObjectId), "listener");
  static_cast<RecordingHook*>(doc->FindSceneHook(kHookId)->GetNodeData())->state = "hook state";
  doc->SetActiveObject(sphereOp);
  return doc;
}

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void Spit(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

size_t FilesIn(const std::string& dir) {
  return size_t(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()));
}

std::unique_ptr<BaseDocument> Load(const std::vector<char>& bytes) {
  auto r = LoadDocumentFromMemory(bytes.data(), Int64(bytes.size()));
  EXPECT_TRUE(r) << r.GetError().GetMessage();
  return r ? std::move(r.GetValue()) : nullptr;
}

BaseObject* Find(BaseDocument* doc, const char* name) {
  BaseObject* found = nullptr;
  doc->ForEachNode([&](BaseList2D* n) {
    if (n->GetName() == name && dynamic_cast<BaseObject*>(n)) found = static_cast<BaseObject*>(n);
    return found != nullptr;
  });
  return found;
}


// Every link of a loaded scene leads to the loaded node of the same name:
// in containers, custom values, item-tree rows and plug-in data, into a
// plug-in's branch and back.
inline void CheckLinks(BaseDocument* d, const char* what) {
  SCOPED_TRACE(what);
  BaseObject* mesh = Find(d, "mesh");
  BaseObject* sphere = Find(d, "sphere");
  BaseObject* member = Find(d, "member");
  ASSERT_TRUE(mesh && sphere && member);
  auto tree = sphere->GetDataInstance()->GetCustomDataTyped<ItemTree>(20);
  ASSERT_TRUE(tree && tree->GetFirst() && tree->GetFirst()->GetDown());
  EXPECT_EQ(tree->GetFirst()->GetLink().GetLink(d), sphere);
  EXPECT_EQ(tree->GetFirst()->GetDown()->GetLink().GetLink(d), member);
  EXPECT_EQ(tree->GetFirst()->GetData().GetContainer()->GetLink(1, d), mesh);
  EXPECT_EQ(mesh->GetDataInstance()->GetLink(9, d), sphere);
  EXPECT_EQ(mesh->GetDataInstance()->GetContainerInstance(11)->GetLink(1, d), Find(d, "group"));
  EXPECT_EQ(mesh->GetDataInstance()->GetContainerInstance(11)->GetContainerInstance(3)->GetLink(5, d), Find(d, "field"));
  auto fields = static_cast<FieldObject*>(Find(d, "field"))->GetFieldList();
  EXPECT_EQ(fields->GetLayer(0)->GetLinkedObject().GetLink(d), sphere);
  EXPECT_EQ(fields->GetLayer(3)->GetLinkedObject().GetLink(d), mesh);
  auto custom = mesh->GetDataInstance()->GetCustomDataTyped<TestCustom>(13);
  ASSERT_TRUE(custom);
  EXPECT_EQ(custom->link.GetLink(d), Find(d, "group"));
  // Into a plug-in's branch and back out of it.
  EXPECT_EQ(sphere->GetDataInstance()->GetLink(2, d), member);
  EXPECT_EQ(member->GetDataInstance()->GetLink(1, d), sphere);
  EXPECT_EQ(Find(d, "set")->GetNodeData<GroupData>()->target.GetLink(d), mesh);
  EXPECT_EQ(sphere->GetTag(kLinkTagId)->GetNodeData<LinkTagData>()->link.GetLink(d), member);
  EXPECT_EQ(d->FindByMarker(member->GetMarker()), member);
  EXPECT_EQ(d->FindByMarker(Find(d, "nested")->GetMarker()), Find(d, "nested"));
}

}  // namespace
