// What the mirror into the scene's frame will cost is told before it runs:
// the estimate holds what the mirror builds, and a grid whose tiles would
// become more leaves than the memory limit allows is refused with one error,
// its file and the volumes it was to fill untouched.
#include <gtest/gtest.h>

#include <openvdb/io/File.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include "modules/volumes/source/helper/vdbmirror.h"
#include "modules/volumes/source/volume_impl.h"
#include "support/run.h"
#include "zelmar/fileframe.h"
#include "zelmar/memorylimit.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;

namespace {

using Tools = VolumeToolsInterface;

// Puts the process-wide limit back whatever a test ends with.
struct LimitScope {
  explicit LimitScope(uint64_t bytes) { MemoryLimitInterface::SetLimit(bytes); }
  ~LimitScope() { MemoryLimitInterface::SetLimit(0); }
};

constexpr uint64_t kMiB = uint64_t(1) << 20;

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteFile(const std::string& path, const openvdb::GridBase::Ptr& grid) {
  openvdb::io::File f(path);
  f.write({grid});
  f.close();
}

// One active region of `side`^3 voxels at the origin, held as tiles.
openvdb::FloatGrid::Ptr TileBlock(int side) {
  auto g = openvdb::FloatGrid::create(0.0f);
  g->setName("block");
  g->setGridClass(openvdb::GRID_FOG_VOLUME);
  g->tree().fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(side - 1)), 1.0f, true);
  return g;
}

double Actual(const openvdb::GridBase::Ptr& grid) { return double(MirrorGridIndexZ(grid)->memUsage()); }

}  // namespace

TEST(MirrorMemory, EstimateHoldsWhatTheMirrorBuildsWithoutFarExceedingIt) {
  // A level set with inside tiles, fog tiles of every size against the
  // background, stacked unlike tiles, and a leaf-sized tile beside leaves.
  auto sphere = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(60.0f, openvdb::Vec3f(3, -2, 5), 0.5f, 3.0f);
  auto tiles = openvdb::FloatGrid::create(0.0f);
  tiles->tree().addTile(1, openvdb::Coord(0, 0, 0), 0.5f, true);
  tiles->tree().addTile(1, openvdb::Coord(0, 0, 8), 0.75f, true);
  tiles->tree().addTile(2, openvdb::Coord(128, 0, 0), 1.0f, true);
  tiles->tree().addTile(2, openvdb::Coord(128, 0, 128), 2.0f, true);
  tiles->tree().addTile(2, openvdb::Coord(256, 0, 0), 3.0f, false);
  for (int k = -20; k < 20; ++k) tiles->tree().setValue(openvdb::Coord(3, 4, k), float(k));
  auto vectors = openvdb::Vec3SGrid::create();
  vectors->tree().fill(openvdb::CoordBBox(openvdb::Coord(-256), openvdb::Coord(255)), openvdb::Vec3s(1, 0, 0), true);
  auto mask = openvdb::BoolGrid::create(false);
  mask->tree().fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(127, 127, 300)), true, true);

  for (const openvdb::GridBase::Ptr& grid : std::initializer_list<openvdb::GridBase::Ptr>{
           sphere, tiles, TileBlock(128), vectors, mask}) {
    const double estimate = MirrorGridIndexZBytes(grid), actual = Actual(grid);
    EXPECT_GE(estimate, actual) << grid->valueType() << " " << grid->activeVoxelCount();
    EXPECT_LE(estimate, 4.0 * actual + double(kMiB)) << grid->valueType() << " " << grid->activeVoxelCount();
  }
  // Tiles that meet like tiles across their faces make no leaves there: a
  // column of eight equal root tiles costs no more than one.
  auto column = openvdb::FloatGrid::create(0.0f);
  column->tree().fill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(4095, 4095, 8 * 4096 - 1)), 1.0f, true);
  EXPECT_LT(MirrorGridIndexZBytes(column), 1.5 * MirrorGridIndexZBytes(TileBlock(4096)));
  EXPECT_EQ(MirrorGridIndexZBytes(nullptr), 0.0);
}

