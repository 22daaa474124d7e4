#pragma once
// How the verbs that read voxels by the file's own coordinates (sample,
// voxels) print values, and their dispatch on value types.
//
// They read their grid in the file's frame (zvol::Frame::FILE): the scene's
// mirror of the index space along the third axis keeps values where they
// are, but OpenVDB's quadratic sampler is not symmetric under it (it fits its
// parabola on the voxels at floor - 1 .. floor + 1), and tiles would start at
// their other corner.
#include <cstdint>
#include <cstdio>
#include <string>

#include "zelmar/volumeaccessors.h"
#include "zelmar/volumetools.h"
#include "zvol.h"

namespace zvol {

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
