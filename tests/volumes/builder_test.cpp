// The Volume Builder: its layer model and settings tag, its results against
// the same chain of volume commands done by hand, incremental rebuilds, the
// rebuild lock, and scenes that are wrong.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "host/scene/basecontainer.h"
#include "host/scene/basetag.h"
#include "host/scene/hyperfile.h"
#include "host/scene/parameters.h"
#include "host/scene/scenefile.h"
#include "host/ui/dialogs.h"
#include "host/ui/hostmode.h"
#include "modules/volumes/source/objects/volumebuildertag.h"
#include "support/builder_support.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using namespace zvtest;
using zta::Vector;

namespace {

zta::BaseContainer MeshSettings(double voxel, zta::Int32 exterior, zta::Int32 interior) {
  zta::BaseContainer bc;
  bc.SetFloat(MESHTOVOLUME_GRIDSIZE, voxel);
  bc.SetInt32(MESHTOVOLUME_EXTERIORBAND, exterior);
  bc.SetInt32(MESHTOVOLUME_INTERIORBAND, interior);
  // The builder makes every input in its own grid frame.
  bc.SetMatrix(MESHTOVOLUME_TRANSFORM, zta::MatrixScale(Vector(voxel, voxel, voxel)));
  return bc;
}

zta::Int64 Conversions(zta::BaseObject* b) { return BuilderOf(b)->GetStatistics().conversions; }
zta::Int64 Folds(zta::BaseObject* b) { return BuilderOf(b)->GetStatistics().folds; }

// Rows of the builder's list at the top level, in order.
std::vector<zta::ItemTreeItem*> Rows(zta::BaseObject* b) {
  std::vector<zta::ItemTreeItem*> rows;
  for (zta::ItemTreeItem* i = VolumeBuilderData::GetTree(b)->GetFirst(); i; i = i->GetNext()) rows.push_back(i);
  return rows;
}

// A thread reference that holds the first caller of TestBreak until released.
class Gate : public zta::ZTAThread {
 public:
  bool TestBreak() const override {
    if (!entered_.exchange(true)) {
      const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
      while (!released_.load() && std::chrono::steady_clock::now() < until) std::this_thread::yield();
    }
    return false;
  }
  bool WaitEntered() const {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!entered_.load() && std::chrono::steady_clock::now() < until) std::this_thread::yield();
    return entered_.load();
  }
  void Release() { released_.store(true); }

 private:
  mutable std::atomic<bool> entered_{false};
  std::atomic<bool> released_{false};
};

}  // namespace

