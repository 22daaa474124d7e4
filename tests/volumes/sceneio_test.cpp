// The .vdb import and export of the host: what the import finds in a file and
// a series, the rules of its settings, what it makes in the document, and the
// files the export writes for a frame and a range.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/scene/checklist.h"
#include "host/scene/execution.h"
#include "host/scene/parameters.h"
#include "host/scene/sceneio.h"
#include "host/scene/unitscale.h"
#include "host/ui/hostmode.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumesavehookinterface.h"
#include "modules/volumes/source/objects/volumesequence.h"
#include "modules/volumes/source/sceneio/vdbsceneloader.h"
#include "modules/volumes/source/sceneio/vdbscenesaver.h"
#include "support/run.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;
using zta::Vector;
namespace fs = std::filesystem;

namespace {

Volume Sphere(double radius, const std::string& name, double voxel = 0.1) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, Vector(0.0), voxel, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  Volume v = *r;
  v.SetGridName(name);
  return v;
}

std::string Write(const fs::path& path, const std::vector<Volume>& volumes) {
  EXPECT_TRUE(
      VolumeToolsInterface::SaveVDBFile(Url::FromSystemPath(path.string()), 1.0, volumes, DataDictionary()).IsOk());
  return path.string();
}

std::unique_ptr<zta::BaseList2D> Loader(zta::BaseDocument* doc, const std::string& path) {
  auto node = zta::AllocSceneFilter(ID_VDBSCENELOADER);
  EXPECT_NE(node, nullptr);
  zta::SceneFilterPrepare prepare{doc, Url::FromSystemPath(path)};
  node->Message(zta::MSG_SCENEFILTER_PREPARE, &prepare);
  return node;
}

OpenVDBLoaderData* LoaderOf(const std::unique_ptr<zta::BaseList2D>& node) { return node->GetNodeData<OpenVDBLoaderData>(); }

bool Enabled(zta::BaseList2D* node, zta::Int32 id) {
  return node->GetNodeData()->IsParameterEnabled(node, zta::DescID(id), zta::GeData(), 0, nullptr);
}

void Check(zta::BaseList2D* node, const std::vector<bool>& on) {
  auto list = std::static_pointer_cast<zta::CheckListData>(
      std::shared_ptr<zta::CustomDataType>(node->GetDataInstance()->GetCustomDataTyped<zta::CheckListData>(VDBIMPORT_GRIDS)->Clone()));
  for (size_t i = 0; i < on.size(); ++i) list->SetChecked(zta::Int32(i), on[i]);
  ASSERT_TRUE(zta::SetParameter(node, zta::DescID(VDBIMPORT_GRIDS), zta::GeData(std::shared_ptr<const zta::CustomDataType>(list))));
}

zta::Int32 Load(zta::BaseList2D* node, zta::BaseDocument* doc, const std::string& path, std::string* error = nullptr) {
  zta::SceneFilterRun run;
  const zta::Int32 r = node->GetNodeData<zta::SceneLoaderData>()->LoadScene(node, doc, Url::FromSystemPath(path), 0, run);
  if (error) *error = run.error;
  return r;
}

std::vector<zta::BaseObject*> TopLevel(zta::BaseDocument& doc) {
  std::vector<zta::BaseObject*> out;
  for (zta::BaseObject* op = doc.GetFirstObject(); op; op = op->GetNext()) out.push_back(op);
  return out;
}

}  // namespace

TEST(VdbImport, IdentifiesVdbFilesByNameAndHeader) {
  const fs::path dir = zvtest::TempDir();
  const std::string good = Write(dir / "ball.vdb", {Sphere(1.0, "ball")});
  std::ofstream(dir / "fake.vdb") << "not a volume at all";
  fs::copy_file(good, dir / "ball.bin");
  auto node = zta::AllocSceneFilter(ID_VDBSCENELOADER);
  ASSERT_NE(node, nullptr);
  auto* loader = node->GetNodeData<zta::SceneLoaderData>();
  auto identify = [&](const fs::path& p) {
    std::vector<unsigned char> probe;
    EXPECT_TRUE(zta::ReadSceneFilterProbe(p.string(), &probe));
    return loader->IdentifyFile(node.get(), p.string(), probe.data(), zta::Int32(probe.size()));
  };
  EXPECT_TRUE(identify(good));
  EXPECT_FALSE(identify(dir / "fake.vdb"));  // the right suffix, a wrong header
  EXPECT_FALSE(identify(dir / "ball.bin"));  // a right header, the wrong suffix
  EXPECT_EQ(LoaderOf(node)->GetUrl().GetPath(), (dir / "ball.bin").string());
  // The export is registered beside it.
  EXPECT_NE(zta::AllocSceneFilter(ID_VDBSCENESAVER), nullptr);
  EXPECT_EQ(zta::AllocSceneFilter(ID_VOLUMEOBJECT), nullptr);
}

