// The volume object: its texts and buttons, where it finds its file, how a
// scene and its copies keep the grid, the matrix and the grid kept in step,
// and what it asks of the save hook.
#include <gtest/gtest.h>

#include <openvdb/openvdb.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hyperfile.h"
#include "host/scene/messages.h"
#include "host/scene/parameters.h"
#include "host/scene/plugins.h"
#include "host/scene/scenefile.h"
#include "host/ui/dialogs.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volume_impl.h"
#include "support/expect.h"
#include "support/run.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;
using zta::Vector;

namespace {

Volume Sphere(double radius, const Vector& centre = Vector(0.0), double voxel = 0.1) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, centre, voxel, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  return *r;
}

Volume Fog(float value) {
  auto grid = openvdb::FloatGrid::create(0.0f);
  grid->setGridClass(openvdb::GRID_FOG_VOLUME);
  grid->tree().setValue(openvdb::Coord(1, 2, 3), value);
  grid->tree().setValue(openvdb::Coord(4, 2, 3), value * 0.5f);
  return *MakeVolume(grid);
}

VolumeObjectData* DataOf(zta::BaseObject* op) { return op ? op->GetNodeData<VolumeObjectData>() : nullptr; }

// A volume object holding `volume`, inserted at the top of `doc`.
zta::BaseObject* Insert(zta::BaseDocument& doc, const Volume& volume, const std::string& name = "Cloud") {
  std::unique_ptr<zta::BaseObject> made = VolumeObjectData::MakeObject(volume);
  EXPECT_NE(made, nullptr);
  made->SetName(name);
  zta::BaseObject* op = made.release();
  doc.InsertObject(op);
  return op;
}

zta::Vector ScaleOf(zta::BaseObject* op) {
  zta::GeData v;
  EXPECT_TRUE(zta::GetParameter(op, zta::DescID(zta::ID_BASEOBJECT_ABS_SCALE), v));
  return v.GetVector();
}

bool Enabled(zta::BaseObject* op, zta::Int32 id) {
  return DataOf(op)->IsParameterEnabled(op, zta::DescID(id), zta::GeData(), 0, nullptr);
}

void WriteVdb(const std::string& path, const std::vector<Volume>& volumes) {
  ASSERT_TRUE(VolumeToolsInterface::SaveVDBFile(Url::FromSystemPath(path), 1.0, volumes, DataDictionary()).IsOk());
}

// A save hook that keeps the files of its objects and numbers a name that
// another object holds, as the document's hook does.
class RecordingHook : public zta::SceneHookData, public VolumeSaveHookInterface {
 public:
  zta::Result<void> RegisterVolumeFile(zta::BaseList2D* object, Url& url) override {
    ++calls;
    if (refuse) return zta::IllegalStateError("refused");
    for (const auto& [other, file] : files) {
      if (other != object && file == url.GetPath()) {
        const std::filesystem::path p(url.GetPath());
        url = Url((p.parent_path() / (p.stem().string() + "_1.vdb")).string());
      }
    }
    files[object] = url.GetPath();
    return zta::OK();
  }
  std::map<zta::BaseList2D*, std::string> files;
  int calls = 0;
  bool refuse = false;
};

RecordingHook* AddHook(zta::BaseDocument& doc) {
  auto hook = std::make_unique<RecordingHook>();
  RecordingHook* raw = hook.get();
  EXPECT_NE(doc.InsertSceneHook(ID_VOLUMESAVEHOOK, std::move(hook)), nullptr);
  return raw;
}

}  // namespace

