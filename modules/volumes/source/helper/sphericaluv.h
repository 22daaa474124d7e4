// Spherical UVs of a mesh's points about a centre.
#pragma once

#include <cstdint>

#include "host/core/math.h"

namespace zelmar {

// The UVs of points [begin, end) about `centre`, written as three floats per
// point into `uvs` (u, v, 0). u is the angle about the vertical axis, v the
// latitude, both 0 to 1; a point on the axis through the centre is a pole,
// u 1e10 and v 0 above the centre, 1 below.
void SphericalUVs(const zta::Vector* points, float* uvs, int64_t begin, int64_t end, const zta::Vector& centre);

}  // namespace zelmar
