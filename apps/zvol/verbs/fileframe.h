#pragma once
// A grid of a .vdb file exactly as the file holds it, for the verbs that read
// voxels by the file's own coordinates (sample, voxels).
//
// The file readers bring grids into the scene's left-handed frame by
// mirroring the index space along the third axis. Values stay where they
// are, but OpenVDB's quadratic sampler is not symmetric under that mirror
// (it fits its parabola on the voxels at floor - 1 .. floor + 1), and tiles
// would start at their other corner. Read as a stream, a file is not
// mirrored, so these verbs see the file's own index lattice and positions.
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "host/core/url.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace zvol {

inline zelmar::Volume LoadInFileFrame(const std::string& path, const std::string& grid) {
  if (zta::IoDetect(zta::Url::FromSystemPath(path)) != zta::IODETECT::FILE)
    throw Failure("File could not be found: " + path);
  std::vector<char> bytes;
  {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Failure("could not open " + path);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) throw Failure("could not read " + path);
  }
  std::ostringstream name;
  name << "zvol-file-frame-" << std::hex << std::random_device{}();
  const zta::Url url = zta::Url::Memory(name.str());
  zta::MemoryStore::Put(name.str(), std::move(bytes));
  struct Erase {
    std::string name;
    ~Erase() { zta::MemoryStore::Erase(name); }
  } erase{name.str()};

  const auto names = Take(zelmar::VolumeToolsInterface::GetGridNamesFromFile(zta::Url::FromSystemPath(path)));
  int64_t index = -1;
  if (grid.empty()) {
    for (size_t i = 0; i < names.size() && index < 0; ++i)
      if (!names[i].ends_with("~NotSupported")) index = int64_t(i);
    if (index < 0) throw Failure(path + " holds no grid that can be loaded");
  } else {
    for (size_t i = 0; i < names.size() && index < 0; ++i)
      if (names[i] == grid) index = int64_t(i);
    if (index < 0) {
      char* end = nullptr;
      const long n = std::strtol(grid.c_str(), &end, 10);
      if (end && *end == '\0' && !grid.empty() && n >= 0 && size_t(n) < names.size()) index = n;
    }
    if (index < 0) throw Failure("no grid '" + grid + "' in " + path);
    if (names[size_t(index)].ends_with("~NotSupported"))
      throw Failure("grid '" + grid + "' of " + path + " is a point data grid, which is not supported");
  }
  return Take(zelmar::Volume::CreateFromFile(url, 1.0, index));
}

}  // namespace zvol
