// The Volume Set: members in a branch of their own, the item tree that lists
// them, the cache of the listed members, and the one file of the set.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "host/scene/hyperfile.h"
#include "host/scene/itemtree.h"
#include "host/scene/parameters.h"
#include "host/scene/scenefile.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumeset.h"
#include "support/run.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;
using zta::Vector;
namespace fs = std::filesystem;

namespace {

Volume Sphere(double radius, const Vector& centre, const std::string& name) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, centre, 0.1, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  Volume v = *r;
  v.SetGridName(name);
  return v;
}

std::string WriteFile(const fs::path& path, const std::vector<Volume>& volumes) {
  EXPECT_TRUE(VolumeToolsInterface::SaveVDBFile(Url::FromSystemPath(path.string()), 1.0, volumes, DataDictionary()).IsOk());
  return path.string();
}

VolumeSetData* SetOf(zta::BaseObject* op) { return op ? op->GetNodeData<VolumeSetData>() : nullptr; }

zta::BaseObject* InsertSet(zta::BaseDocument& doc, const std::string& name) {
  std::unique_ptr<zta::BaseObject> made = zta::AllocObject(ID_VOLUMESET);
  EXPECT_NE(made, nullptr);
  made->SetName(name);
  zta::BaseObject* op = made.release();
  doc.InsertObject(op);
  return op;
}

std::vector<std::string> MemberNames(zta::BaseObject* set) {
  std::vector<std::string> names;
  for (zta::BaseObject* m = SetOf(set)->GetFirstMember(); m; m = m->GetNext()) names.push_back(m->GetName());
  return names;
}

// The names of the objects of the set's cache, each with a grid.
std::vector<std::string> Build(zta::BaseDocument& doc, zta::BaseObject* set) {
  zta::HierarchyHelp hh(&doc, nullptr, 0, set);
  std::unique_ptr<zta::BaseObject> cache(SetOf(set)->BuildVirtualObjects(set, &hh));
  EXPECT_NE(cache, nullptr);
  std::vector<std::string> names;
  if (!cache) return names;
  EXPECT_EQ(cache->GetType(), zta::HOST_TYPE_NULL);
  for (zta::BaseObject* c = cache->GetDown(); c; c = c->GetNext()) {
    EXPECT_EQ(c->GetType(), ID_VOLUMEOBJECT);
    EXPECT_TRUE(VolumeObjectData::GetVolume(c).HasGrid());
    names.push_back(c->GetName());
  }
  return names;
}

using Names = std::vector<std::string>;

}  // namespace