TEST(VdbImport, FindsTheSeriesAndKeepsTheFrameRangeInside) {
  const fs::path dir = zvtest::TempDir();
  for (int i = 1; i <= 10; ++i) Write(dir / zta::FormatString("cloud.@.vdb", std::string(i < 10 ? "000" : "00") + std::to_string(i)), {Sphere(0.5 + 0.1 * i, "density")});
  Write(dir / "cloudy.0003.vdb", {Sphere(1.0, "x")});  // another prefix, not of the series
  Write(dir / "plain.vdb", {Sphere(1.0, "x")});
  Write(dir / "0042.vdb", {Sphere(1.0, "x")});

  auto doc = zta::AllocDocument();
  auto node = Loader(doc.get(), (dir / "cloud.0004.vdb").string());
  const zta::BaseContainer* bc = node->GetDataInstance();
  EXPECT_TRUE(bc->GetBool(VDBIMPORT_SEQUENCE));
  EXPECT_EQ(bc->GetInt32(VDBIMPORT_LAST), 9);
  const VDBSequenceRecord& record = LoaderOf(node)->GetSequence();
  EXPECT_EQ(record.frameCount, 10);
  EXPECT_EQ(record.firstFrame, 1);
  EXPECT_EQ(record.lastFrame, 10);
  EXPECT_EQ(record.prefix, "cloud.");
  EXPECT_EQ(record.suffix, ".vdb");

  // The dialog's frame fields reach as far as the series.
  zta::Description loaderDescription;
  zta::Int32 describeFlags = 0;
  ASSERT_TRUE(node->GetNodeData()->DescribeParameters(node.get(), &loaderDescription, describeFlags));
  ASSERT_NE(loaderDescription.GetParameter(zta::DescID(VDBIMPORT_LAST)), nullptr);
  EXPECT_EQ(loaderDescription.GetParameter(zta::DescID(VDBIMPORT_LAST))->GetFloat(zta::DESC_MAX), 9.0);

  // Ten files: the last frame goes no higher than 9, the first no higher than the last.
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBIMPORT_LAST), zta::GeData(zta::Int32(25))));
  EXPECT_EQ(bc->GetInt32(VDBIMPORT_LAST), 9);
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBIMPORT_LAST), zta::GeData(zta::Int32(5))));
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBIMPORT_FIRST), zta::GeData(zta::Int32(7))));
  EXPECT_EQ(bc->GetInt32(VDBIMPORT_FIRST), 5);
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBIMPORT_FIRST), zta::GeData(zta::Int32(2))));
  EXPECT_EQ(bc->GetInt32(VDBIMPORT_FIRST), 2);

  // A sequence takes the frame fields and leaves the grid choice to the list.
  EXPECT_TRUE(Enabled(node.get(), VDBIMPORT_FIRST));
  EXPECT_FALSE(Enabled(node.get(), VDBIMPORT_SELECT_GRIDS));
  EXPECT_FALSE(Enabled(node.get(), VDBIMPORT_AS_SET));
  EXPECT_TRUE(Enabled(node.get(), VDBIMPORT_GRIDS));

  // Loaded as a sequence: one Volume Sequence playing the chosen part of the series.
  ASSERT_EQ(Load(node.get(), doc.get(), (dir / "cloud.0004.vdb").string()), zta::FILEERROR_NONE);
  ASSERT_EQ(TopLevel(*doc).size(), 1u);
  zta::BaseObject* seq = doc->GetFirstObject();
  EXPECT_EQ(seq->GetType(), ID_VOLUMESEQUENCE);
  EXPECT_EQ(seq->GetDataInstance()->GetInt32(SEQUENCE_FIRST), 2);
  EXPECT_EQ(seq->GetDataInstance()->GetInt32(SEQUENCE_LAST), 5);
  // Once it has found its files it describes its frame fields within the series.
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  zta::Description description;
  zta::Int32 flags = 0;
  ASSERT_TRUE(seq->GetNodeData()->DescribeParameters(seq, &description, flags));
  ASSERT_NE(description.GetParameter(zta::DescID(SEQUENCE_LAST)), nullptr);
  EXPECT_EQ(description.GetParameter(zta::DescID(SEQUENCE_LAST))->GetFloat(zta::DESC_MAX), 9.0);
  EXPECT_FALSE(description.IsHidden(zta::DescID(SEQUENCE_GRIDS)));

  // No number, or a name that begins with it: no series.
  for (const char* name : {"plain.vdb", "0042.vdb"}) {
    auto other = Loader(doc.get(), (dir / name).string());
    EXPECT_FALSE(other->GetDataInstance()->GetBool(VDBIMPORT_SEQUENCE)) << name;
    EXPECT_FALSE(Enabled(other.get(), VDBIMPORT_SEQUENCE)) << name;
    EXPECT_TRUE(Enabled(other.get(), VDBIMPORT_SELECT_GRIDS)) << name;
  }
}