TEST(BuilderModel, ParametersRowsAndTagsStartWithTheirDefaults) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 4.0);
  const zta::BaseContainer* bc = b->GetDataInstance();
  EXPECT_EQ(bc->GetInt32(VOLUMEBUILDER_MESH_EXTERIOR_BAND), 2);
  EXPECT_EQ(bc->GetInt32(VOLUMEBUILDER_SPLINE_BAND), 2);
  EXPECT_TRUE(bc->GetBool(VOLUMEBUILDER_AUTOUPDATE));
  zta::BranchInfo branches[3];
  EXPECT_EQ(BuilderOf(b)->ListBranches(b, branches, 3, 0), 2);
  EXPECT_EQ(branches[0].id, ID_VOLUMEFILTER);
  EXPECT_EQ(branches[1].id, ID_VOLUMEFILTER);
  EXPECT_EQ(BuilderOf(b)->ListBranches(b, branches, 1, 0), 1);

  // A voxel size of zero is stored as 0.001.
  EXPECT_TRUE(zta::SetParameter(b, zta::DescID(VOLUMEBUILDER_VOXELSIZE), zta::GeData(0.0)));
  EXPECT_DOUBLE_EQ(bc->GetFloat(VOLUMEBUILDER_VOXELSIZE), 0.001);
  b->GetDataInstance()->SetFloat(VOLUMEBUILDER_VOXELSIZE, 4.0);

  // Rows: an input (a child), a link, a folder; each input gets its tag.
  zta::ItemTreeItem* child = AddInput(*doc, b, SphereMesh(10, Vector()), "ball", true);
  zta::ItemTreeItem* link = AddInput(*doc, b, CubeMesh(10, Vector()), "box", false);
  zta::ItemTreeItem* folder = AddFolder(b);
  ASSERT_TRUE(child && link && folder);
  EXPECT_EQ(child->GetFlags() & ~LAYERFLAG_SELECTED, (LAYERFLAGS_NEWINPUT | LAYERFLAG_CHILD | LAYERFLAG_INITIALISED) & ~LAYERFLAG_SELECTED);
  EXPECT_EQ(link->GetFlags() & LAYERFLAG_CHILD, 0);
  EXPECT_NE(folder->GetFlags() & LAYERFLAG_FOLDER, 0);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(child, BUILDERTYPE_SDF), 1);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(child, BUILDERTYPE_VECTOR), 1);
  EXPECT_EQ(child->GetData().GetContainer()->GetString(LAYER_COMMENT), "Child");
  EXPECT_EQ(link->GetData().GetContainer()->GetString(LAYER_COMMENT), "Link");
  VolumeBuilderData::SetLayerMode(child, BUILDERTYPE_SDF, 9);  // out of range reads as 0
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(child, BUILDERTYPE_SDF), 0);
  VolumeBuilderData::SetLayerMode(child, BUILDERTYPE_FOG, 7);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(child, BUILDERTYPE_FOG), 7);

  zta::BaseObject* ball = doc->SearchObject("ball");
  zta::BaseTag* tag = FindTag(b, ball);
  ASSERT_NE(tag, nullptr);
  EXPECT_EQ(tag->GetName(), "ball settings");
  const InputSettings s = ReadInputSettings(tag);
  EXPECT_DOUBLE_EQ(s.radius, 6.0);  // voxel size 4: 1.5 voxels
  EXPECT_EQ(s.boxSize, Vector(80, 80, 80));
  EXPECT_EQ(s.kindMask & INPUTKIND_POLYGON, INPUTKIND_POLYGON);
  EXPECT_EQ(s.vectorMode, 1);
  tag->GetDataInstance()->SetBool(VOLUMEBUILDERTAG_FILLINTERIOR, true);
  EXPECT_EQ(ReadInputSettings(tag).interiorBand, 2147483647);
  // No tag reads as the defaults of an untagged input.
  EXPECT_DOUBLE_EQ(ReadInputSettings(nullptr).radius, 15.0);
  EXPECT_DOUBLE_EQ(ReadInputSettings(nullptr).fogThreshold, 0.001);
}

TEST(BuilderModel, KindMasksSayWhatAHierarchyHolds) {
  auto doc = zta::AllocDocument();
  auto group = zta::AllocObject(zta::HOST_TYPE_PARTICLE_GROUP);
  ASSERT_NE(group, nullptr);
  EXPECT_EQ(ComputeKindMask(group.get()), INPUTKIND_PARTICLES);
  auto null = zta::AllocObject(zta::HOST_TYPE_NULL);
  SphereMesh(1, Vector()).release()->InsertUnderLast(null.get());
  auto spline = zta::AllocObject(zta::HOST_TYPE_SPLINE);
  ASSERT_NE(spline, nullptr);
  spline.release()->InsertUnderLast(null.get());
  EXPECT_EQ(ComputeKindMask(null.get()), INPUTKIND_POLYGON | INPUTKIND_SPLINE);
  auto sphere = zta::AllocObject(zta::HOST_TYPE_SPHERE);
  ASSERT_NE(sphere, nullptr);
  EXPECT_NE(ComputeKindMask(sphere.get()) & INPUTKIND_SPHERE, 0);
  sphere->GetDataInstance()->SetInt32(1112, 5);  // a hemisphere is no sphere
  EXPECT_EQ(ComputeKindMask(sphere.get()) & INPUTKIND_SPHERE, 0);
  auto sdf = VolumeObjectData::MakeObject(*VolumeToolsInterface::CreateSphereVolume(1, Vector(), 0.1, 3, nullptr, nullptr));
  EXPECT_EQ(ComputeKindMask(sdf.get()), INPUTKIND_SDF);

  // The tag of a particle group says so from the start.
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 1.0);
  auto made = zta::AllocObject(zta::HOST_TYPE_PARTICLE_GROUP);
  zta::BaseObject* g = made.get();
  AddInput(*doc, b, std::move(made), "particles", false);
  EXPECT_TRUE(FindTag(b, g)->GetDataInstance()->GetBool(VOLUMEBUILDERTAG_PARTICLEGROUP));
}

