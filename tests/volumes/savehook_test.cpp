// The volume save manager hook: which object owns which file, the numbering of
// clashes, forgetting deleted objects, and what a scene save writes into "vol".
#include <gtest/gtest.h>

#include <openvdb/openvdb.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/documentevents.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "host/scene/messages.h"
#include "host/scene/scenefile.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/scenehook/volumesavemanagerhook.h"
#include "modules/volumes/source/volume_impl.h"
#include "support/run.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;
using zta::Vector;
namespace fs = std::filesystem;

namespace {

Volume Sphere(double radius, const Vector& centre = Vector(0.0)) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, centre, 0.1, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  return *r;
}

zta::BaseObject* Insert(zta::BaseDocument& doc, const Volume& volume, const std::string& name) {
  std::unique_ptr<zta::BaseObject> made = VolumeObjectData::MakeObject(volume);
  EXPECT_NE(made, nullptr);
  made->SetName(name);
  zta::BaseObject* op = made.release();
  doc.InsertObject(op);
  return op;
}

VolumeSaveManagerHook* HookOf(zta::BaseDocument& doc) {
  zta::BaseList2D* node = doc.FindSceneHook(ID_VOLUMESAVEHOOK);
  return node ? node->GetNodeData<VolumeSaveManagerHook>() : nullptr;
}

std::string Register(VolumeSaveManagerHook& hook, zta::BaseObject* op, const std::string& file) {
  Url url(file);
  auto ok = hook.RegisterVolumeFile(op, url);
  EXPECT_TRUE(ok.IsOk()) << ok.GetError().GetMessage();
  return url.ToString();
}

std::string SourceScene(const fs::path& file) {
  auto meta = VolumeToolsInterface::GetMetaDataFromFile(Url::FromSystemPath(file.string()));
  EXPECT_TRUE(meta.IsOk());
  std::string source;
  if (meta.IsOk())
    for (const DataDictionary& entry : *meta)
      if (const auto* text = entry.Get("source_zta_file").TryGet<std::string>()) source = *text;
  return source;
}

std::string Bytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Every active voxel of `a` is active in `b` with the same value at the same
// place in the world, and both have as many.
void ExpectSameVoxels(const Volume& a, const Volume& b) {
  ASSERT_TRUE(a.HasGrid());
  ASSERT_TRUE(b.HasGrid());
  auto ga = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(a));
  auto gb = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(b));
  ASSERT_TRUE(ga && gb);
  EXPECT_EQ(ga->activeVoxelCount(), gb->activeVoxelCount());
  auto acc = gb->getConstAccessor();
  size_t differing = 0;
  for (auto it = ga->cbeginValueOn(); it; ++it) {
    const openvdb::Vec3d world = ga->transform().indexToWorld(it.getCoord());
    const openvdb::Coord ijk = gb->transform().worldToIndexCellCentered(world);
    if (!acc.isValueOn(ijk) || acc.getValue(ijk) != *it) ++differing;
  }
  EXPECT_EQ(differing, 0u);
}

}  // namespace

TEST(VolumeSaveHook, IsTheDocumentsHookAndTheObjectsFindIt) {
  auto doc = zta::AllocDocument();
  VolumeSaveManagerHook* hook = HookOf(*doc);
  ASSERT_NE(hook, nullptr);
  EXPECT_EQ(GetSaveHookInterface(doc->FindSceneHook(ID_VOLUMESAVEHOOK)), hook);
  zta::BaseObject* op = Insert(*doc, Sphere(1.0), "Cloud");
  EXPECT_EQ(VolumeObjectData::GetVolume(op).GetActiveVoxelCount() > 0, true);
  // The object connects at its file priority and registers its own name.
  EXPECT_EQ(op->GetNodeData<VolumeObjectData>()->ExecuteObject(op, doc.get(), nullptr,
                                                               zta::EXECUTIONPRIORITY_INITIAL, 0),
            zta::EXECUTIONRESULT::OK);
  ASSERT_NE(hook->GetRegisteredFile(op), nullptr);
  EXPECT_EQ(hook->GetRegisteredFile(op)->ToString(), "Cloud.vdb");
  EXPECT_TRUE(hook->IsFileUsed(Url("Cloud.vdb")));
}