TEST(MirrorMemory, HugeTileFileIsRefusedWithOneErrorAndLosesNothing) {
  const std::string dir = zvtest::TempDir();
  const std::string huge = dir + "/huge.vdb";
  // 40960^3 active voxels as a thousand root tiles: a file of a few
  // kilobytes whose mirror would need far more than 8 GiB.
  WriteFile(huge, TileBlock(40960));
  ASSERT_LT(std::filesystem::file_size(huge), 64u * 1024u);
  const std::string bytes = Slurp(huge);
  const LimitScope limit(8 * 1024 * kMiB);

  const std::string says = "grid 'block' needs about";
  auto all = Tools::LoadVDBFile(Url(huge), 1.0, nullptr, nullptr, nullptr);
  ASSERT_FALSE(all);
  const std::string message = all.GetError().GetMessage();
  EXPECT_NE(message.find("could not be loaded and an error occured: " + says), std::string::npos) << message;
  EXPECT_NE(message.find("more than the 8.0 GiB the memory limit allows"), std::string::npos) << message;
  EXPECT_EQ(message.find('\n'), std::string::npos);

  // A volume to be filled keeps its grid; a chosen grid is refused alike.
  Volume kept = *Tools::CreateNewFloat32Volume(0.25f);
  const auto keptGrid = VolumeImpl::GetGrid(kept);
  auto into = Tools::LoadGridIntoVolume(Url(huge), 1.0, 0, kept, nullptr);
  ASSERT_FALSE(into);
  EXPECT_NE(into.GetError().GetMessage().find(says), std::string::npos);
  EXPECT_EQ(VolumeImpl::GetGrid(kept), keptGrid);
  const std::vector<Int> first{0};
  EXPECT_FALSE(Tools::LoadVDBFile(Url(huge), 1.0, nullptr, &first, nullptr));
  EXPECT_FALSE(Volume::CreateFromFile(Url(huge), 1.0, 0));

  // The file's own frame needs no mirror: the grid loads as the tiles it is
  // and writes back the same way; written into the scene's frame it is
  // refused before a file exists.
  auto raw = FileFrameInterface::LoadGrid(Url(huge), 0);
  ASSERT_TRUE(raw) << raw.GetError().GetMessage();
  EXPECT_EQ(raw->GetActiveVoxelCount(), int64_t(40960) * 40960 * 40960);
  const std::string mirrored = dir + "/mirrored.vdb", same = dir + "/same.vdb";
  auto save = Tools::SaveVDBFile(Url(mirrored), 1.0, {*raw}, {});
  ASSERT_FALSE(save);
  EXPECT_NE(save.GetError().GetMessage().find("Grids could not be written and an error occured: " + says),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(mirrored));
  ASSERT_TRUE(FileFrameInterface::SaveVDBFile(Url(same), {*raw}, {}));
  EXPECT_EQ(Slurp(huge), bytes);

  // "none" lifts the check; a small tile block fits a small limit and comes
  // in mirrored; a smaller limit refuses it too.
  const std::string small = dir + "/small.vdb";
  WriteFile(small, TileBlock(128));
  {
    const LimitScope none(std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(MemoryLimitInterface::GetLimit(), std::numeric_limits<uint64_t>::max());
    auto loaded = Tools::LoadVDBFile(Url(small), 1.0, nullptr, nullptr, nullptr);
    ASSERT_TRUE(loaded);
    const auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(loaded->at(0)));
    EXPECT_TRUE(grid->tree().isValueOn(openvdb::Coord(5, 5, -127)));
    EXPECT_FALSE(grid->tree().isValueOn(openvdb::Coord(5, 5, 1)));
    EXPECT_EQ(grid->activeVoxelCount(), openvdb::Index64(128 * 128 * 128));
  }
  {
    const LimitScope some(4 * kMiB);
    EXPECT_TRUE(Tools::LoadVDBFile(Url(small), 1.0, nullptr, nullptr, nullptr));
  }
  {
    const LimitScope tiny(64 * 1024);
    auto refused = Tools::LoadVDBFile(Url(small), 1.0, nullptr, nullptr, nullptr);
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.GetError().GetMessage().find("more than the 64.0 KiB the memory limit allows"),
              std::string::npos);
  }
  EXPECT_EQ(MemoryLimitInterface::GetLimit(), 0u);
  EXPECT_GT(MemoryLimitInterface::GetAvailable(), 0u);
}

// Sampling fields fills every voxel of their box: a box of more voxels than
// memory holds is refused before the first is made, and one outside the index
// range of a grid is refused as such.
TEST(FieldsMemoryLimit, AHugeBoxIsRefusedBeforeAnyVoxelIsMade) {
  const LimitScope limit(64 * kMiB);
  const BoundingBox box{{-10, -10, -10}, {10, 10, 10}};
  auto huge = Tools::ConvertFieldsToVolume(FieldSampleData(), 0.01, box, nullptr, Volume(), nullptr);
  ASSERT_FALSE(huge.IsOk());
  const std::string message = huge.GetError().GetMessage();
  // 2002^3 voxels of 32 bytes: a float, its position and its sample.
  EXPECT_NE(message.find("needs about 239.1 GiB to sample the fields over their box, more than the 64.0 MiB the memory "
                         "limit allows"),
            std::string::npos)
      << message;
  auto vectors = Tools::ConvertFieldsToVectorVolume(FieldSampleData(), 0.01, box, nullptr, Volume(), nullptr);
  ASSERT_FALSE(vectors.IsOk());
  EXPECT_NE(vectors.GetError().GetMessage().find("to sample the fields over their box"), std::string::npos);
  // Within the limit the same call runs.
  auto small = Tools::ConvertFieldsToVolume(FieldSampleData(), 1.0, box, nullptr, Volume(), nullptr);
  ASSERT_TRUE(small.IsOk()) << small.GetError().GetMessage();
  EXPECT_EQ(small->GetActiveVoxelCount(), 22 * 22 * 22);

  const double nan = std::numeric_limits<double>::quiet_NaN();
  const BoundingBox far{{-1e7, 0, 0}, {1e7, 1, 1}};
  auto beyond = Tools::ConvertFieldsToVolume(FieldSampleData(), 1e-3, far, nullptr, Volume(), nullptr);
  ASSERT_FALSE(beyond.IsOk());
  EXPECT_NE(beyond.GetError().GetMessage().find("beyond the grid's index range"), std::string::npos)
      << beyond.GetError().GetMessage();
  auto undefined = Tools::ConvertFieldsToVolume(FieldSampleData(), 1.0, BoundingBox{{nan, 0, 0}, {1, 1, 1}}, nullptr,
                                               Volume(), nullptr);
  EXPECT_FALSE(undefined.IsOk());
}