TEST(VdbImport, ListsTheGridsAndMakesObjectsOrASet) {
  const fs::path dir = zvtest::TempDir();
  const std::string path = Write(dir / "three.vdb", {Sphere(1.0, "a"), Sphere(0.6, "b"), Sphere(0.3, "c")});
  auto doc = zta::AllocDocument();
  auto node = Loader(doc.get(), path);
  auto list = node->GetDataInstance()->GetCustomDataTyped<zta::CheckListData>(VDBIMPORT_GRIDS);
  ASSERT_EQ(list->GetCount(), 3);
  EXPECT_EQ(list->GetName(1), "b");
  EXPECT_TRUE(list->IsChecked(2));
  EXPECT_TRUE(node->GetDataInstance()->GetBool(VDBIMPORT_AS_SET));  // several grids suggest a set
  EXPECT_TRUE(Enabled(node.get(), VDBIMPORT_AS_SET));

  // One checked grid makes a volume object, whatever the set switch says.
  Check(node.get(), {false, true, false});
  EXPECT_FALSE(Enabled(node.get(), VDBIMPORT_AS_SET));
  ASSERT_EQ(Load(node.get(), doc.get(), path), zta::FILEERROR_NONE);
  ASSERT_EQ(TopLevel(*doc).size(), 1u);
  zta::BaseObject* b = doc->GetFirstObject();
  EXPECT_EQ(b->GetType(), ID_VOLUMEOBJECT);
  EXPECT_EQ(b->GetName(), "b");
  EXPECT_EQ(VolumeObjectData::GetVolume(b).GetActiveVoxelCount(), Sphere(0.6, "b").GetActiveVoxelCount());
  EXPECT_EQ(b->GetDataInstance()->GetString(VOLUMEOBJECT_FILE), "b.vdb");

  // Two checked with the switch on: one Volume Set named after the file.
  Check(node.get(), {true, false, true});
  ASSERT_EQ(Load(node.get(), doc.get(), path), zta::FILEERROR_NONE);
  ASSERT_EQ(TopLevel(*doc).size(), 2u);
  EXPECT_EQ(TopLevel(*doc)[1]->GetType(), ID_VOLUMESET);
  EXPECT_EQ(TopLevel(*doc)[1]->GetName(), "three");

  // The switch off: one object per checked grid, in file order.
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBIMPORT_AS_SET), zta::GeData(false)));
  ASSERT_EQ(Load(node.get(), doc.get(), path), zta::FILEERROR_NONE);
  auto top = TopLevel(*doc);
  ASSERT_EQ(top.size(), 4u);
  EXPECT_EQ(top[2]->GetName(), "a");
  EXPECT_EQ(top[3]->GetName(), "c");

  // Without the grid choice only the first grid comes, and the list is off.
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBIMPORT_SELECT_GRIDS), zta::GeData(false)));
  EXPECT_FALSE(Enabled(node.get(), VDBIMPORT_GRIDS));
  ASSERT_EQ(Load(node.get(), doc.get(), path), zta::FILEERROR_NONE);
  ASSERT_EQ(TopLevel(*doc).size(), 5u);
  EXPECT_EQ(TopLevel(*doc)[4]->GetName(), "a");
}

