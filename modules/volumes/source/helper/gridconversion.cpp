#include "modules/volumes/source/helper/gridconversion.h"

#include "modules/volumes/source/helper/memoryneed.h"
#include "modules/volumes/source/helper/vdbmirror.h"
#include "modules/volumes/source/volume_impl.h"

namespace zelmar {

openvdb::GridBase::Ptr ConvertGridFrame(const openvdb::GridBase::Ptr& input, double scale, bool fromStream) {
  if (!input || scale == 0.0) return nullptr;
  openvdb::GridBase::Ptr grid = input;
  const openvdb::math::Mat4d present = grid->transform().baseMap()->getAffineMap()->getMat4();
  if (!fromStream) {
    // Exactly the grid transformer's result for diag(1, 1, -1, 1), without resampling.
    grid = MirrorGridIndexZ(grid);
    if (!grid) return nullptr;
    // The index-space mirror flips about the index origin; moving by twice the
    // offset puts the data at the mirrored world position.
    grid->transform().postTranslate(openvdb::Vec3d(0.0, 0.0, -2.0 * present(3, 2)));
  }
  const bool rescaleValues = scale != 1.0 && grid->getGridClass() == openvdb::GRID_LEVEL_SET;
  // The input is never changed: without a mirror, work on a copy, deep only
  // when the values change too.
  if (grid == input) grid = rescaleValues ? input->deepCopyGrid() : input->copyGrid();
  grid->transform().postScale(scale);
  if (rescaleValues) ScaleDistanceValues(*grid, scale);
  return grid;
}

std::string ConvertGridFrameTooLarge(const openvdb::GridBase::Ptr& grid, bool fromStream) {
  // Scaling alone copies the tree as it is; only the mirror can outgrow it.
  if (!grid || fromStream) return {};
  const std::string why = MemoryNeedRefusal(MirrorGridIndexZBytes(grid), "to be mirrored into the scene's frame");
  return why.empty() ? why : "grid '" + grid->getName() + "' " + why;
}

}  // namespace zelmar
