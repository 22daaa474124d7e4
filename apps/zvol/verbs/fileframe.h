#pragma once
// A grid of a .vdb file exactly as the file holds it, for the verbs that read
// voxels by the file's own coordinates (sample, voxels), and how they print
// its values.
//
// The file readers bring grids into the scene's left-handed frame by
// mirroring the index space along the third axis. Values stay where they
// are, but OpenVDB's quadratic sampler is not symmetric under that mirror
// (it fits its parabola on the voxels at floor - 1 .. floor + 1), and tiles
// would start at their other corner. Read as a stream, a file is not
// mirrored, so these verbs see the file's own index lattice and positions.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "host/core/url.h"
#include "zelmar/volumeaccessors.h"
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

  return Take(zelmar::Volume::CreateFromFile(url, 1.0, ChooseGrid(path, grid)));
}

// Values as text: floats with the digits that give them back exactly,
// vectors as "x,y,z".
inline void PutValue(std::string& out, bool v) { out += v ? "1" : "0"; }
inline void PutValue(std::string& out, float v) {
  char b[32];
  std::snprintf(b, sizeof b, "%.9g", double(v));
  out += b;
}
inline void PutValue(std::string& out, double v) {
  char b[40];
  std::snprintf(b, sizeof b, "%.17g", v);
  out += b;
}
inline void PutValue(std::string& out, int32_t v) { out += std::to_string(v); }
inline void PutValue(std::string& out, int64_t v) { out += std::to_string(v); }
template <typename T>
void PutValue(std::string& out, const zta::Vec3<T>& v) {
  PutValue(out, v.x);
  out += ',';
  PutValue(out, v.y);
  out += ',';
  PutValue(out, v.z);
}

// Calls f(T{}) with the accessor value type of `type`; grids of strings or
// of no type are refused with "grids of type <type> cannot be <what>".
template <typename F>
void WithValueType(zelmar::GRIDTYPE type, const char* what, F&& f) {
  using zelmar::GRIDTYPE;
  switch (type) {
    case GRIDTYPE::BOOL: f(bool{}); return;
    case GRIDTYPE::FLOAT: f(float{}); return;
    case GRIDTYPE::DOUBLE: f(double{}); return;
    case GRIDTYPE::INT32: f(int32_t{}); return;
    case GRIDTYPE::INT64: f(int64_t{}); return;
    case GRIDTYPE::VEC3I: f(zta::IntVector32{}); return;
    case GRIDTYPE::VEC3S: f(zta::Vector32{}); return;
    case GRIDTYPE::VEC3D: f(zta::Vector64{}); return;
    case GRIDTYPE::STRING:
    case GRIDTYPE::NONE: break;
  }
  throw Failure(std::string("grids of type ") + zelmar::GridTypeName(type) + " cannot be " + what);
}

}  // namespace zvol
