// The Volume Sequence: how a file name gives the series, how the document's
// frame picks a file, and what the cache holds at a frame.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/checklist.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "host/scene/parameters.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumesequence.h"
#include "support/run.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;
using zta::Vector;
namespace fs = std::filesystem;

namespace {

Volume Sphere(double radius, const std::string& name) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, Vector(0.0), 0.1, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  Volume v = *r;
  v.SetGridName(name);
  return v;
}

void Write(const fs::path& path, const std::vector<Volume>& volumes) {
  ASSERT_TRUE(VolumeToolsInterface::SaveVDBFile(Url::FromSystemPath(path.string()), 1.0, volumes, DataDictionary()).IsOk());
}

// The position `frame` shows, or -1 when nothing is shown.
int At(zta::BaseContainer& bc, zta::Int64 frame) {
  zta::Int32 position = 0;
  return MapFrameToSeries(bc, frame, &position) ? position : -1;
}

zta::BaseContainer Series(int first, int last, double speed, int offset, bool loop) {
  zta::BaseContainer bc;
  bc.SetInt32(SEQUENCE_FIRST, first);
  bc.SetInt32(SEQUENCE_LAST, last);
  bc.SetFloat(SEQUENCE_SPEED, speed);
  bc.SetInt32(SEQUENCE_OFFSET, offset);
  bc.SetBool(SEQUENCE_LOOP, loop);
  return bc;
}

// The active voxel counts of the cache's volumes at the document's frame.
std::vector<Int> Build(zta::BaseDocument& doc, zta::BaseObject* op, int frame) {
  doc.SetTime(zta::BaseTime(frame, doc.GetFps()));
  zta::HierarchyHelp hh(&doc, nullptr, 0, op);
  std::unique_ptr<zta::BaseObject> cache(op->GetNodeData<VolumeSequence>()->BuildVirtualObjects(op, &hh));
  EXPECT_NE(cache, nullptr);
  std::vector<Int> counts;
  if (!cache) return counts;
  EXPECT_EQ(cache->GetType(), zta::HOST_TYPE_NULL);
  for (zta::BaseObject* c = cache->GetDown(); c; c = c->GetNext()) {
    EXPECT_EQ(c->GetType(), ID_VOLUMEOBJECT);
    counts.push_back(VolumeObjectData::GetVolume(c).GetActiveVoxelCount());
  }
  return counts;
}

}  // namespace

TEST(VolumeSequence, AFileNameGivesPrefixNumberAndSuffix) {
  SequenceName n = ParseSequenceName("cloud.0042.vdb");
  ASSERT_TRUE(n.valid);
  EXPECT_EQ(n.prefix, "cloud.");
  EXPECT_EQ(n.number, 42);
  EXPECT_EQ(n.digits, 4);
  EXPECT_EQ(n.suffix, ".vdb");
  n = ParseSequenceName("cloud7.vdb");
  ASSERT_TRUE(n.valid);
  EXPECT_EQ(n.prefix, "cloud");
  EXPECT_EQ(n.number, 7);
  // A movie's own digits are not the frame's.
  n = ParseSequenceName("clip12.mp4");
  ASSERT_TRUE(n.valid);
  EXPECT_EQ(n.prefix, "clip");
  EXPECT_EQ(n.number, 12);
  EXPECT_EQ(n.suffix, ".mp4");
  EXPECT_FALSE(ParseSequenceName("cloud.vdb").valid);
  EXPECT_FALSE(ParseSequenceName("0042.vdb").valid);
  EXPECT_FALSE(ParseSequenceName("").valid);
}

TEST(VolumeSequence, TheDocumentFrameMapsToAFileOfTheSeries) {
  // Speed 1: one file a frame from the offset on, nothing outside without loop.
  zta::BaseContainer plain = Series(0, 9, 1.0, 5, false);
  EXPECT_EQ(At(plain, 4), -1);
  EXPECT_EQ(At(plain, 5), 0);
  EXPECT_EQ(At(plain, 9), 4);
  EXPECT_EQ(At(plain, 14), 9);
  EXPECT_EQ(At(plain, 16), -1);
  // Speed 2: ten files last five frames and every second one is shown.
  zta::BaseContainer fast = Series(0, 9, 2.0, 0, false);
  std::vector<int> shown;
  for (int f = 0; f < 5; ++f) shown.push_back(At(fast, f));
  EXPECT_EQ(shown, (std::vector<int>{0, 2, 4, 6, 8}));
  EXPECT_EQ(At(fast, 6), -1);
  // Speed 0: a length of 0 and the first file.
  zta::BaseContainer still = Series(3, 9, 0.0, 2, false);
  EXPECT_EQ(At(still, 2), 3);
  EXPECT_EQ(At(still, 3), -1);
  // Loop: before the offset it wraps backwards by the number of files.
  zta::BaseContainer loop = Series(0, 9, 1.0, 0, true);
  EXPECT_EQ(At(loop, -1), 9);
  EXPECT_EQ(At(loop, -10), 0);
  EXPECT_EQ(At(loop, -25), 5);
  EXPECT_EQ(At(loop, 12), 2);
  // A range that starts later counts from its first file.
  zta::BaseContainer later = Series(4, 7, 1.0, 0, true);
  EXPECT_EQ(At(later, 0), 4);
  EXPECT_EQ(At(later, 5), 5);
}

