// libFuzzer target: the module's .vdb reader. Each input is read as a stream
// from the memory store (as volumes kept inside a scene are) and as a file
// (mirrored into the scene's frame); every grid that loads is written back to
// a stream and read again. A failure is one error line, never a crash, a leak
// or undefined behaviour. Built and run by "./zv fuzz vdb [SECONDS]".
#include <openvdb/openvdb.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "host/core/url.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "tests/fuzz/fuzzfile.h"
#include "tests/fuzz/throwing_new.h"
#include "zelmar/memorylimit.h"
#include "zelmar/volumetools.h"

using zelmar::Int;
using zelmar::Volume;
using zelmar::VolumeToolsInterface;

namespace {

// The fuzzer stops a run above 2 GiB; a mirror that would need more than a
// quarter of that is refused by the module's own check first.
constexpr uint64_t kMemoryLimit = uint64_t(512) << 20;

void CheckLoaded(const std::vector<Volume>& volumes, const char* how) {
  for (const Volume& v : volumes) {
    if (!v.HasGrid()) zvfuzz::Fail("a loaded volume has no grid", how);
    const zelmar::Int active = v.GetActiveVoxelCount();
    // Grids that are tiles through and through are not worth a copy each run.
    if (v.GetMemUsage() > (Int(64) << 20)) continue;
    const zta::Url again = zta::Url::Memory("fuzz-again");
    auto saved = VolumeToolsInterface::SaveVDBFile(again, 1.0, {v}, {});
    if (!saved) {
      zvfuzz::CheckOneLine(saved.GetError().GetMessage());
      continue;
    }
    Volume back = *Volume::Create();
    auto read = VolumeToolsInterface::LoadGridIntoVolume(again, 1.0, 0, back, nullptr);
    if (!read) zvfuzz::Fail("a grid the module wrote does not read back", read.GetError().GetMessage());
    if (back.GetActiveVoxelCount() != active || back.GetGridType() != v.GetGridType())
      zvfuzz::Fail("a grid changed on its way through a stream", how);
    zta::MemoryStore::Erase("fuzz-again");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  openvdb::initialize();
  // The grid classes the module reads with, as the plug-in registers them.
  zelmar::RegisterModuleGridTypes();
  zelmar::MemoryLimitInterface::SetLimit(kMemoryLimit);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<char> bytes(reinterpret_cast<const char*>(data), reinterpret_cast<const char*>(data) + size);
  zta::MemoryStore::Put("fuzz-input", bytes);
  std::vector<Volume> volumes;
  auto streamed = VolumeToolsInterface::LoadAllGridsIntoVolumes(zta::Url::Memory("fuzz-input"), 1.0, volumes, nullptr);
  if (streamed) CheckLoaded(volumes, "stream");
  else zvfuzz::CheckOneLine(streamed.GetError().GetMessage());
  zta::MemoryStore::Erase("fuzz-input");

  const std::string path = zvfuzz::WriteInput("vdb", std::string_view(bytes.data(), bytes.size()));
  if (path.empty()) return 0;
  const zta::Url file = zta::Url::FromSystemPath(path);
  std::vector<std::string> names;
  auto loaded = VolumeToolsInterface::LoadVDBFile(file, 1.0, &names, nullptr, nullptr);
  if (loaded) CheckLoaded(*loaded, "file");
  else zvfuzz::CheckOneLine(loaded.GetError().GetMessage());
  std::remove(path.c_str());
  return 0;
}
