#pragma once
// The cloner (1018544): a generator that places copies of its children, in
// their current state, along a line, on a grid or around a circle. Its cache
// is a Null holding the copies in order; the children are its inputs.
#include <vector>

#include "host/core/math.h"
#include "host/core/types.h"

namespace zta {

enum : Int32 {
  CLONER_MODE = 1000,          // int32: CLONER_MODE_*
  CLONER_COUNT = 1001,         // int32: copies along the line
  CLONER_OFFSET = 1002,        // vector: step from one copy to the next
  CLONER_ROTATION = 1003,      // vector: heading, pitch, bank added per step
  CLONER_SCALE = 1004,         // vector: scale applied once more per step
  CLONER_GRID_COUNT = 1010,    // vector of whole numbers: copies along each axis
  CLONER_GRID_SPACING = 1011,  // vector: distance between copies
  CLONER_RADIAL_COUNT = 1020,  // int32
  CLONER_RADIAL_RADIUS = 1021, // float
  CLONER_RADIAL_PLANE = 1022,  // int32: CLONER_PLANE_*
};

enum : Int32 { CLONER_MODE_LINEAR = 0, CLONER_MODE_GRID = 1, CLONER_MODE_RADIAL = 2 };
enum : Int32 { CLONER_PLANE_XY = 0, CLONER_PLANE_ZY = 1, CLONER_PLANE_XZ = 2 };

class BaseContainer;

// Where the copies stand, relative to the cloner, by its parameters; copy i
// takes child i modulo the number of children.
std::vector<Matrix> ClonerMatrices(const BaseContainer& bc);

}  // namespace zta