TEST(BuilderModel, ScenesAndCopiesKeepTheListAndTheSettings) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 1, 0.1);
  AddInput(*doc, b, SphereMesh(1, Vector()), "ball", true);
  AddInput(*doc, b, CubeMesh(1, Vector(1, 0, 0)), "box", false);
  VolumeBuilderData::SetLayerMode(Rows(b)[1], BUILDERTYPE_FOG, 5);
  FindTag(b, doc->SearchObject("ball"))->GetDataInstance()->SetFloat(VOLUMEBUILDERTAG_RADIUS, 0.75);
  Evaluate(*doc);
  ASSERT_EQ(CacheVolumes(b).size(), 1u);

  // A copy keeps the list but none of the results: it rebuilds.
  std::unique_ptr<zta::BaseList2D> copy = b->GetClone();
  auto* c = static_cast<zta::BaseObject*>(copy.get());
  ASSERT_NE(BuilderOf(c), nullptr);
  EXPECT_EQ(BuilderOf(c)->GetEvalNodeCount(), 0u);
  EXPECT_GT(BuilderOf(b)->GetEvalNodeCount(), 0u);
  EXPECT_EQ(Rows(c).size(), 2u);

  auto bytes = zta::SaveDocumentToMemory(*doc, zta::HYPERFILE_KIND_UNDO);
  ASSERT_TRUE(bytes);
  auto loaded = zta::LoadDocumentFromMemory(bytes->data(), zta::Int64(bytes->size()));
  ASSERT_TRUE(loaded) << loaded.GetError().GetMessage();
  zta::BaseObject* lb = (*loaded)->SearchObject("B");
  ASSERT_NE(BuilderOf(lb), nullptr);
  const auto rows = Rows(lb);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(VolumeBuilderData::GetLayerMode(rows[1], BUILDERTYPE_FOG), 5);
  EXPECT_NE(rows[0]->GetFlags() & LAYERFLAG_INITIALISED, 0);
  // The tag is found again by its link alone.
  zta::BaseTag* tag = FindTag(lb, (*loaded)->SearchObject("ball"));
  ASSERT_NE(tag, nullptr);
  EXPECT_DOUBLE_EQ(tag->GetDataInstance()->GetFloat(VOLUMEBUILDERTAG_RADIUS), 0.75);
  Evaluate(**loaded);
  ExpectSameFloatVolume(CacheVolumes(lb).at(0), CacheVolumes(b).at(0));
}

TEST(BuilderEdgeCases, ListShapesGiveTheirResults) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  // Empty: an empty Null, and the info text says zero.
  Evaluate(*doc);
  ASSERT_NE(b->GetCache(), nullptr);
  EXPECT_EQ(b->GetCache()->GetType(), zta::HOST_TYPE_NULL);
  EXPECT_EQ(b->GetCache()->GetDown(), nullptr);
  EXPECT_NE(b->GetDataInstance()->GetString(VOLUMEBUILDER_INFO).find('0'), std::string::npos);

  // One result is not wrapped.
  AddInput(*doc, b, SphereMesh(1, Vector()), "a", true);
  Evaluate(*doc);
  ASSERT_EQ(b->GetCache()->GetType(), ID_VOLUMEOBJECT);
  EXPECT_EQ(b->GetCache()->GetName(), "B");
  EXPECT_FALSE(b->GetDataInstance()->GetString(VOLUMEBUILDER_INFO).empty());

  // Two rows with mode 0 stand beside each other: two results under a Null.
  AddInput(*doc, b, SphereMesh(1, Vector(3, 0, 0)), "b", true);
  for (zta::ItemTreeItem* r : Rows(b)) VolumeBuilderData::SetLayerMode(r, BUILDERTYPE_SDF, 0);
  Evaluate(*doc);
  ASSERT_EQ(b->GetCache()->GetType(), zta::HOST_TYPE_NULL);
  ASSERT_EQ(CacheVolumes(b).size(), 2u);
  EXPECT_EQ(b->GetCache()->GetDown()->GetName(), "B.1");
  EXPECT_EQ(b->GetCache()->GetDown()->GetNext()->GetName(), "B.2");
  // Renaming the builder renames its results without a rebuild.
  const zta::Int64 rebuilds = BuilderOf(b)->GetStatistics().rebuilds;
  b->SetName("C");
  Evaluate(*doc);
  EXPECT_EQ(b->GetCache()->GetDown()->GetName(), "C.1");
  EXPECT_EQ(BuilderOf(b)->GetStatistics().rebuilds, rebuilds);
}

