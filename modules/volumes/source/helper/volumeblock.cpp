#include "modules/volumes/source/helper/volumeblock.h"

#include <atomic>

#include "host/core/format.h"
#include "host/core/types.h"
#include "host/core/url.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

// Each call gets a stream of its own, so that threads never share one.
std::string StreamName(const char* what) {
  static std::atomic<zta::UInt64> counter{0};
  return zta::FormatString("zelmar.volumeblock.@.@", what, ++counter);
}

}  // namespace

Result<std::vector<char>> EncodeVolumeBlock(const std::vector<Volume>& volumes) {
  const std::string name = StreamName("write");
  Result<void> saved = VolumeToolsInterface::SaveVDBFile(zta::Url::Memory(name), 1.0, volumes, DataDictionary());
  std::vector<char> block;
  const bool taken = saved && zta::MemoryStore::Get(name, block);
  zta::MemoryStore::Erase(name);
  if (!saved) return saved.GetError();
  if (!taken) return zta::IoError("the volumes could not be taken from memory");
  return block;
}

Result<std::vector<Volume>> DecodeVolumeBlock(std::vector<char> block) {
  const std::string name = StreamName("read");
  zta::MemoryStore::Put(name, std::move(block));
  Result<std::vector<Volume>> loaded = VolumeToolsInterface::LoadVDBFile(zta::Url::Memory(name), 1.0, nullptr, nullptr, nullptr);
  zta::MemoryStore::Erase(name);
  return loaded;
}

}  // namespace zelmar