TEST(VolumeObject, InfoTextsNameTypeClassAndSize) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* sdf = Insert(*doc, Sphere(1.0));
  zta::BaseObject* fog = Insert(*doc, Fog(2.0f));
  EXPECT_EQ(sdf->GetDataInstance()->GetString(VOLUMEOBJECT_INFO_TYPE), "Float SDF");
  EXPECT_EQ(fog->GetDataInstance()->GetString(VOLUMEOBJECT_INFO_TYPE), "Float Fog");
  EXPECT_EQ(fog->GetDataInstance()->GetString(VOLUMEOBJECT_INFO_SIZE).rfind("Voxels: 2   Memory: ~", 0), 0u);

  // Kilobytes up to 2048 of them, then megabytes, then gigabytes; digits in threes.
  EXPECT_EQ(VolumeObjectData::InfoSizeText(1234567, 5 * 1024), "Voxels: 1,234,567   Memory: ~5 kb ");
  EXPECT_EQ(VolumeObjectData::InfoSizeText(12, 2048 * 1024), "Voxels: 12   Memory: ~2048 kb ");
  EXPECT_EQ(VolumeObjectData::InfoSizeText(12, 3000 * 1024), "Voxels: 12   Memory: ~2 mb ");
  EXPECT_EQ(VolumeObjectData::InfoSizeText(0, Int(5000) * 1024 * 1024), "Voxels: 0   Memory: ~4 gb ");

  // A scene whose file is gone says so at the next execution.
  auto missing = VolumeObjectData::MakeObject(Volume());
  missing->SetName("Gone");
  missing->GetDataInstance()->SetString(VOLUMEOBJECT_FILE, "/nonexistent/gone.vdb");
  zta::BaseObject* gone = missing.release();
  doc->InsertObject(gone);
  auto bytes = zta::SaveDocumentToMemory(*doc, zta::HYPERFILE_KIND_SCENE);
  ASSERT_TRUE(bytes.IsOk());
  auto loaded = zta::LoadDocumentFromMemory(bytes->data(), zta::Int64(bytes->size()));
  ASSERT_TRUE(loaded.IsOk()) << loaded.GetError().GetMessage();
  zta::BaseObject* read = (*loaded)->SearchObject(gone->GetName());
  ASSERT_NE(read, nullptr);
  EXPECT_TRUE(DataOf(read)->IsFileMissing());
  DataOf(read)->ExecuteObject(read, loaded->get(), nullptr, zta::EXECUTIONPRIORITY_GENERATOR + 1, 0);
  EXPECT_EQ(read->GetDataInstance()->GetString(VOLUMEOBJECT_INFO_TYPE), "File not found");
  EXPECT_EQ(read->GetDataInstance()->GetString(VOLUMEOBJECT_INFO_SIZE), "");
  GetCustomIconData icon;
  read->Message(MSG_GETCUSTOMICON, &icon);
  EXPECT_TRUE(icon.filled);
  EXPECT_EQ(icon.iconId, ICON_VOLUME_SDF_MISSING);

  GetCustomIconData sdfIcon, fogIcon;
  sdf->Message(MSG_GETCUSTOMICON, &sdfIcon);
  fog->Message(MSG_GETCUSTOMICON, &fogIcon);
  EXPECT_FALSE(sdfIcon.filled);  // the object's own icon
  EXPECT_EQ(fogIcon.iconId, ICON_VOLUME_FOG);
}

TEST(VolumeObject, FindVolumeFileLooksInVolBeforeTheSceneFolder) {
  const std::filesystem::path dir = zvtest::TempDir();
  std::filesystem::create_directories(dir / "vol");
  WriteVdb((dir / "ball.vdb").string(), {Sphere(1.0)});
  WriteVdb((dir / "vol" / "ball.vdb").string(), {Sphere(1.0)});
  auto doc = zta::AllocDocument();
  doc->SetDocumentPath(dir.string());

  Url url("ball.vdb");
  ASSERT_TRUE(VolumeObjectData::FindVolumeFile(url, doc.get()));
  EXPECT_EQ(url.GetPath(), (dir / "vol" / "ball.vdb").string());
  std::filesystem::remove(dir / "vol" / "ball.vdb");
  url = Url("ball.vdb");
  ASSERT_TRUE(VolumeObjectData::FindVolumeFile(url, doc.get()));
  EXPECT_EQ(url.GetPath(), (dir / "ball.vdb").string());

  url = Url("other.vdb");
  EXPECT_FALSE(VolumeObjectData::FindVolumeFile(url, doc.get()));
  EXPECT_EQ(url.GetPath(), "other.vdb");  // unchanged when nothing is found
  Url empty;
  EXPECT_FALSE(VolumeObjectData::FindVolumeFile(empty, doc.get()));
  Url absolute = Url::FromSystemPath((dir / "ball.vdb").string());
  EXPECT_TRUE(VolumeObjectData::FindVolumeFile(absolute, nullptr));
  Url relative("ball.vdb");  // no scene folder: as it stands, which is not here
  EXPECT_FALSE(VolumeObjectData::FindVolumeFile(relative, nullptr));
}