TEST(BuilderEdgeCases, AFolderWithoutCheckMarkTakesItsChildrenOut) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  zta::ItemTreeItem* folder = AddFolder(b);
  AddInput(*doc, b, SphereMesh(1, Vector(3, 0, 0)), "in folder", true, folder);
  AddInput(*doc, b, SphereMesh(1, Vector()), "base", true);
  Evaluate(*doc);
  const Volume both = CacheVolumes(b).at(0);

  folder->SetFlags(folder->GetFlags() & ~LAYERFLAG_ENABLED);
  VolumeBuilderData::GetTree(b)->Changed();
  Evaluate(*doc);
  const Volume alone = CacheVolumes(b).at(0);
  EXPECT_LT(alone.GetActiveVoxelCount(), both.GetActiveVoxelCount());

  // The base alone by hand.
  auto base = SphereMesh(1, Vector());
  ExpectSameFloatVolume(alone, RunCommand(kMeshToVolumeCommand, MeshSettings(0.1, 2, 2), {base.get()}));

  // An empty folder is inactive, checked or not: the result stands.
  AddFolder(b);
  Evaluate(*doc);
  ExpectSameFloatVolume(CacheVolumes(b).at(0), alone);
}

TEST(BuilderEdgeCases, AutoUpdateOffKeepsTheCacheUntilTheButton) {
  const zta::Int32 mode = zta::GetHostMode();
  zta::SetHostMode(zta::HOSTMODE_INTERACTIVE);
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  AddInput(*doc, b, SphereMesh(1, Vector()), "ball", true);
  b->GetDataInstance()->SetBool(VOLUMEBUILDER_AUTOUPDATE, false);
  Evaluate(*doc);  // no cache yet: the first build is made all the same
  ASSERT_EQ(CacheVolumes(b).size(), 1u);
  // Where the ball stood, in voxels of the builder's grid.
  const double before = CacheVolumes(b)[0].GetWorldBoundingBox().min.x;

  doc->SearchObject("ball")->SetMl(zta::Matrix{Vector(2, 0, 0), {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  Evaluate(*doc);
  EXPECT_EQ(CacheVolumes(b)[0].GetWorldBoundingBox().min.x, before);
  Evaluate(*doc);
  EXPECT_EQ(CacheVolumes(b)[0].GetWorldBoundingBox().min.x, before);

  const zta::Int64 conversions = Conversions(b);
  zta::DescriptionCommand press{zta::DescID(VOLUMEBUILDER_UPDATE)};
  b->Message(zta::MSG_DESCRIPTION_COMMAND, &press);
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), conversions + 1);
  EXPECT_NEAR(CacheVolumes(b)[0].GetWorldBoundingBox().min.x - before, 20.0, 1e-9);
  zta::SetHostMode(mode);
}

TEST(BuilderEdgeCases, ATooFineVoxelSizeIsQuestionedOnceAfterLoad) {
  zta::SetDialogPolicy(zta::DIALOGPOLICY::ALWAYS_YES);
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.001);
  AddInput(*doc, b, SphereMesh(1, Vector()), "ball", true);
  b->Message(zta::MSG_MENUPREPARE);  // the document was set
  const zta::Int64 asked = zta::GetQuestionCount();
  Evaluate(*doc);
  EXPECT_EQ(zta::GetQuestionCount(), asked + 1);
  EXPECT_NEAR(b->GetDataInstance()->GetFloat(VOLUMEBUILDER_VOXELSIZE), 0.02, 1e-9);
  doc->SearchObject("ball")->SetMl(zta::MatrixScale(Vector(1.5, 1.5, 1.5)));
  Evaluate(*doc);
  EXPECT_EQ(zta::GetQuestionCount(), asked + 1);
  zta::SetDialogPolicy(zta::DIALOGPOLICY::ALWAYS_NO);
}

