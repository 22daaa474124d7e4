#include "modules/volumes/source/helper/gridconversion.h"

#include "modules/volumes/source/helper/vdbmirror.h"
#include <cstdio>
#include <limits>

#include "modules/volumes/source/volume_impl.h"
#include "zelmar/memorylimit.h"

namespace zelmar {

namespace {

// "3.2 GiB".
std::string MemoryText(double bytes) {
  const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  int u = 0;
  for (; bytes >= 1024.0 && u < 6; ++u) bytes /= 1024.0;
  char text[48];
  std::snprintf(text, sizeof text, u == 0 ? "%.0f %s" : "%.1f %s", bytes, units[u]);
  return text;
}

}  // namespace

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
  const uint64_t stated = MemoryLimitInterface::GetLimit();
  if (stated == std::numeric_limits<uint64_t>::max()) return {};
  const uint64_t limit = stated ? stated : MemoryLimitInterface::GetAvailable();
  const double bytes = MirrorGridIndexZBytes(grid);
  // Without a figure from the system there is nothing to hold the work to.
  if (limit == 0 || bytes <= double(limit)) return {};
  return "grid '" + grid->getName() + "' needs about " + MemoryText(bytes) +
         " to be mirrored into the scene's frame, more than the " + MemoryText(double(limit)) +
         (stated ? " the memory limit allows" : " of memory available");
}

}  // namespace zelmar
