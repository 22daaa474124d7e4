// The file buffer .vdb files are read through: positions, seeks and reads
// across its blocks give what a plain file stream gives, and a file's only
// grid read through it equals the same grid read from a file of two.
#include <gtest/gtest.h>

#include <openvdb/io/File.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <fstream>
#include <istream>
#include <string>

#include "modules/volumes/source/helper/filereadbuffer.h"
#include "modules/volumes/source/volume_impl.h"
#include "support/run.h"
#include "zelmar/fileframe.h"

using namespace zelmar;

namespace {

std::string Bytes(size_t count) {
  std::string s(count, '\0');
  for (size_t i = 0; i < count; ++i) s[i] = char((i * 131 + i / 7) & 0xff);
  return s;
}

std::string Read(std::istream& in, size_t count) {
  std::string s(count, '\0');
  in.read(s.data(), std::streamsize(count));
  s.resize(size_t(in.gcount()));
  return s;
}

}  // namespace

TEST(FileReadBuffer, ReadsSeeksAndTellsAsAFileStreamDoes) {
  const std::string path = zvtest::TempDir() + "/bytes.bin";
  const std::string data = Bytes(1000);
  std::ofstream(path, std::ios::binary) << data;

  // Blocks of 7 bytes: every read below crosses blocks.
  FileReadBuffer buffer(path, 7);
  ASSERT_TRUE(buffer.IsOpen());
  std::istream in(&buffer);
  EXPECT_EQ(Read(in, 3), data.substr(0, 3));
  EXPECT_EQ(in.tellg(), 3);
  EXPECT_EQ(Read(in, 20), data.substr(3, 20));  // larger than a block: read straight through
  EXPECT_EQ(in.tellg(), 23);
  EXPECT_EQ(in.get(), (unsigned char)data[23]);
  in.seekg(5, std::ios::cur);  // within reach of the block or not, the same place
  EXPECT_EQ(in.tellg(), 29);
  EXPECT_EQ(Read(in, 4), data.substr(29, 4));
  in.seekg(-4, std::ios::cur);  // back into the block just read
  EXPECT_EQ(Read(in, 4), data.substr(29, 4));
  in.seekg(500);
  EXPECT_EQ(Read(in, 9), data.substr(500, 9));
  in.seekg(2);
  EXPECT_EQ(Read(in, 6), data.substr(2, 6));
  in.seekg(-10, std::ios::end);
  EXPECT_EQ(in.tellg(), 990);
  // Past the end: what there is, then the end of the stream.
  EXPECT_EQ(Read(in, 30), data.substr(990));
  EXPECT_TRUE(in.eof());
  in.clear();
  in.seekg(-1);
  EXPECT_TRUE(in.fail());

  FileReadBuffer missing(zvtest::TempDir() + "/no-such-file.bin");
  EXPECT_FALSE(missing.IsOpen());
  std::istream none(&missing);
  EXPECT_EQ(Read(none, 4), "");
}

// A file of one grid is read as a stream, a file of more by the file reader:
// the same grid comes out of both, values, states, metadata and transform.
TEST(FileReadBuffer, AFilesOnlyGridEqualsTheSameGridAmongOthers) {
  auto grid = openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.0f, openvdb::Vec3f(0.2f, 0, 0), 0.05f);
  grid->setName("ball");
  grid->insertMeta("note", openvdb::StringMetadata("kept"));
  grid->tree().addTile(1, openvdb::Coord(-4096), -3.0f, true);  // an active tile far away
  auto other = openvdb::FloatGrid::create(2.0f);
  other->setName("zzz");
  const std::string dir = zvtest::TempDir();
  {
    openvdb::io::File one(dir + "/one.vdb");
    one.write({grid});
    one.close();
    openvdb::io::File two(dir + "/two.vdb");
    two.write({grid, other});
    two.close();
  }
  auto a = FileFrameInterface::LoadGrid(zta::Url(dir + "/one.vdb"), 0);
  auto b = FileFrameInterface::LoadGrid(zta::Url(dir + "/two.vdb"), 0);
  ASSERT_TRUE(a.IsOk()) << a.GetError().GetMessage();
  ASSERT_TRUE(b.IsOk()) << b.GetError().GetMessage();
  const auto ga = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(*a));
  const auto gb = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(*b));
  ASSERT_TRUE(ga && gb);
  EXPECT_EQ(ga->getName(), "ball");
  EXPECT_EQ(ga->str(), gb->str());  // every metadata entry, the transform, the tree's shape
  EXPECT_EQ(ga->metaValue<std::string>("note"), "kept");
  EXPECT_EQ(ga->activeVoxelCount(), grid->activeVoxelCount());
  EXPECT_EQ(ga->tree().activeTileCount(), 1u);
  EXPECT_EQ(ga->transform(), grid->transform());
  auto acc = gb->getConstAccessor();
  for (auto it = ga->tree().cbeginValueAll(); it; ++it) {
    ASSERT_EQ(*it, acc.getValue(it.getCoord())) << it.getCoord();
    ASSERT_EQ(it.isValueOn(), acc.isValueOn(it.getCoord())) << it.getCoord();
  }
  EXPECT_EQ(ga->tree().leafCount(), gb->tree().leafCount());
}
