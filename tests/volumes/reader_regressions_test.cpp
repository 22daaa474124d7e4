// .vdb files that the fuzzer (tests/fuzz/vdb_fuzz.cpp) found to stop or crash
// the reader, each kept as found: every way of reading them ends in a volume
// or one error line.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "zelmar/fileframe.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Url;

namespace {

template <typename R>
void ExpectValueOrOneLine(const R& r, const char* how) {
  if (!r) {
    EXPECT_EQ(r.GetError().GetMessage().find('\n'), std::string::npos) << how << ": " << r.GetError().GetMessage();
  }
}

}  // namespace

TEST(VdbReaderRegressions, ShortDelayedLoadMetadataNeitherStopsNorCrashesTheReader) {
  // A leaf mask list in "file_delayed_load" shorter than the tree: OpenVDB's
  // delayed loading indexed past it and stopped the process on an assertion.
  const Url url = Url::FromSystemPath(std::string(ZV_SOURCE_DIR) + "/tests/volumes/data/delayed-load-short-mask.vdb");
  auto names = VolumeToolsInterface::GetGridNamesFromFile(url);
  ASSERT_TRUE(names) << names.GetError().GetMessage();
  ASSERT_FALSE(names->empty());
  ExpectValueOrOneLine(VolumeToolsInterface::LoadVDBFile(url, 1.0, nullptr, nullptr, nullptr), "LoadVDBFile");
  ExpectValueOrOneLine(FileFrameInterface::GetGridTransformsFromFile(url), "GetGridTransformsFromFile");
  auto raw = FileFrameInterface::LoadGrid(url, 0);
  ExpectValueOrOneLine(raw, "FileFrameInterface::LoadGrid");
  auto scene = Volume::CreateFromFile(url, 1.0, 0);
  ExpectValueOrOneLine(scene, "CreateFromFile");
  // What loads in one frame loads in the other, with the same voxels.
  ASSERT_EQ(bool(raw), bool(scene));
  if (raw) {
    EXPECT_EQ(raw->GetActiveVoxelCount(), scene->GetActiveVoxelCount());
  }
}

TEST(VdbReaderRegressions, ZippedChunkLargerThanMemoryIsAnErrorFromStreamsAndFiles) {
  // A zipped chunk whose stated size is about a hundred terabytes: OpenVDB
  // allocates what the file states, which fails; the load gives one error line.
  const std::string path = std::string(ZV_SOURCE_DIR) + "/tests/volumes/data/zip-size-beyond-memory.vdb";
  std::ifstream in(path, std::ios::binary);
  std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  ASSERT_FALSE(bytes.empty());
  zta::MemoryStore::Put("zip-size-beyond-memory", bytes);
  std::vector<Volume> fromStream;
  auto streamed = VolumeToolsInterface::LoadAllGridsIntoVolumes(Url::Memory("zip-size-beyond-memory"), 1.0,
                                                                fromStream, nullptr);
  zta::MemoryStore::Erase("zip-size-beyond-memory");
  ASSERT_FALSE(streamed);
  EXPECT_EQ(streamed.GetError().GetMessage().find('\n'), std::string::npos);
  auto fromFile = VolumeToolsInterface::LoadVDBFile(Url::FromSystemPath(path), 1.0, nullptr, nullptr, nullptr);
  ASSERT_FALSE(fromFile);
  EXPECT_NE(fromFile.GetError().GetMessage().find("could not be loaded and an error occured"), std::string::npos);
}