TEST(VolumeObject, DiskSaveLeavesTheGridOutMemoryCopiesEmbedIt) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* op = Insert(*doc, Sphere(1.0, Vector(0.5, 0.0, 0.25)));
  const Volume original = DataOf(op)->GetVolume();

  auto reload = [&](zta::Int32 kind) -> std::unique_ptr<zta::BaseDocument> {
    auto bytes = zta::SaveDocumentToMemory(*doc, kind);
    EXPECT_TRUE(bytes.IsOk());
    auto loaded = zta::LoadDocumentFromMemory(bytes->data(), zta::Int64(bytes->size()));
    EXPECT_TRUE(loaded.IsOk()) << loaded.GetError().GetMessage();
    return std::move(*loaded);
  };

  auto onDisk = reload(zta::HYPERFILE_KIND_SCENE);
  zta::BaseObject* diskCopy = onDisk->SearchObject("Cloud");
  ASSERT_NE(diskCopy, nullptr);
  EXPECT_FALSE(DataOf(diskCopy)->GetVolume().HasGrid());
  EXPECT_FALSE(DataOf(diskCopy)->IsFileMissing());  // no file named: nothing is missing

  for (zta::Int32 kind : {zta::HYPERFILE_KIND_UNDO, zta::HYPERFILE_KIND_CLIPBOARD}) {
    auto copy = reload(kind);
    zta::BaseObject* read = copy->SearchObject("Cloud");
    ASSERT_NE(read, nullptr);
    const Volume v = DataOf(read)->GetVolume();
    ASSERT_TRUE(v.HasGrid());
    EXPECT_EQ(v.GetActiveVoxelCount(), original.GetActiveVoxelCount());
    EXPECT_EQ(v.GetGridClass(), GRIDCLASS::SDF);
    // Not mirrored inside the scene: the grid stands where it stood.
    zvtest::ExpectNear(v.GetGridTransform().off, original.GetGridTransform().off);
    zvtest::ExpectNear(read->GetMg().off, op->GetMg().off);
  }

  // An asset collection that finds no file lets the next disk save embed the grid, once.
  zta::AssetData assets(doc.get(), "", zta::ASSETDATA_FLAG_LISTALL);
  op->Message(zta::MSG_GETALLASSETS, &assets);
  EXPECT_TRUE(assets.GetAssets().empty());
  auto embedded = reload(zta::HYPERFILE_KIND_SCENE);
  EXPECT_TRUE(DataOf(embedded->SearchObject("Cloud"))->GetVolume().HasGrid());
  auto again = reload(zta::HYPERFILE_KIND_SCENE);
  EXPECT_FALSE(DataOf(again->SearchObject("Cloud"))->GetVolume().HasGrid());
}

TEST(VolumeObject, SavedSceneFindsItsFileInVolAfterLoading) {
  const std::filesystem::path dir = zvtest::TempDir();
  std::filesystem::create_directories(dir / "vol");
  const Volume ball = Sphere(1.0, Vector(1.0, 0.0, 0.0));
  WriteVdb((dir / "vol" / "ball.vdb").string(), {ball});

  auto doc = zta::AllocDocument();
  // The object holds the grid too, so that a save hook, where there is one, writes the same file.
  auto made = VolumeObjectData::MakeObject(ball);
  made->SetName("Ball");
  made->GetDataInstance()->SetString(VOLUMEOBJECT_FILE, "ball.vdb");
  doc->InsertObject(made.release());
  const std::string scene = (dir / "scene.zscene").string();
  ASSERT_TRUE(zta::SaveDocument(doc.get(), scene).IsOk());

  auto loaded = zta::LoadDocument(scene);
  ASSERT_TRUE(loaded.IsOk()) << loaded.GetError().GetMessage();
  zta::BaseObject* op = (*loaded)->SearchObject("Ball");
  ASSERT_NE(op, nullptr);
  const Volume v = DataOf(op)->GetVolume();
  ASSERT_TRUE(v.HasGrid());
  EXPECT_EQ(v.GetActiveVoxelCount(), ball.GetActiveVoxelCount());
  EXPECT_FALSE(DataOf(op)->IsFileMissing());
  EXPECT_EQ(DataOf(op)->GetFileUrl().GetPath(), (dir / "vol" / "ball.vdb").string());
  zvtest::ExpectNear(op->GetMg().off, ball.GetGridTransform().off, 1e-9);
}

