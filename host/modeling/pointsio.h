#pragma once
// Point files: rows of positions with optional radii and velocities, for
// splines and particles of a scene. CSV (comma, semicolon or blank
// separated; a first line of names "x,y,z,radius,vx,vy,vz" picks the
// columns, else the columns are x y z [radius [vx vy vz]]) and PLY (ASCII or
// binary, the vertex element's x, y, z and, when present, radius, vx, vy,
// vz). Files are right-handed: positions and velocities come mirrored into
// the scene's frame.
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

// Whether the path names a point file by its extension (.csv, .ply).
bool IsPointFile(const String& path);
// Errors name the file and the line (or vertex) that is wrong.
Result<PointTable> ReadPointFile(const String& path);

}  // namespace zta
