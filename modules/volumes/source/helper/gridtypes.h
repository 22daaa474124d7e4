#pragma once
// The one cascade by which the system turns a grid into its typed form: the
// value types are tested in the fixed order bool, float, double, int32, int64,
// vec3i, vec3s, vec3d, string, and the grid is cast with gridPtrCast.
#include <openvdb/openvdb.h>

#include "zelmar/volume.h"

namespace zelmar {

// OpenVDB 10 dropped string-valued trees (their leaf buffers no longer construct
// non-trivial values), so the string step of the cascade can only name the type.
constexpr const char* kStringGridTypeName = "Tree_string_5_4_3";

// Calls f(typedGridPtr) for the first type in the cascade that the grid has.
// Returns false, without calling f, for a null grid or any other type.
template <typename F>
bool ApplyToGrid(const openvdb::GridBase::Ptr& grid, F&& f) {
  using namespace openvdb;
  if (!grid) return false;
  if (grid->isType<BoolGrid>()) { f(gridPtrCast<BoolGrid>(grid)); return true; }
  if (grid->isType<FloatGrid>()) { f(gridPtrCast<FloatGrid>(grid)); return true; }
  if (grid->isType<DoubleGrid>()) { f(gridPtrCast<DoubleGrid>(grid)); return true; }
  if (grid->isType<Int32Grid>()) { f(gridPtrCast<Int32Grid>(grid)); return true; }
  if (grid->isType<Int64Grid>()) { f(gridPtrCast<Int64Grid>(grid)); return true; }
  if (grid->isType<Vec3IGrid>()) { f(gridPtrCast<Vec3IGrid>(grid)); return true; }
  if (grid->isType<Vec3SGrid>()) { f(gridPtrCast<Vec3SGrid>(grid)); return true; }
  if (grid->isType<Vec3DGrid>()) { f(gridPtrCast<Vec3DGrid>(grid)); return true; }
  return false;
}


// The grid types of the files the module reads, registered in place of
// OpenVDB's own registrations: their classes are the module's (vdbinstances.h),
// whose trees walk their topology before they read it (vdbtopology.h).
void RegisterModuleGridTypes();
void UnregisterModuleGridTypes();

GRIDTYPE DetectGridType(const openvdb::GridBase& grid);
GRIDCLASS FromVdbGridClass(openvdb::GridClass c);
openvdb::GridClass ToVdbGridClass(GRIDCLASS c);

// Matrix (offset, three axes) <-> OpenVDB's row-vector Mat4d (axes as rows, offset last).
openvdb::math::Mat4d ToMat4d(const Matrix& m);
Matrix FromMat4d(const openvdb::math::Mat4d& m);
openvdb::Vec3d ToVec3d(const Vector& v);
Vector FromVec3d(const openvdb::Vec3d& v);

}  // namespace zelmar