TEST(VolumeObject, ScaleOfASignedDistanceVolumeStaysUniform) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* sdf = Insert(*doc, Sphere(1.0), "Sdf");
  zta::BaseObject* fog = Insert(*doc, Fog(1.0f), "Fog");
  // The object stands where the grid's index space lies: its scale is the voxel size.
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  zvtest::ExpectNear(ScaleOf(sdf), Vector(0.1), 1e-7);  // the sphere's voxel size is a float
  auto gridScale = [&] { return DataOf(sdf)->GetVolume().GetGridTransform().GetScale(); };

  // One component changed: all three take it.
  ASSERT_TRUE(zta::SetParameter(sdf, zta::DescID({zta::ID_BASEOBJECT_ABS_SCALE, zta::VECTOR_Y}), zta::GeData(2.0)));
  ASSERT_TRUE(zta::SetParameter(fog, zta::DescID({zta::ID_BASEOBJECT_ABS_SCALE, zta::VECTOR_Y}), zta::GeData(2.0)));
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  zvtest::ExpectNear(ScaleOf(sdf), Vector(2.0), 1e-12);
  zvtest::ExpectNear(ScaleOf(fog), Vector(1.0, 2.0, 1.0), 1e-12);  // fog scales freely
  // The grid moved with the object.
  zvtest::ExpectNear(gridScale(), Vector(2.0), 1e-9);
  EXPECT_TRUE(DataOf(sdf)->IsGridChanged());

  // All three changed: their mean.
  ASSERT_TRUE(zta::SetParameter(sdf, zta::DescID(zta::ID_BASEOBJECT_ABS_SCALE), zta::GeData(Vector(3.0, 4.0, 8.0))));
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  zvtest::ExpectNear(ScaleOf(sdf), Vector(5.0), 1e-12);
  zvtest::ExpectNear(gridScale(), Vector(5.0), 1e-9);

  // Nothing changed: nothing moves.
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  zvtest::ExpectNear(ScaleOf(sdf), Vector(5.0), 1e-12);

  // A scale tool's matrix sets the scale, unless it does not scale.
  ScaleMatrixData noScale{zta::MatrixScale(Vector(7.0)), 1.0};
  sdf->Message(MSG_SCALEMATRIX, &noScale);
  zvtest::ExpectNear(ScaleOf(sdf), Vector(5.0), 1e-12);
  ScaleMatrixData scale{zta::MatrixScale(Vector(6.0)), 2.0};
  sdf->Message(MSG_SCALEMATRIX, &scale);
  zvtest::ExpectNear(ScaleOf(sdf), Vector(6.0), 1e-12);
  zvtest::ExpectNear(gridScale(), Vector(6.0), 1e-9);
}

TEST(VolumeObject, SaveAndReloadButtonsFollowTheFileAndChanges) {
  const std::filesystem::path dir = zvtest::TempDir();
  const std::string path = (dir / "ball.vdb").string();
  WriteVdb(path, {Sphere(1.0)});
  auto doc = zta::AllocDocument();
  zta::BaseObject* op = Insert(*doc, Sphere(0.5));
  zta::BaseObject* empty = Insert(*doc, *Volume::Create(), "Empty");

  // A grid without file can be saved; nothing to reload.
  EXPECT_TRUE(Enabled(op, VOLUMEOBJECT_SAVE));
  EXPECT_FALSE(Enabled(op, VOLUMEOBJECT_RELOAD));
  EXPECT_FALSE(Enabled(empty, VOLUMEOBJECT_SAVE));  // no voxels

  // A file set loads its one grid; the object stands where the grid does.
  const zta::UInt32 events = doc->GetEventCount();
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(path)));
  EXPECT_GT(doc->GetEventCount(), events);
  EXPECT_EQ(DataOf(op)->GetVolume().GetActiveVoxelCount(), Sphere(1.0).GetActiveVoxelCount());
  EXPECT_FALSE(Enabled(op, VOLUMEOBJECT_SAVE));
  EXPECT_TRUE(Enabled(op, VOLUMEOBJECT_RELOAD));

  // A move changes the grid: Save writes it and is off again.
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(zta::ID_BASEOBJECT_REL_POSITION), zta::GeData(Vector(2.0, 0.0, 0.0))));
  EXPECT_TRUE(DataOf(op)->IsGridChanged());
  EXPECT_TRUE(Enabled(op, VOLUMEOBJECT_SAVE));
  ASSERT_TRUE(zta::PressButton(op, zta::DescID(VOLUMEOBJECT_SAVE)));
  EXPECT_FALSE(Enabled(op, VOLUMEOBJECT_SAVE));
  auto written = Volume::CreateFromFile(Url::FromSystemPath(path), 1.0, 0);
  ASSERT_TRUE(written.IsOk());
  zvtest::ExpectNear(written->GetGridTransform().off, Vector(2.0, 0.0, 0.0), 1e-9);
  EXPECT_EQ(written->GetGridName(), "Cloud");

  // Reload takes what the file holds now.
  WriteVdb(path, {Sphere(1.5)});
  ASSERT_TRUE(zta::PressButton(op, zta::DescID(VOLUMEOBJECT_RELOAD)));
  EXPECT_EQ(DataOf(op)->GetVolume().GetActiveVoxelCount(), Sphere(1.5).GetActiveVoxelCount());
}