TEST(BuilderResults, SdfBooleansEqualTheCommandsByHand) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  b->GetDataInstance()->SetInt32(VOLUMEBUILDER_MESH_EXTERIOR_BAND, 3);
  // Top to bottom; the bottom row is the base and each row above joins what lies below.
  AddInput(*doc, b, SphereMesh(1.4, Vector(0.5, 0, 0)), "intersect", true);
  AddInput(*doc, b, CubeMesh(1.0, Vector(1, 0.5, 0)), "subtract", false);
  AddInput(*doc, b, SphereMesh(1.0, Vector(1, 0, 0)), "union", true);
  AddInput(*doc, b, CubeMesh(1.6, Vector()), "base", true);
  const auto rows = Rows(b);
  VolumeBuilderData::SetLayerMode(rows[0], BUILDERTYPE_SDF, 3);
  VolumeBuilderData::SetLayerMode(rows[1], BUILDERTYPE_SDF, 2);
  VolumeBuilderData::SetLayerMode(rows[2], BUILDERTYPE_SDF, 1);
  Evaluate(*doc);
  const auto result = CacheVolumes(b);
  ASSERT_EQ(result.size(), 1u);

  const zta::BaseContainer mesh = MeshSettings(0.1, 3, 2);
  auto m = [&](const char* name) {
    auto c = doc->SearchObject(name)->GetClone(zta::COPYFLAGS_NO_HIERARCHY);
    auto* o = static_cast<zta::BaseObject*>(c.get());
    o->SetMl(doc->SearchObject(name)->GetMg());
    auto v = VolumeObjectData::MakeObject(RunCommand(kMeshToVolumeCommand, mesh, {o}));
    return std::shared_ptr<zta::BaseObject>(v.release());
  };
  auto boole = [&](std::shared_ptr<zta::BaseObject> a, std::shared_ptr<zta::BaseObject> x, int mode) {
    zta::BaseContainer bc;
    bc.SetInt32(BOOLE_TYPE, mode - 1);
    return std::shared_ptr<zta::BaseObject>(VolumeObjectData::MakeObject(RunCommand(kBooleCommand, bc, {a.get(), x.get()})).release());
  };
  auto hand = boole(boole(boole(m("base"), m("union"), 1), m("subtract"), 2), m("intersect"), 3);
  ExpectSameFloatVolume(result[0], VolumeObjectData::GetVolume(hand.get()));
  EXPECT_EQ(result[0].GetGridClass(), GRIDCLASS::SDF);
}