TEST(VdbImport, ScalesByTheUnitsAndFailsOnBadFiles) {
  const fs::path dir = zvtest::TempDir();
  const std::string path = Write(dir / "ball.vdb", {Sphere(1.0, "ball", 0.1)});
  auto doc = zta::AllocDocument();  // in centimetres
  auto node = Loader(doc.get(), path);
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBIMPORT_UNIT),
                                zta::GeData(std::shared_ptr<const zta::CustomDataType>(
                                    std::make_shared<zta::UnitScaleData>(1.0, zta::DOCUMENTUNIT::M)))));
  ASSERT_EQ(Load(node.get(), doc.get(), path), zta::FILEERROR_NONE);
  const Volume v = VolumeObjectData::GetVolume(doc->GetFirstObject());
  EXPECT_NEAR(v.GetGridTransform().v1.GetLength(), 10.0, 1e-5);  // 0.1 m is 10 cm

  // A file cut short: an error in words, and what stood in the document stays.
  const std::string whole = Write(dir / "two.vdb", {Sphere(1.0, "a"), Sphere(1.0, "b")});
  auto cutNode = Loader(doc.get(), whole);
  ASSERT_TRUE(zta::SetParameter(cutNode.get(), zta::DescID(VDBIMPORT_AS_SET), zta::GeData(false)));
  fs::resize_file(whole, 200);
  std::string error;
  EXPECT_NE(Load(cutNode.get(), doc.get(), whole, &error), zta::FILEERROR_NONE);
  EXPECT_FALSE(error.empty());
  EXPECT_LE(TopLevel(*doc).size(), 2u);  // the first grid may have come before the cut
  EXPECT_EQ(TopLevel(*doc)[0]->GetName(), "ball");
}

TEST(VdbExport, NamesFramesByTheChosenForm) {
  const Url url = Url::FromSystemPath("/out/smoke.vdb");
  const char* expected[] = {"smoke0042.vdb", "smoke042.vdb", "smoke_0042.vdb", "smoke_042.vdb", "smoke.0042.vdb", "smoke.042.vdb"};
  for (int form = 0; form < 6; ++form)
    EXPECT_EQ(ExportFrameUrl(url, 42, form, true).GetPath(), std::string("/out/") + expected[form]) << form;
  // Digits at the end of the name give way to the frame's; one frame keeps the name as given.
  EXPECT_EQ(ExportFrameUrl(Url::FromSystemPath("/out/smoke12.vdb"), 7, 4, true).GetPath(), "/out/smoke.0007.vdb");
  EXPECT_EQ(ExportFrameUrl(url, 7, 4, false).GetPath(), "/out/smoke.vdb");
  EXPECT_EQ(ExportFrameUrl(url, 12345, 1, true).GetPath(), "/out/smoke12345.vdb");

  std::vector<std::string> taken;
  EXPECT_EQ(MakeUniqueGridName("density", taken), "density");
  EXPECT_EQ(MakeUniqueGridName("density", taken), "density_1");
  EXPECT_EQ(MakeUniqueGridName("density", taken), "density_2");
  EXPECT_EQ(MakeUniqueGridName("density_1", taken), "density_1_1");
}

TEST(VdbExport, SettingsKeepTheRangeInOrder) {
  auto node = zta::AllocSceneFilter(ID_VDBSCENESAVER);
  ASSERT_NE(node, nullptr);
  const zta::BaseContainer* bc = node->GetDataInstance();
  auto doc = zta::AllocDocument();
  doc->SetFps(25);
  ASSERT_TRUE(doc->SetTimeRange(zta::BaseTime(1.0), zta::BaseTime(3.0)));
  zta::SceneFilterPrepare prepare{doc.get(), Url::FromSystemPath("/tmp/x.vdb")};
  node->Message(zta::MSG_SCENEFILTER_PREPARE, &prepare);
  EXPECT_EQ(bc->GetInt32(VDBEXPORT_FIRST), 25);
  EXPECT_EQ(bc->GetInt32(VDBEXPORT_LAST), 75);

  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_FIRST), zta::GeData(zta::Int32(80))));
  EXPECT_EQ(bc->GetInt32(VDBEXPORT_LAST), 80);
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_LAST), zta::GeData(zta::Int32(10))));
  EXPECT_EQ(bc->GetInt32(VDBEXPORT_FIRST), 10);
  // A range once given is not taken from the document again.
  node->Message(zta::MSG_SCENEFILTER_PREPARE, &prepare);
  EXPECT_EQ(bc->GetInt32(VDBEXPORT_FIRST), 10);

  EXPECT_FALSE(Enabled(node.get(), VDBEXPORT_FIRST));
  EXPECT_FALSE(Enabled(node.get(), VDBEXPORT_NAMING));
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_ANIMATION), zta::GeData(true)));
  EXPECT_TRUE(Enabled(node.get(), VDBEXPORT_LAST));
  EXPECT_TRUE(Enabled(node.get(), VDBEXPORT_NAMING));
}