TEST(VolumeSet, KeepsItsMembersInABranchAndBuildsTheListedOnes) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* set = InsertSet(*doc, "Pair");
  zta::BranchInfo branches[2];
  ASSERT_EQ(SetOf(set)->ListBranches(set, branches, 2, 0), 1);
  EXPECT_EQ(branches[0].head, SetOf(set)->GetListHead());
  EXPECT_EQ(branches[0].name, "Volumes");
  EXPECT_EQ(branches[0].id, ID_VOLUMEOBJECT);
  EXPECT_EQ(branches[0].flags, 1);
  EXPECT_EQ(SetOf(set)->ListBranches(set, branches, 0, 0), 0);

  // An empty set builds an empty Null.
  EXPECT_EQ(Build(*doc, set), Names{});
  EXPECT_EQ(set->GetDataInstance()->GetString(VOLUMESET_INFO_SIZE), VolumeObjectData::InfoSizeText(0, 0));

  // A file of two grids gives two members in file order, named by the grids.
  const fs::path dir = zvtest::TempDir();
  const Volume a = Sphere(1.0, Vector(0.0), "a"), b = Sphere(0.5, Vector(2.0, 0.0, 0.0), "b");
  const std::string two = WriteFile(dir / "two.vdb", {a, b});
  ASSERT_TRUE(zta::SetParameter(set, zta::DescID(VOLUMESET_FILE), zta::GeData(two)));
  EXPECT_EQ(MemberNames(set), (Names{"a", "b"}));
  EXPECT_TRUE(SetOf(set)->IsFileFound());
  EXPECT_EQ(Build(*doc, set), (Names{"a", "b"}));
  EXPECT_NE(set->GetDataInstance()->GetString(VOLUMESET_INFO_SIZE), VolumeObjectData::InfoSizeText(0, 0));
  // The members are nodes of the document: found by a walk, not on the object tree.
  int seen = 0;
  doc->ForEachNode([&](zta::BaseList2D* n) {
    seen += n->GetType() == ID_VOLUMEOBJECT;
    return false;
  }, false);
  EXPECT_EQ(seen, 2);
  EXPECT_EQ(doc->SearchObject("a"), nullptr);
  EXPECT_TRUE(VolumeObjectData::IsInsideVolumeSet(SetOf(set)->GetFirstMember()));

  // A row taken out of the tree leaves the cache at the next build.
  auto* tree = set->GetDataInstance()->GetCustomDataWritableTyped<zta::ItemTree>(VOLUMESET_TREE);
  ASSERT_NE(tree, nullptr);
  ASSERT_NE(tree->GetFirst(), nullptr);
  tree->RemoveItem(tree->GetFirst());
  EXPECT_EQ(Build(*doc, set), (Names{"b"}));

  // A volume object dropped on the tree leaves the object tree for the set.
  std::unique_ptr<zta::BaseObject> loose = VolumeObjectData::MakeObject(Sphere(0.25, Vector(0.0, 3.0, 0.0), "c"));
  loose->SetName("c");
  zta::BaseObject* c = loose.release();
  doc->InsertObject(c);
  ASSERT_TRUE(tree->Drop({c}, nullptr, tree->GetFirst()));
  EXPECT_EQ(doc->SearchObject("c"), nullptr);
  EXPECT_EQ(MemberNames(set), (Names{"a", "b", "c"}));
  EXPECT_EQ(Build(*doc, set), (Names{"b", "c"}));
  // Anything else is refused.
  std::unique_ptr<zta::BaseObject> null = zta::AllocObject(zta::HOST_TYPE_NULL);
  zta::BaseObject* n = null.release();
  doc->InsertObject(n);
  EXPECT_FALSE(tree->Drop({n}));
  EXPECT_EQ(doc->GetFirstObject(), n);

  // A file of one grid makes a set of one.
  const std::string one = WriteFile(dir / "one.vdb", {Sphere(0.75, Vector(0.0), "solo")});
  ASSERT_TRUE(zta::SetParameter(set, zta::DescID(VOLUMESET_FILE), zta::GeData(one)));
  EXPECT_EQ(MemberNames(set), (Names{"solo"}));
  EXPECT_EQ(Build(*doc, set), (Names{"solo"}));
}

