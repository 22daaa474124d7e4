#pragma once
// The exact mirror of a grid's index space along the third axis (k -> -k):
// what the grid transformer gives for the matrix diag(1, 1, -1, 1) with
// nearest-voxel sampling, built by moving leaf data instead of resampling.
#include <openvdb/openvdb.h>

namespace zelmar {

// A new grid with the same transform and metadata; null for unsupported value types.
openvdb::GridBase::Ptr MirrorGridIndexZ(const openvdb::GridBase::Ptr& grid);

// The bytes MirrorGridIndexZ would allocate for `grid`, told from its tiles
// and leaves without building anything; 0 for unsupported value types. The
// faces of a mirrored tile no longer line up with node boundaries and become
// leaves wherever what lies next to them differs, so a file of a few
// kilobytes can ask for more memory than any machine has.
double MirrorGridIndexZBytes(const openvdb::GridBase::Ptr& grid);

}  // namespace zelmar