TEST(VdbExport, WritesTheVolumesOfTheSceneFrameByFrame) {
  const fs::path dir = zvtest::TempDir();
  auto doc = zta::AllocDocument();
  for (const char* name : {"smoke", "smoke", "ball"}) {
    auto op = VolumeObjectData::MakeObject(Sphere(name[0] == 'b' ? 0.5 : 1.0, "grid"));
    ASSERT_NE(op, nullptr);
    op->SetName(name);
    op.release()->InsertUnderLast(doc->GetObjectListHead());
  }
  // The third object moves: the file holds it where it stands.
  zta::BaseObject* ball = TopLevel(*doc)[2];
  zta::Matrix moved = ball->GetMl();
  moved.off = Vector(5.0, 0.0, 0.0);
  ball->SetMl(moved);

  auto node = zta::AllocSceneFilter(ID_VDBSCENESAVER);
  auto* saver = node->GetNodeData<zta::SceneSaverData>();
  zta::SceneFilterRun run;
  const std::string one = (dir / "one.vdb").string();
  ASSERT_EQ(saver->SaveScene(node.get(), doc.get(), Url::FromSystemPath(one), 0, run), zta::FILEERROR_NONE) << run.error;
  auto names = VolumeToolsInterface::GetGridNamesFromFile(Url::FromSystemPath(one));
  ASSERT_TRUE(names.IsOk());
  std::vector<std::string> sorted = *names;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(sorted, (std::vector<std::string>{"ball", "smoke", "smoke_1"}));
  const Int at = std::find(names->begin(), names->end(), "ball") - names->begin();
  Volume read = *Volume::Create();
  ASSERT_TRUE(read.LoadFromFile(Url::FromSystemPath(one), 1.0, at).IsOk());
  EXPECT_NEAR(read.GetGridTransform().off.x, 5.0, 1e-9);
  EXPECT_EQ(read.GetActiveVoxelCount(), Sphere(0.5, "x").GetActiveVoxelCount());

  // A range of three frames, only the selected object: three files of one grid.
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_ANIMATION), zta::GeData(true)));
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_LAST), zta::GeData(zta::Int32(4))));
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_FIRST), zta::GeData(zta::Int32(2))));
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_NAMING), zta::GeData(zta::Int32(3))));
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_SELECTION), zta::GeData(true)));
  doc->SetActiveObject(ball);
  const zta::BaseTime before = doc->GetTime();
  ASSERT_EQ(saver->SaveScene(node.get(), doc.get(), Url::FromSystemPath((dir / "seq.vdb").string()), 0, run),
            zta::FILEERROR_NONE) << run.error;
  EXPECT_EQ(doc->GetTime(), before);
  for (const char* name : {"seq_002.vdb", "seq_003.vdb", "seq_004.vdb"}) {
    auto grids = VolumeToolsInterface::GetGridNamesFromFile(Url::FromSystemPath((dir / name).string()));
    ASSERT_TRUE(grids.IsOk()) << name;
    EXPECT_EQ(*grids, std::vector<std::string>{"ball"});
  }

  // Nothing selected: the export fails in words and writes nothing.
  doc->SetActiveObject(nullptr);
  const size_t files = std::distance(fs::directory_iterator(dir), fs::directory_iterator());
  EXPECT_EQ(saver->SaveScene(node.get(), doc.get(), Url::FromSystemPath((dir / "none.vdb").string()), 0, run),
            zta::FILEERROR_WRITE);
  EXPECT_EQ(run.error, "no object is selected");

  // Asked to stop before it starts: no file at all.
  ASSERT_TRUE(zta::SetParameter(node.get(), zta::DescID(VDBEXPORT_SELECTION), zta::GeData(false)));
  zta::SceneFilterRun stopped;
  stopped.thread = std::make_shared<zta::ZTAThread>();
  stopped.thread->End();
  EXPECT_EQ(saver->SaveScene(node.get(), doc.get(), Url::FromSystemPath((dir / "stop.vdb").string()), 0, stopped),
            zta::FILEERROR_WRITE);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), std::ptrdiff_t(files));

  // A person waiting gets the progress dialog, which does the same work.
  zta::SetHostMode(zta::HOSTMODE_INTERACTIVE);
  zta::SceneFilterRun shown;
  const zta::Int32 r = saver->SaveScene(node.get(), doc.get(), Url::FromSystemPath((dir / "shown.vdb").string()),
                                        zta::SCENEFILTER_DIALOGSALLOWED, shown);
  zta::SetHostMode(zta::HOSTMODE_LIBRARY);
  EXPECT_EQ(r, zta::FILEERROR_NONE) << shown.error;
  EXPECT_EQ(shown.filesWritten, 3);
  EXPECT_TRUE(fs::exists(dir / "shown_004.vdb"));
}