TEST(VolumeSet, ASceneKeepsTheSetInOneStampedFileAndCopiesKeepTheGrids) {
  const fs::path dir = zvtest::TempDir();
  const Volume a = Sphere(1.0, Vector(0.5, 0.0, 0.25), "a"), b = Sphere(0.5, Vector(-2.0, 0.0, 0.0), "b");
  const std::string source = WriteFile(dir / "source.vdb", {a, b});
  auto doc = zta::AllocDocument();
  zta::BaseObject* set = InsertSet(*doc, "Pair");
  ASSERT_TRUE(zta::SetParameter(set, zta::DescID(VOLUMESET_FILE), zta::GeData(source)));
  // The file moves beside the scene: a bare name.
  ASSERT_TRUE(zta::SetParameter(set, zta::DescID(VOLUMESET_FILE), zta::GeData(std::string("Pair.vdb"))));
  SetOf(set)->GetFirstMember()->SetName("first");

  const fs::path scene = dir / "scene.zscene";
  auto saved = zta::SaveDocument(doc.get(), scene.string());
  ASSERT_TRUE(saved.IsOk()) << saved.GetError().GetMessage();
  const Url written = Url::FromSystemPath((dir / "vol" / "Pair.vdb").string());
  auto names = VolumeToolsInterface::GetGridNamesFromFile(written);
  ASSERT_TRUE(names.IsOk());
  // OpenVDB's file lists its grids by name, whatever order they were written in.
  EXPECT_EQ(*names, (Names{"b", "first"}));
  auto meta = VolumeToolsInterface::GetMetaDataFromFile(written);
  ASSERT_TRUE(meta.IsOk());
  std::string stamp;
  for (const DataDictionary& entry : *meta)
    if (const auto* text = entry.Get("source_zta_file").TryGet<std::string>()) stamp = *text;
  EXPECT_EQ(stamp, "scene.zscene");

  auto loaded = zta::LoadDocument(scene.string());
  ASSERT_TRUE(loaded.IsOk()) << loaded.GetError().GetMessage();
  zta::BaseObject* read = (*loaded)->SearchObject("Pair");
  ASSERT_NE(read, nullptr);
  ASSERT_EQ(read->GetType(), ID_VOLUMESET);
  EXPECT_EQ(MemberNames(read), (Names{"b", "first"}));
  zta::BaseObject* m = SetOf(read)->GetFirstMember();
  for (const Volume& original : {b, a}) {
    ASSERT_NE(m, nullptr);
    const Volume v = VolumeObjectData::GetVolume(m);
    ASSERT_TRUE(v.HasGrid());
    EXPECT_EQ(v.GetActiveVoxelCount(), original.GetActiveVoxelCount());
    EXPECT_NEAR(v.GetGridTransform().off.x, original.GetGridTransform().off.x, 1e-9);
    EXPECT_NEAR(v.GetGridTransform().off.z, original.GetGridTransform().off.z, 1e-9);
    m = m->GetNext();
  }
  EXPECT_EQ(Build(**loaded, read), (Names{"b", "first"}));

  // Undo copies carry the grids in the members.
  auto bytes = zta::SaveDocumentToMemory(*doc, zta::HYPERFILE_KIND_UNDO);
  ASSERT_TRUE(bytes.IsOk());
  auto copy = zta::LoadDocumentFromMemory(bytes->data(), zta::Int64(bytes->size()));
  ASSERT_TRUE(copy.IsOk()) << copy.GetError().GetMessage();
  zta::BaseObject* copied = (*copy)->SearchObject("Pair");
  ASSERT_NE(copied, nullptr);
  EXPECT_EQ(Build(**copy, copied), (Names{"first", "b"}));

  // A clone has members of its own, listed by its own tree.
  std::unique_ptr<zta::BaseList2D> clone = set->GetClone();
  ASSERT_NE(clone, nullptr);
  auto* cloned = static_cast<zta::BaseObject*>(clone.release());
  doc->InsertObject(cloned);
  EXPECT_EQ(MemberNames(cloned), (Names{"first", "b"}));
  EXPECT_NE(SetOf(cloned)->GetFirstMember(), SetOf(set)->GetFirstMember());
  EXPECT_EQ(Build(*doc, cloned), (Names{"first", "b"}));
}

TEST(VolumeSet, AVolumeObjectGivenAFileOfSeveralGridsBecomesASetOfThem) {
  const fs::path dir = zvtest::TempDir();
  const std::string two = WriteFile(dir / "two.vdb", {Sphere(1.0, Vector(0.0), "a"), Sphere(0.5, Vector(0.0), "b")});
  auto doc = zta::AllocDocument();
  std::unique_ptr<zta::BaseObject> made = VolumeObjectData::MakeObject(Volume());
  made->SetName("Pair");
  zta::BaseObject* op = made.release();
  doc->InsertObject(op);
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(two)));
  ASSERT_EQ(op->GetNodeData<VolumeObjectData>()->ExecuteObject(op, doc.get(), nullptr, zta::EXECUTIONPRIORITY_INITIAL, 0),
            zta::EXECUTIONRESULT::OK);
  zta::BaseObject* set = doc->SearchObject("Pair");
  ASSERT_NE(set, nullptr);
  ASSERT_EQ(set->GetType(), ID_VOLUMESET);
  // The set takes the object's file as it was, not a numbered name.
  EXPECT_EQ(set->GetDataInstance()->GetString(VOLUMESET_FILE), two);
  EXPECT_EQ(MemberNames(set), (Names{"a", "b"}));
  EXPECT_EQ(Build(*doc, set), (Names{"a", "b"}));
}
