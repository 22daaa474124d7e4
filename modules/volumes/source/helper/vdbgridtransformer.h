#pragma once
// Carries a grid's voxels through a 4x4 index-space matrix into a new grid of
// the same value type (nearest-voxel sampling). Null for unsupported types.
#include <openvdb/openvdb.h>

namespace zelmar {

openvdb::GridBase::Ptr TransformGrid(const openvdb::GridBase::Ptr& grid, const openvdb::math::Mat4d& matrix);

}  // namespace zelmar