TEST(VolumeSaveHook, ClashesGetTheNextNumberAndDeadObjectsFreeTheirNames) {
  auto doc = zta::AllocDocument();
  VolumeSaveManagerHook& hook = *HookOf(*doc);
  zta::BaseObject* a = Insert(*doc, Sphere(1.0), "a");
  zta::BaseObject* b = Insert(*doc, Sphere(1.0), "b");
  zta::BaseObject* c = Insert(*doc, Sphere(1.0), "c");
  EXPECT_EQ(Register(hook, a, "name.vdb"), "name.vdb");
  EXPECT_EQ(Register(hook, b, "name.vdb"), "name_1.vdb");
  // The old number is cut and counting starts again at 1.
  EXPECT_EQ(Register(hook, c, "name_1.vdb"), "name_2.vdb");
  // Registering again under the name it holds keeps it.
  EXPECT_EQ(Register(hook, b, "name_1.vdb"), "name_1.vdb");

  zta::BaseObject* d = Insert(*doc, Sphere(1.0), "d");
  zta::BaseObject* e = Insert(*doc, Sphere(1.0), "e");
  zta::BaseObject* f = Insert(*doc, Sphere(1.0), "f");
  zta::BaseObject* g = Insert(*doc, Sphere(1.0), "g");
  zta::BaseObject* h = Insert(*doc, Sphere(1.0), "h");
  EXPECT_EQ(Register(hook, d, "cloud.0042.vdb"), "cloud.0042.vdb");
  EXPECT_EQ(Register(hook, e, "cloud.0042.vdb"), "cloud.1.vdb");
  EXPECT_EQ(Register(hook, f, "cloud7.vdb"), "cloud7.vdb");
  EXPECT_EQ(Register(hook, g, "cloud7.vdb"), "cloud7_1.vdb");
  // A folder in the name stays; only the file name is numbered.
  EXPECT_EQ(Register(hook, h, "sub/name.vdb"), "sub/name.vdb");

  // Only volume objects and sets own files; one object is entered once.
  auto null = zta::AllocObject(zta::HOST_TYPE_NULL);
  Url url("x.vdb");
  auto refused = hook.RegisterVolumeFile(null.get(), url);
  ASSERT_FALSE(refused.IsOk());
  EXPECT_EQ(refused.GetError().GetMessage(), "non volumes is registered");
  Url again("y.vdb");
  auto twice = hook.AddVolumeFile(a, again);
  ASSERT_FALSE(twice.IsOk());
  EXPECT_EQ(twice.GetError().GetMessage(), "volume already registered");
  EXPECT_EQ(hook.GetRegisteredFile(a)->ToString(), "name.vdb");

  // A deleted object's name is free at the next purge, and only its name.
  zta::GeListNode::Free(a);
  ASSERT_TRUE(hook.PurgeDeadEntries(doc.get()).IsOk());
  EXPECT_FALSE(hook.IsFileUsed(Url("name.vdb")));
  EXPECT_TRUE(hook.IsFileUsed(Url("name_1.vdb")));
  zta::BaseObject* i = Insert(*doc, Sphere(1.0), "i");
  EXPECT_EQ(Register(hook, i, "name.vdb"), "name.vdb");
  // An object taken out of the document (an undo keeps it elsewhere) is forgotten too.
  std::unique_ptr<zta::GeListNode> taken = b->Remove();
  ASSERT_TRUE(hook.PurgeDeadEntries(doc.get()).IsOk());
  EXPECT_EQ(hook.GetRegisteredFile(b), nullptr);
  EXPECT_FALSE(hook.IsFileUsed(Url("name_1.vdb")));
}

