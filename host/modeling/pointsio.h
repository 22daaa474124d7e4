#pragma once
// Point files: rows of positions with optional radii and velocities, for
// splines and particles of a scene.
// - Rows of numbers in .csv, .xyz, .txt or .pts files, separated by commas,
//   semicolons or blanks; '#' starts a comment, on a line of its own or after
//   a row. A first line of names ("x,y,z,radius,vx,vy,vz", any case, also
//   px/py/pz, r/rad/pscale, v_x/velocity_x, ...) picks the columns; else
//   they are x y z [radius] [vx vy vz], and further columns are ignored.
// - PLY (ASCII or binary): the vertex element's x, y, z and, when present,
//   radius, vx, vy, vz by the same names; other elements and list
//   properties are passed over.
// Files are right-handed: positions and velocities come mirrored into the
// scene's frame.
#include <vector>

#include "host/core/math.h"
#include "host/core/result.h"
#include "host/core/types.h"

namespace zta {

struct PointTable {
  std::vector<Vector> positions;
  // Empty when the file has no such column.
  std::vector<Float> radii;
  std::vector<Vector> velocities;
};

// Whether the path names a point file by its extension (.csv, .xyz, .txt,
// .pts, .ply).
bool IsPointFile(const String& path);
// Errors name the file and the line (or vertex) that is wrong.
Result<PointTable> ReadPointFile(const String& path);

}  // namespace zta