TEST(VolumeObject, SaveWritesANewFileIntoVolOrWhereTheDialogSays) {
  const std::filesystem::path dir = zvtest::TempDir();
  auto doc = zta::AllocDocument();
  doc->SetDocumentPath(dir.string());
  doc->SetDocumentName("scene.zscene");
  zta::BaseObject* op = Insert(*doc, Sphere(1.0), "Smoke");
  ASSERT_TRUE(zta::PressButton(op, zta::DescID(VOLUMEOBJECT_SAVE)));
  const std::filesystem::path written = dir / "vol" / "Smoke.vdb";
  ASSERT_TRUE(std::filesystem::is_regular_file(written));
  EXPECT_EQ(op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Smoke.vdb");
  EXPECT_TRUE(DataOf(op)->IsFileFound());
  EXPECT_FALSE(Enabled(op, VOLUMEOBJECT_SAVE));
  auto meta = VolumeToolsInterface::GetMetaDataFromFile(Url::FromSystemPath(written.string()));
  ASSERT_TRUE(meta.IsOk());
  std::string source;
  for (const DataDictionary& entry : *meta)
    if (const auto* text = entry.Get("source_zta_file").TryGet<std::string>()) source = *text;
  EXPECT_EQ(source, "scene.zscene");

  // Without a scene folder the press waits for the execution pass, which asks for a file once.
  auto loose = zta::AllocDocument();
  zta::BaseObject* other = Insert(*loose, Sphere(1.0), "Loose");
  const std::string asked = (dir / "asked.vdb").string();
  zta::SetDialogPolicy(zta::DIALOGPOLICY::ALWAYS_YES);
  zta::SetSaveFileAnswer(asked);
  ASSERT_TRUE(zta::PressButton(other, zta::DescID(VOLUMEOBJECT_SAVE)));
  EXPECT_FALSE(std::filesystem::exists(asked));
  DataOf(other)->ExecuteObject(other, loose.get(), nullptr, zta::EXECUTIONPRIORITY_GENERATOR + 1, 0);
  zta::SetDialogPolicy(zta::DIALOGPOLICY::ALWAYS_NO);
  zta::SetSaveFileAnswer("");
  EXPECT_TRUE(std::filesystem::is_regular_file(asked));
  EXPECT_EQ(other->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), asked);
  EXPECT_FALSE(Enabled(other, VOLUMEOBJECT_SAVE));
}

TEST(VolumeObject, FileParameterAddsTheSuffixAndRefusesABadFile) {
  const std::filesystem::path dir = zvtest::TempDir();
  std::filesystem::create_directories(dir / "vol");
  WriteVdb((dir / "vol" / "ball.vdb").string(), {Sphere(1.0)});
  std::ofstream(dir / "vol" / "junk.vdb") << "not a vdb file";
  auto doc = zta::AllocDocument();
  doc->SetDocumentPath(dir.string());
  zta::BaseObject* op = Insert(*doc, Sphere(0.5));

  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(std::string("ball"))));
  EXPECT_EQ(op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "ball.vdb");
  EXPECT_TRUE(DataOf(op)->IsFileFound());
  EXPECT_EQ(DataOf(op)->GetFileUrl().GetPath(), (dir / "vol" / "ball.vdb").string());
  const Volume held = DataOf(op)->GetVolume();

  // A file that cannot be read changes nothing.
  EXPECT_FALSE(zta::SetParameter(op, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(std::string("junk.vdb"))));
  EXPECT_EQ(op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "ball.vdb");
  EXPECT_EQ(DataOf(op)->GetVolume(), held);

  // A name without file is kept; the grid stays.
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(std::string("later.vdb"))));
  EXPECT_FALSE(DataOf(op)->IsFileFound());
  EXPECT_EQ(DataOf(op)->GetVolume(), held);
}