TEST(VolumeSaveHook, SaveUrlsStayInsideVol) {
  const std::string doc = "/scenes/one";
  auto at = [&](const std::string& file) {
    auto r = VolumeSaveManagerHook::MakeSaveUrl(doc, Url(file));
    EXPECT_TRUE(r.IsOk()) << file;
    return r.IsOk() ? r->ToString() : std::string();
  };
  EXPECT_EQ(at("cloud.vdb"), "/scenes/one/vol/cloud.vdb");
  EXPECT_EQ(at("cloud.cache"), "/scenes/one/vol/cloud.cache.vdb");
  EXPECT_EQ(at("../x.vdb"), "/scenes/one/vol/x.vdb");
  EXPECT_EQ(at("a/../../b.vdb"), "/scenes/one/vol/b.vdb");
  EXPECT_EQ(at(".."), "/scenes/one/vol/Volume.vdb");
  EXPECT_EQ(at(std::string("a\tb\x01.vdb")), "/scenes/one/vol/a_b_.vdb");
  // A file the person chose with a whole path is written where it says.
  EXPECT_EQ(at("/data/cloud.vdb"), "/data/cloud.vdb");
  auto empty = VolumeSaveManagerHook::MakeSaveUrl(doc, Url("dir/"));
  ASSERT_FALSE(empty.IsOk());
  EXPECT_EQ(empty.GetError().GetMessage(), "filename cannot be empty");

  // Names of objects become single file names.
  EXPECT_EQ(SafeVolumeFileName("Cloud"), "Cloud.vdb");
  EXPECT_EQ(SafeVolumeFileName("../x"), ".._x.vdb");
  EXPECT_EQ(SafeVolumeFileName("/tmp/x"), "_tmp_x.vdb");
  EXPECT_EQ(SafeVolumeFileName("a/../../b"), "a_.._.._b.vdb");
  EXPECT_EQ(SafeVolumeFileName(std::string("a\0b", 3)), "a_b.vdb");
  EXPECT_EQ(SafeVolumeFileName("a\\b\nc\x7f"), "a_b_c_.vdb");
  EXPECT_EQ(SafeVolumeFileName(".."), "Volume.vdb");
  EXPECT_EQ(SafeVolumeFileName(""), "Volume.vdb");
  EXPECT_EQ(SafeVolumeFileName(std::string(300, 'x')), std::string(200, 'x') + ".vdb");
  // A cut never splits a character of two bytes.
  const std::string umlauts = std::string(199, 'x') + "\xC3\xA4\xC3\xA4";
  EXPECT_EQ(SafeVolumeFileName(umlauts), std::string(199, 'x') + ".vdb");
}

TEST(VolumeSaveHook, ASceneSaveWritesStampedFilesIntoVolThatLoadBack) {
  const fs::path dir = zvtest::TempDir();
  const fs::path scene = dir / "scene.zscene";
  const std::string escape = "zv-escape-" + fs::path(dir).filename().string();
  auto doc = zta::AllocDocument();
  const Volume first = Sphere(1.0, Vector(0.5, 0.0, 0.25));
  const Volume second = Sphere(0.5, Vector(-1.0, 0.0, 0.0));
  const Volume third = Sphere(0.75, Vector(0.0, 2.0, 0.0));
  Insert(*doc, first, "Cloud");
  Insert(*doc, second, "Cloud");
  Insert(*doc, third, "/tmp/" + escape);
  ASSERT_FALSE(fs::exists(dir / "vol"));

  auto saved = zta::SaveDocument(doc.get(), scene.string());
  ASSERT_TRUE(saved.IsOk()) << saved.GetError().GetMessage();
  // The folder is made; two objects of one name get two files; a name with
  // path parts stays a file inside "vol".
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir / "vol")) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Cloud.vdb", "Cloud_1.vdb", "_tmp_" + escape + ".vdb"}));
  EXPECT_FALSE(fs::exists("/tmp/" + escape + ".vdb"));
  for (const std::string& name : names) EXPECT_EQ(SourceScene(dir / "vol" / name), "scene.zscene") << name;

  auto loaded = zta::LoadDocument(scene.string());
  ASSERT_TRUE(loaded.IsOk()) << loaded.GetError().GetMessage();
  std::vector<Volume> read;
  for (zta::BaseObject* op = (*loaded)->GetFirstObject(); op; op = op->GetNext())
    read.push_back(VolumeObjectData::GetVolume(op));
  ASSERT_EQ(read.size(), 3u);
  // InsertObject puts each new object first.
  ExpectSameVoxels(third, read[0]);
  ExpectSameVoxels(second, read[1]);
  ExpectSameVoxels(first, read[2]);
}