TEST(BuilderResults, FogMixModesEqualTheCommandsByHand) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 1, 0.1);
  AddInput(*doc, b, SphereMesh(0.8, Vector(0, 0.6, 0)), "multiply", true);
  AddInput(*doc, b, SphereMesh(0.8, Vector(0.6, 0, 0)), "maximum", true);
  AddInput(*doc, b, CubeMesh(1.0, Vector(0, 0, 0.5)), "add", true);
  AddInput(*doc, b, SphereMesh(1.0, Vector()), "base", true);
  const auto rows = Rows(b);
  VolumeBuilderData::SetLayerMode(rows[0], BUILDERTYPE_FOG, 6);
  VolumeBuilderData::SetLayerMode(rows[1], BUILDERTYPE_FOG, 2);
  VolumeBuilderData::SetLayerMode(rows[2], BUILDERTYPE_FOG, 4);
  // Solid fog: the inside filled to a distance.
  for (const char* name : {"multiply", "maximum", "add", "base"}) {
    zta::BaseContainer* t = FindTag(b, doc->SearchObject(name))->GetDataInstance();
    t->SetInt32(VOLUMEBUILDERTAG_INTERIORBAND, 2);
    t->SetBool(VOLUMEBUILDERTAG_USEINTERIORDISTANCE, true);
    t->SetBool(VOLUMEBUILDERTAG_FILLINTERIOR, true);
    t->SetFloat(VOLUMEBUILDERTAG_INTERIORDISTANCE, 1.0);
  }
  Evaluate(*doc);
  const auto result = CacheVolumes(b);
  ASSERT_EQ(result.size(), 1u);
  EXPECT_EQ(result[0].GetGridClass(), GRIDCLASS::FOG);

  // Fill interior: outward the tag's band, inward to the distance (1.0 / 0.1 + 1 voxels).
  zta::BaseContainer mesh = MeshSettings(0.1, 2, 11);
  mesh.SetBool(MESHTOVOLUME_USEINTERIORDISTANCE, true);
  mesh.SetFloat(MESHTOVOLUME_INTERIORDISTANCE, 1.0);
  auto fog = [&](const char* name) {
    auto c = doc->SearchObject(name)->GetClone(zta::COPYFLAGS_NO_HIERARCHY);
    auto* o = static_cast<zta::BaseObject*>(c.get());
    o->SetMl(doc->SearchObject(name)->GetMg());
    auto sdf = VolumeObjectData::MakeObject(RunCommand(kMeshToVolumeCommand, mesh, {o}));
    zta::BaseContainer bc;
    bc.SetFloat(SDFTOFOG_CUTOFF, std::numeric_limits<double>::max());
    return std::shared_ptr<zta::BaseObject>(VolumeObjectData::MakeObject(RunCommand(kSdfToFogCommand, bc, {sdf.get()})).release());
  };
  auto mix = [&](std::shared_ptr<zta::BaseObject> a, std::shared_ptr<zta::BaseObject> x, int mode) {
    zta::BaseContainer bc;
    bc.SetInt32(MIX_TYPE, mode);
    return std::shared_ptr<zta::BaseObject>(VolumeObjectData::MakeObject(RunCommand(kMixCommand, bc, {a.get(), x.get()})).release());
  };
  auto hand = mix(mix(mix(fog("base"), fog("add"), 4), fog("maximum"), 2), fog("multiply"), 6);
  ExpectSameFloatVolume(result[0], VolumeObjectData::GetVolume(hand.get()));
}

TEST(BuilderIncremental, OnlyWhatChangedIsConvertedAgain) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  for (int i = 0; i < 10; ++i) AddInput(*doc, b, SphereMesh(0.5, Vector(i * 0.8, 0, 0)), "s" + std::to_string(i), i % 2 == 0);
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), 10);
  Evaluate(*doc);  // nothing changed: nothing is built
  EXPECT_EQ(Conversions(b), 10);

  // Moving one input, a child or a link, converts that one alone, and folds
  // from its row up: the rows below it (s5 to s9, the base) keep their fold.
  zta::Int64 folds = Folds(b);
  doc->SearchObject("s4")->SetMl(zta::Matrix{Vector(3.2, 0.3, 0), {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), 11);
  EXPECT_EQ(Folds(b), folds + 5);
  doc->SearchObject("s7")->SetMl(zta::Matrix{Vector(5.6, -0.3, 0), {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), 12);
  // So does a change of its settings.
  FindTag(b, doc->SearchObject("s2"))->GetDataInstance()->SetBool(VOLUMEBUILDERTAG_CLOSEHOLES, true);
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), 13);

  // A mode change re-folds without converting, and the result is the fresh one.
  folds = Folds(b);
  VolumeBuilderData::SetLayerMode(Rows(b)[3], BUILDERTYPE_SDF, 2);
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), 13);
  EXPECT_GT(Folds(b), folds);
  const Volume incremental = CacheVolumes(b).at(0);

  // The builder's own parameters convert everything again.
  b->GetDataInstance()->SetInt32(VOLUMEBUILDER_MESH_INTERIOR_BAND, 3);
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), 23);
  b->GetDataInstance()->SetInt32(VOLUMEBUILDER_MESH_INTERIOR_BAND, 2);
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), 33);
  ExpectSameFloatVolume(CacheVolumes(b).at(0), incremental);

  // Taking a row out folds again from the row above it.
  zta::ItemTreeItem* gone = Rows(b)[7];
  folds = Folds(b);
  VolumeBuilderData::GetTree(b)->RemoveItem(gone);
  VolumeBuilderData::GetTree(b)->Changed();
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), 33);
  EXPECT_EQ(Folds(b), folds + 7);
  EXPECT_LT(CacheVolumes(b).at(0).GetActiveVoxelCount(), incremental.GetActiveVoxelCount());
}