TEST(VolumeSequence, PlaysTheFilesOfTheSeriesByFrame) {
  const fs::path dir = zvtest::TempDir();
  // Numbered with a gap; an unrelated file in the folder is no frame.
  const std::vector<double> radii = {0.5, 1.0, 1.5};
  const std::vector<std::string> files = {"smoke.0001.vdb", "smoke.0002.vdb", "smoke.0005.vdb"};
  std::vector<Int> counts;
  for (size_t i = 0; i < radii.size(); ++i) {
    const Volume v = Sphere(radii[i], "density");
    counts.push_back(v.GetActiveVoxelCount());
    Write(dir / files[i], {v, Sphere(0.3, "temperature")});
  }
  Write(dir / "smoke.vdb", {Sphere(2.0, "density")});
  const Int small = Sphere(0.3, "t").GetActiveVoxelCount();

  auto doc = zta::AllocDocument();
  std::unique_ptr<zta::BaseObject> made = zta::AllocObject(ID_VOLUMESEQUENCE);
  ASSERT_NE(made, nullptr);
  zta::BaseObject* op = made.release();
  doc->InsertObject(op);
  auto* data = op->GetNodeData<VolumeSequence>();

  // No file: an empty cache.
  EXPECT_EQ(Build(*doc, op, 0), std::vector<Int>{});
  // Any file of the series names the whole series.
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(SEQUENCE_FILE), zta::GeData((dir / files[1]).string())));
  EXPECT_EQ(Build(*doc, op, 0), (std::vector<Int>{counts[0], small}));
  EXPECT_TRUE(data->AreFilesFound());
  EXPECT_EQ(data->GetFrameCount(), 3);
  EXPECT_EQ(op->GetDataInstance()->GetInt32(SEQUENCE_LAST), 2);
  EXPECT_EQ(Build(*doc, op, 2), (std::vector<Int>{counts[2], small}));
  EXPECT_EQ(Build(*doc, op, 1), (std::vector<Int>{counts[1], small}));
  EXPECT_EQ(Build(*doc, op, 4), std::vector<Int>{});
  auto grids = op->GetDataInstance()->GetCustomDataTyped<zta::CheckListData>(SEQUENCE_GRIDS);
  ASSERT_NE(grids, nullptr);
  ASSERT_EQ(grids->GetCount(), 2);
  EXPECT_EQ(grids->GetName(0), "density");

  // A grid switched off leaves the cache.
  auto off = std::make_shared<zta::CheckListData>(*grids);
  off->SetChecked(1, false);
  op->GetDataInstance()->SetCustomData(SEQUENCE_GRIDS, off);
  EXPECT_EQ(Build(*doc, op, 1), (std::vector<Int>{counts[1]}));

  // Without the range, one fixed file, held to the series.
  op->GetDataInstance()->SetBool(SEQUENCE_USE_RANGE, false);
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(SEQUENCE_FRAME), zta::GeData(zta::Int32(7))));
  EXPECT_EQ(op->GetDataInstance()->GetInt32(SEQUENCE_FRAME), 2);
  EXPECT_EQ(Build(*doc, op, 0), (std::vector<Int>{counts[2]}));

  // Looping by the document's frame.
  op->GetDataInstance()->SetBool(SEQUENCE_USE_RANGE, true);
  op->GetDataInstance()->SetBool(SEQUENCE_LOOP, true);
  EXPECT_EQ(Build(*doc, op, 4), (std::vector<Int>{counts[1]}));

  // A single file is a series of one; a missing one says so.
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(SEQUENCE_FILE), zta::GeData((dir / "smoke.vdb").string())));
  EXPECT_EQ(Build(*doc, op, 0), (std::vector<Int>{Sphere(2.0, "d").GetActiveVoxelCount()}));
  EXPECT_EQ(data->GetFrameCount(), 1);
  ASSERT_TRUE(zta::SetParameter(op, zta::DescID(SEQUENCE_FILE), zta::GeData((dir / "gone.0001.vdb").string())));
  EXPECT_EQ(Build(*doc, op, 0), std::vector<Int>{});
  EXPECT_FALSE(data->AreFilesFound());
  EXPECT_EQ(op->GetDataInstance()->GetString(SEQUENCE_INFO), "File not found");
}
