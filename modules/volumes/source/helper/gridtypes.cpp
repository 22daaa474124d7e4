#include "modules/volumes/source/helper/gridtypes.h"

#include <openvdb/points/PointDataGrid.h>

#include "modules/volumes/source/helper/vdbtopology.h"

// Point data trees are not among the module's compiled instances: this unit
// registers them, so their root's reading is replaced here, before any use.
template <>
bool openvdb::points::PointDataTree::RootNodeType::readTopology(std::istream& is, bool fromHalf) {
  return zelmar::vdbtopology::ReadRoot(*this, is, fromHalf);
}

namespace zelmar {

namespace {
// In the order of registration. OpenVDB 10 has no string-valued tree any
// more, so "string" has no row here.
template <typename F>
void ForEachModuleGridType(F&& f) {
  f.template operator()<openvdb::BoolGrid>();
  f.template operator()<openvdb::MaskGrid>();
  f.template operator()<openvdb::FloatGrid>();
  f.template operator()<openvdb::DoubleGrid>();
  f.template operator()<openvdb::Int32Grid>();
  f.template operator()<openvdb::Int64Grid>();
  f.template operator()<openvdb::Vec3IGrid>();
  f.template operator()<openvdb::Vec3SGrid>();
  f.template operator()<openvdb::Vec3DGrid>();
  f.template operator()<openvdb::points::PointDataGrid>();
}
}  // namespace

void RegisterModuleGridTypes() {
  openvdb::GridBase::clearRegistry();
  ForEachModuleGridType([]<typename GridT>() { GridT::registerGrid(); });
}

void UnregisterModuleGridTypes() {
  ForEachModuleGridType([]<typename GridT>() { GridT::unregisterGrid(); });
}

GRIDTYPE DetectGridType(const openvdb::GridBase& grid) {
  using namespace openvdb;
  const Name& t = grid.type();
  if (t == BoolGrid::gridType()) return GRIDTYPE::BOOL;
  if (t == FloatGrid::gridType()) return GRIDTYPE::FLOAT;
  if (t == DoubleGrid::gridType()) return GRIDTYPE::DOUBLE;
  if (t == Int32Grid::gridType()) return GRIDTYPE::INT32;
  if (t == Int64Grid::gridType()) return GRIDTYPE::INT64;
  if (t == Vec3IGrid::gridType()) return GRIDTYPE::VEC3I;
  if (t == Vec3SGrid::gridType()) return GRIDTYPE::VEC3S;
  if (t == Vec3DGrid::gridType()) return GRIDTYPE::VEC3D;
  if (t == kStringGridTypeName) return GRIDTYPE::STRING;
  return GRIDTYPE::NONE;
}

GRIDCLASS FromVdbGridClass(openvdb::GridClass c) {
  switch (c) {
    case openvdb::GRID_LEVEL_SET: return GRIDCLASS::SDF;
    case openvdb::GRID_FOG_VOLUME: return GRIDCLASS::FOG;
    case openvdb::GRID_STAGGERED: return GRIDCLASS::STAGGERED;
    case openvdb::GRID_UNKNOWN: return GRIDCLASS::UNKNOWN;
  }
  return GRIDCLASS::NONE;
}

openvdb::GridClass ToVdbGridClass(GRIDCLASS c) {
  switch (c) {
    case GRIDCLASS::SDF: return openvdb::GRID_LEVEL_SET;
    case GRIDCLASS::FOG: return openvdb::GRID_FOG_VOLUME;
    case GRIDCLASS::STAGGERED: return openvdb::GRID_STAGGERED;
    case GRIDCLASS::NONE:
    case GRIDCLASS::UNKNOWN: return openvdb::GRID_UNKNOWN;
  }
  return openvdb::GRID_UNKNOWN;
}

openvdb::math::Mat4d ToMat4d(const Matrix& m) {
  return openvdb::math::Mat4d(m.v1.x, m.v1.y, m.v1.z, 0.0,
                              m.v2.x, m.v2.y, m.v2.z, 0.0,
                              m.v3.x, m.v3.y, m.v3.z, 0.0,
                              m.off.x, m.off.y, m.off.z, 1.0);
}

Matrix FromMat4d(const openvdb::math::Mat4d& m) {
  Matrix r;
  r.v1 = {m(0, 0), m(0, 1), m(0, 2)};
  r.v2 = {m(1, 0), m(1, 1), m(1, 2)};
  r.v3 = {m(2, 0), m(2, 1), m(2, 2)};
  r.off = {m(3, 0), m(3, 1), m(3, 2)};
  return r;
}

openvdb::Vec3d ToVec3d(const Vector& v) { return {v.x, v.y, v.z}; }
Vector FromVec3d(const openvdb::Vec3d& v) { return {v.x(), v.y(), v.z()}; }

}  // namespace zelmar