TEST(VolumeObject, CopiesShareTheGridUntilOneMoves) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* op = Insert(*doc, Sphere(1.0));
  auto clone = op->GetClone();
  auto* copy = static_cast<zta::BaseObject*>(clone.release());
  doc->InsertObject(copy);
  ASSERT_NE(DataOf(copy), nullptr);
  EXPECT_EQ(DataOf(copy)->GetVolume(), DataOf(op)->GetVolume());  // one VolumeImpl
  Vector mp, rad;
  DataOf(copy)->GetObjectBounds(copy, &mp, &rad);
  EXPECT_GT(rad.x, 0.9);

  ASSERT_TRUE(zta::SetParameter(copy, zta::DescID(zta::ID_BASEOBJECT_REL_POSITION), zta::GeData(Vector(0.0, 3.0, 0.0))));
  const Volume moved = DataOf(copy)->GetVolume(), kept = DataOf(op)->GetVolume();
  EXPECT_NE(moved, kept);
  zvtest::ExpectNear(moved.GetGridTransform().off, Vector(0.0, 3.0, 0.0), 1e-12);
  zvtest::ExpectNear(kept.GetGridTransform().off, Vector(0.0), 1e-12);
  // The voxels themselves are still one tree.
  EXPECT_EQ(VolumeImpl::GetGrid(moved)->baseTreePtr(), VolumeImpl::GetGrid(kept)->baseTreePtr());
  EXPECT_EQ(moved.GetActiveVoxelCount(), kept.GetActiveVoxelCount());
}