TEST(VolumeSaveHook, FilesOfAnotherSceneAreKeptAndUnstampedOnesTaken) {
  const fs::path dir = zvtest::TempDir();
  fs::create_directories(dir / "vol");
  // Another scene saved into the same folder before.
  {
    auto other = zta::AllocDocument();
    Insert(*other, Sphere(0.5), "Cloud");
    ASSERT_TRUE(zta::SaveDocument(other.get(), (dir / "other.zscene").string()).IsOk());
  }
  const std::string theirs = Bytes(dir / "vol" / "Cloud.vdb");
  ASSERT_FALSE(theirs.empty());
  ASSERT_EQ(SourceScene(dir / "vol" / "Cloud.vdb"), "other.zscene");
  // A file without the key, and one that is no volume file at all.
  ASSERT_TRUE(VolumeToolsInterface::SaveVDBFile(Url::FromSystemPath((dir / "vol" / "Plain.vdb").string()), 1.0,
                                                {Sphere(0.3)}, DataDictionary())
                  .IsOk());
  { std::ofstream((dir / "vol" / "Junk.vdb").string()) << "not a volume"; }

  auto doc = zta::AllocDocument();
  zta::BaseObject* cloud = Insert(*doc, Sphere(1.0), "Cloud");
  zta::BaseObject* plain = Insert(*doc, Sphere(1.0), "Plain");
  zta::BaseObject* junk = Insert(*doc, Sphere(1.0), "Junk");
  auto saved = zta::SaveDocument(doc.get(), (dir / "mine.zscene").string());
  ASSERT_TRUE(saved.IsOk()) << saved.GetError().GetMessage();

  EXPECT_EQ(Bytes(dir / "vol" / "Cloud.vdb"), theirs);
  EXPECT_EQ(cloud->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Cloud_1.vdb");
  EXPECT_EQ(SourceScene(dir / "vol" / "Cloud_1.vdb"), "mine.zscene");
  EXPECT_EQ(plain->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Plain.vdb");
  EXPECT_EQ(SourceScene(dir / "vol" / "Plain.vdb"), "mine.zscene");
  // What cannot be read is nobody's volume to overwrite.
  EXPECT_EQ(Bytes(dir / "vol" / "Junk.vdb"), "not a volume");
  EXPECT_EQ(junk->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Junk_1.vdb");

  // Saved again, the scene's own files are its own: no new names.
  ASSERT_TRUE(zta::SaveDocument(doc.get(), (dir / "mine.zscene").string()).IsOk());
  EXPECT_EQ(cloud->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Cloud_1.vdb");
  EXPECT_FALSE(fs::exists(dir / "vol" / "Cloud_2.vdb"));
}

TEST(VolumeSaveHook, SaveAsTakesTheFilesAlongAndCollectingWritesNothing) {
  const fs::path first = zvtest::TempDir(), second = zvtest::TempDir();
  auto doc = zta::AllocDocument();
  zta::BaseObject* op = Insert(*doc, Sphere(1.0), "Smoke");
  ASSERT_TRUE(zta::SaveDocument(doc.get(), (first / "a.zscene").string()).IsOk());
  ASSERT_TRUE(fs::is_regular_file(first / "vol" / "Smoke.vdb"));
  // A file named by its whole path beside the old scene follows the scene.
  op->GetDataInstance()->SetString(VOLUMEOBJECT_FILE, (first / "vol" / "Smoke.vdb").string());
  ASSERT_TRUE(zta::SaveDocument(doc.get(), (second / "b.zscene").string()).IsOk());
  EXPECT_EQ(op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Smoke.vdb");
  EXPECT_TRUE(fs::is_regular_file(second / "vol" / "Smoke.vdb"));
  EXPECT_EQ(SourceScene(second / "vol" / "Smoke.vdb"), "b.zscene");

  // An asset collection for a project save: the hook leaves the files alone.
  const fs::path third = zvtest::TempDir();
  zta::CollectAssets(doc.get(), zta::ASSETDATA_FLAG_SAVEPROJECT, third.string());
  ASSERT_TRUE(zta::SaveDocument(doc.get(), (third / "c.zscene").string()).IsOk());
  EXPECT_FALSE(fs::exists(third / "vol"));
  // The collection ended with that save: the next one writes again.
  ASSERT_TRUE(zta::SaveDocument(doc.get(), (third / "d.zscene").string()).IsOk());
  EXPECT_TRUE(fs::is_regular_file(third / "vol" / "Smoke.vdb"));

  // A relative name with folders in it is written as its last part in "vol",
  // and the object takes that name, so that the scene finds the file again.
  fs::remove(third / "vol" / "Smoke.vdb");
  op->GetDataInstance()->SetString(VOLUMEOBJECT_FILE, "deep/../Smoke.cache");
  ASSERT_TRUE(zta::SaveDocument(doc.get(), (third / "d.zscene").string()).IsOk());
  EXPECT_EQ(op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Smoke.vdb");
  EXPECT_TRUE(fs::is_regular_file(third / "vol" / "Smoke.vdb"));
  EXPECT_FALSE(fs::exists(third / "deep"));
  auto loaded = zta::LoadDocument((third / "d.zscene").string());
  ASSERT_TRUE(loaded.IsOk()) << loaded.GetError().GetMessage();
  ASSERT_NE((*loaded)->SearchObject("Smoke"), nullptr);
  EXPECT_EQ(VolumeObjectData::GetVolume((*loaded)->SearchObject("Smoke")).GetActiveVoxelCount(),
            VolumeObjectData::GetVolume(op).GetActiveVoxelCount());
}
