#pragma once
// VolumeImpl: the one implementation behind Volume. Module-internal: tools
// reach the OpenVDB grid through SetGrid and GetGrid.
#include <openvdb/openvdb.h>

#include <limits>

#include "zelmar/volume.h"

namespace zelmar {

class VolumeImpl {
 public:
  VolumeImpl() = default;
  // Shallow grid copy: the tree is shared, the transform and metadata are not.
  // The value range cache starts over.
  VolumeImpl(const VolumeImpl& src);
  VolumeImpl& operator=(const VolumeImpl&) = delete;

  // The one way a grid enters a Volume. A null grid leaves the volume as it is.
  static Result<void> SetGrid(Volume& volume, openvdb::GridBase::Ptr grid);
  static openvdb::GridBase::Ptr GetGrid(const Volume& volume);

  Result<void> MakeUnique();
  void SetGridTransform(const Matrix& m);
  Matrix GetGridTransform() const;
  ValueRange GetMinMaxValues(bool includeBackground) const;
  Data GetBackground() const;

  openvdb::GridBase::Ptr grid;
  BoundingBox boundingBox{Vector(std::numeric_limits<double>::max()), Vector(-std::numeric_limits<double>::max())};
  GRIDTYPE gridType = GRIDTYPE::NONE;
  GRIDCLASS gridClass = GRIDCLASS::NONE;
  mutable bool valueRangeValid = false;
  mutable double valueRangeMinimum = std::numeric_limits<double>::max();
  mutable double valueRangeMaximum = -std::numeric_limits<double>::max();
};

// Multiplies every value of a float or double grid, and its background, by
// `ratio`: signed distances stored in world units following a change of scale.
void ScaleDistanceValues(openvdb::GridBase& grid, double ratio);

// A new Volume holding `grid`.
Result<Volume> MakeVolume(openvdb::GridBase::Ptr grid);
// A new Volume holding the very grid of `source`, shared, with its caches:
// what SetGrid of that grid would give, without walking its voxels again.
Result<Volume> ShareGrid(const Volume& source);

}  // namespace zelmar