TEST(VolumeObject, TalksToTheSaveHookWhenTheDocumentHasOne) {
  // Without the hook the object still takes files, but its execution at the
  // file priority fails to connect.
  {
    auto doc = zta::AllocDocument();
    zta::BaseObject* op = Insert(*doc, Sphere(1.0));
    ASSERT_TRUE(zta::SetParameter(op, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(std::string("c.vdb"))));
    if (!zta::FindPlugin(ID_VOLUMESAVEHOOK)) {
      EXPECT_EQ(DataOf(op)->ExecuteObject(op, doc.get(), nullptr, zta::EXECUTIONPRIORITY_INITIAL, 0),
                zta::EXECUTIONRESULT::OUTOFMEMORY);
      auto connected = DataOf(op)->ConnectSaveHook(op, doc.get());
      ASSERT_FALSE(connected.IsOk());
      EXPECT_EQ(connected.GetError().GetMessage(), "could not create scene hook connection");
    }
  }

  auto doc = zta::AllocDocument();
  RecordingHook* hook = AddHook(*doc);
  zta::BaseObject* a = Insert(*doc, Sphere(1.0), "Cloud");
  zta::BaseObject* b = Insert(*doc, Sphere(1.0), "Cloud");
  // An empty file takes the object's name; a clash gets a number.
  EXPECT_EQ(DataOf(a)->ExecuteObject(a, doc.get(), nullptr, zta::EXECUTIONPRIORITY_INITIAL, 0),
            zta::EXECUTIONRESULT::OK);
  EXPECT_EQ(DataOf(b)->ExecuteObject(b, doc.get(), nullptr, zta::EXECUTIONPRIORITY_INITIAL, 0),
            zta::EXECUTIONRESULT::OK);
  EXPECT_EQ(a->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Cloud.vdb");
  EXPECT_EQ(b->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Cloud_1.vdb");
  EXPECT_EQ(hook->files[b], "Cloud_1.vdb");
  ASSERT_TRUE(DataOf(a)->GetSaveHook(a, doc.get()).IsOk());

  // A rename renames a file that lives beside the scene.
  ASSERT_TRUE(zta::SetParameter(a, zta::DescID(zta::ID_BASELIST_NAME), zta::GeData(std::string("Smoke"))));
  EXPECT_EQ(a->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Smoke.vdb");
  EXPECT_EQ(hook->files[a], "Smoke.vdb");

  // A save gives the file the suffix and registers it.
  a->GetDataInstance()->SetString(VOLUMEOBJECT_FILE, "Smoke.cache");
  zta::DocumentInfoData info;
  info.type = zta::DOCUMENTINFO_TYPE_SAVE_BEFORE;
  info.subType = zta::DOCUMENTINFO_SUBTYPE_SCENEFILE;
  info.doc = doc.get();
  EXPECT_TRUE(a->Message(zta::MSG_DOCUMENTINFO, &info));
  EXPECT_EQ(a->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Smoke.vdb");

  // A refusal of the hook leaves the file parameter as it was.
  hook->refuse = true;
  EXPECT_FALSE(zta::SetParameter(a, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(std::string("other.vdb"))));
  EXPECT_EQ(a->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "Smoke.vdb");
}

TEST(VolumeObject, MembersOfAVolumeSetLeaveTheFileToTheSet) {
  auto doc = zta::AllocDocument();
  RecordingHook* hook = AddHook(*doc);
  // A node of the set's type owning a branch, as a Volume Set does.
  auto set = zta::BaseObject::AllocWithData(ID_VOLUMESET, nullptr, 0);
  ASSERT_NE(set, nullptr);
  zta::BaseObject* owner = set.release();
  doc->InsertObject(owner);
  zta::GeListHead branch;
  branch.SetOwner(owner);
  branch.SetDocument(doc.get());
  auto member = VolumeObjectData::MakeObject(Sphere(1.0));
  zta::BaseObject* op = member.release();
  ASSERT_TRUE(op->InsertUnder(&branch));
  EXPECT_TRUE(VolumeObjectData::IsInsideVolumeSet(op));
  EXPECT_FALSE(VolumeObjectData::IsInsideVolumeSet(owner));

  EXPECT_EQ(DataOf(op)->ExecuteObject(op, doc.get(), nullptr, zta::EXECUTIONPRIORITY_INITIAL, 0),
            zta::EXECUTIONRESULT::OK);
  EXPECT_TRUE(op->GetDataInstance()->GetString(VOLUMEOBJECT_FILE).empty());
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(zta::ID_BASELIST_NAME), zta::GeData(std::string("Member"))));
  zta::AssetData assets(doc.get(), "", zta::ASSETDATA_FLAG_SAVEPROJECT | zta::ASSETDATA_FLAG_LISTALL);
  op->Message(zta::MSG_GETALLASSETS, &assets);
  EXPECT_TRUE(assets.GetAssets().empty());
  EXPECT_EQ(hook->calls, 0);
  op->Remove().reset();
}

TEST(VolumeObject, AFileOfSeveralGridsTurnsTheObjectIntoASet) {
  const std::filesystem::path dir = zvtest::TempDir();
  const std::string path = (dir / "two.vdb").string();
  Volume first = Sphere(1.0), second = Sphere(0.5);
  first.SetGridName("a");
  second.SetGridName("b");
  WriteVdb(path, {first, second});

  auto doc = zta::AllocDocument();
  zta::BaseObject* op = Insert(*doc, Sphere(0.25), "Pair");
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(path)));
  ASSERT_TRUE(DataOf(op)->IsConvertToSetPending());
  const Int held = DataOf(op)->GetVolume().GetActiveVoxelCount();

  if (!zta::FindPlugin(ID_VOLUMESET)) {
    // No Volume Set to make: the object stays as it is and asks again.
    EXPECT_EQ(DataOf(op)->ExecuteObject(op, doc.get(), nullptr, zta::EXECUTIONPRIORITY_INITIAL, 0),
              zta::EXECUTIONRESULT::OUTOFMEMORY);
    ASSERT_EQ(doc->SearchObject("Pair"), op);
    EXPECT_EQ(DataOf(op)->GetVolume().GetActiveVoxelCount(), held);
    EXPECT_TRUE(DataOf(op)->IsConvertToSetPending());
    return;
  }
  EXPECT_EQ(DataOf(op)->ExecuteObject(op, doc.get(), nullptr, zta::EXECUTIONPRIORITY_INITIAL, 0),
            zta::EXECUTIONRESULT::OK);
  zta::BaseObject* set = doc->SearchObject("Pair");
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(set->GetType(), ID_VOLUMESET);
  EXPECT_EQ(set->GetNext(), nullptr);
  ASSERT_TRUE(doc->DoUndo());
  zta::BaseObject* back = doc->SearchObject("Pair");
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->GetType(), ID_VOLUMEOBJECT);
  EXPECT_EQ(back->GetNext(), nullptr);
}