TEST(BuilderThreads, ASecondCallerGetsAnEmptyNullAtOnce) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  AddInput(*doc, b, SphereMesh(1, Vector()), "ball", true);
  auto gate = std::make_shared<Gate>();
  std::unique_ptr<zta::BaseObject> first;
  std::thread builder([&] {
    zta::HierarchyHelp hh(doc.get(), gate, 0, b);
    first.reset(BuilderOf(b)->BuildVirtualObjects(b, &hh));
  });
  ASSERT_TRUE(gate->WaitEntered());
  EXPECT_TRUE(BuilderOf(b)->IsEvalLocked());
  zta::HierarchyHelp hh(doc.get(), nullptr, 0, b);
  std::unique_ptr<zta::BaseObject> second(BuilderOf(b)->BuildVirtualObjects(b, &hh));
  gate->Release();
  builder.join();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->GetType(), zta::HOST_TYPE_NULL);
  EXPECT_EQ(second->GetDown(), nullptr);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->GetType(), ID_VOLUMEOBJECT);
  EXPECT_FALSE(BuilderOf(b)->IsEvalLocked());
}

TEST(BuilderThreads, AStopRequestKeepsTheOldCacheAndResumes) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  AddInput(*doc, b, SphereMesh(1, Vector()), "ball", true);
  Evaluate(*doc);
  zta::BaseObject* cache = b->GetCache();
  doc->SearchObject("ball")->SetMl(zta::MatrixScale(Vector(1.5, 1.5, 1.5)));
  auto stop = std::make_shared<zta::ZTAThread>();
  stop->End();
  zta::HierarchyHelp hh(doc.get(), stop, 0, b);
  EXPECT_EQ(BuilderOf(b)->BuildVirtualObjects(b, &hh), cache);
  EXPECT_TRUE(BuilderOf(b)->cancelled);
  Evaluate(*doc);
  EXPECT_NE(b->GetCache(), cache);
  EXPECT_FALSE(BuilderOf(b)->cancelled);
}

TEST(BuilderBadScenes, WrongInputsNeverBreakTheBuild) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  AddInput(*doc, b, SphereMesh(1, Vector()), "ball", true);
  AddInput(*doc, b, SphereMesh(1, Vector(1, 0, 0)), "gone", false);
  // A vector volume has no place in an SDF builder: it gives nothing.
  auto vec = VolumeToolsInterface::CreateGradientVolume(
      *VolumeToolsInterface::CreateSphereVolume(1, Vector(5, 0, 0), 0.1, 3, nullptr, nullptr), nullptr);
  ASSERT_TRUE(vec);
  AddInput(*doc, b, VolumeObjectData::MakeObject(*vec), "vector", false);
  Evaluate(*doc);
  ASSERT_EQ(CacheVolumes(b).size(), 1u);
  const zta::Int64 withLink = CacheVolumes(b)[0].GetActiveVoxelCount();

  // The linked object is deleted: its row stays, and the result is the ball's.
  zta::GeListNode::Free(doc->SearchObject("gone"));
  Evaluate(*doc);
  ASSERT_EQ(CacheVolumes(b).size(), 1u);
  EXPECT_LT(CacheVolumes(b)[0].GetActiveVoxelCount(), withLink);
  auto ball = SphereMesh(1, Vector());
  ExpectSameFloatVolume(CacheVolumes(b)[0], RunCommand(kMeshToVolumeCommand, MeshSettings(0.1, 2, 2), {ball.get()}));

  // Two builders that link each other: both build, neither loops.
  zta::BaseObject* c = InsertBuilder(*doc, "C", 0, 0.1);
  AddInput(*doc, c, SphereMesh(1, Vector(0, 2, 0)), "other", true);
  BuilderOf(c)->AddLayer(c, b, nullptr, Rows(c).back(), false, false, false);
  BuilderOf(b)->AddLayer(b, c, nullptr, Rows(b).back(), false, false, false);
  Evaluate(*doc);
  Evaluate(*doc);
  EXPECT_NE(b->GetCache(), nullptr);
  EXPECT_NE(c->GetCache(), nullptr);
  EXPECT_FALSE(CacheVolumes(c).empty());
}

TEST(BuilderResults, VectorBuildersMixGradients) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "V", 2, 0.1);
  AddInput(*doc, b, SphereMesh(1.0, Vector(0.5, 0, 0)), "add", true);
  AddInput(*doc, b, SphereMesh(1.0, Vector()), "base", true);
  VolumeBuilderData::SetLayerMode(Rows(b)[0], BUILDERTYPE_VECTOR, 2);
  Evaluate(*doc);
  const auto result = CacheVolumes(b);
  ASSERT_EQ(result.size(), 1u);
  EXPECT_EQ(result[0].GetGridType(), GRIDTYPE::VEC3S);

  // By hand: each mesh's SDF, its gradient, and the two added.
  auto gradient = [&](const char* name) {
    auto c = doc->SearchObject(name)->GetClone(zta::COPYFLAGS_NO_HIERARCHY);
    auto* o = static_cast<zta::BaseObject*>(c.get());
    o->SetMl(doc->SearchObject(name)->GetMg());
    return *VolumeToolsInterface::CreateGradientVolume(RunCommand(kMeshToVolumeCommand, MeshSettings(0.1, 2, 2), {o}), nullptr);
  };
  auto hand = VolumeToolsInterface::MixVectorVolumes(gradient("base"), gradient("add"), MIXVECTORTYPE::ADD, nullptr);
  ASSERT_TRUE(hand);
  EXPECT_EQ(result[0].GetActiveVoxelCount(), hand->GetActiveVoxelCount());
  EXPECT_EQ(result[0].GetGridTransform(), hand->GetGridTransform());
}

TEST(BuilderModel, DeletingRowsTakesTheirChildrenAndTagsAlong) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* b = InsertBuilder(*doc, "B", 0, 0.1);
  zta::ItemTreeItem* folder = AddFolder(b);
  AddInput(*doc, b, SphereMesh(1, Vector(3, 0, 0)), "inner", true, folder);
  AddInput(*doc, b, SphereMesh(1, Vector()), "outer", true);
  Evaluate(*doc);
  ASSERT_NE(FindTag(b, doc->SearchObject("inner")), nullptr);
  zta::ItemTree* tree = VolumeBuilderData::GetTree(b);
  // The folder and its row both selected: each goes once.
  tree->Select(folder, zta::SELECTION_NEW);
  tree->Select(folder->GetDown(), zta::SELECTION_ADD);
  tree->RequestDelete();
  ASSERT_EQ(Rows(b).size(), 1u);
  EXPECT_EQ(FindTag(b, doc->SearchObject("inner")), nullptr);
  EXPECT_NE(FindTag(b, doc->SearchObject("outer")), nullptr);

  // A new row for another object, wherever the freed rows stood, converts anew.
  const zta::Int64 conversions = Conversions(b);
  AddInput(*doc, b, CubeMesh(1, Vector(0, 3, 0)), "new", false);
  Evaluate(*doc);
  EXPECT_EQ(Conversions(b), conversions + 1);
  auto outer = SphereMesh(1, Vector());
  auto box = CubeMesh(1, Vector(0, 3, 0));
  auto a = VolumeObjectData::MakeObject(RunCommand(kMeshToVolumeCommand, MeshSettings(0.1, 2, 2), {outer.get()}));
  auto c = VolumeObjectData::MakeObject(RunCommand(kMeshToVolumeCommand, MeshSettings(0.1, 2, 2), {box.get()}));
  zta::BaseContainer bc;
  bc.SetInt32(BOOLE_TYPE, 0);
  // The new row stands below the old one: it is the base.
  ExpectSameFloatVolume(CacheVolumes(b).at(0), RunCommand(kBooleCommand, bc, {c.get(), a.get()}));
}
