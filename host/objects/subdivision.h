#pragma once
// The subdivision surface (1007455): a generator that smooths the polygon
// objects of its first child by Catmull-Clark subdivision, a level count for
// the editor and one for renders. Its cache is the child's current state with
// each polygon object subdivided; other children are left to the scene.
#include "host/core/result.h"
#include "host/objects/polygonobject.h"

namespace zta {

enum : Int32 {
  SDSOBJECT_SUBEDITOR = 1000,  // int32: levels in the editor
  SDSOBJECT_SUBRAY = 1001,     // int32: levels in a render (build flags 2 or 4)
};

// The most levels a subdivision takes; each level quadruples the polygons.
constexpr Int32 kMaxSubdivisionLevel = 6;

// One Catmull-Clark step of `op` in place: every polygon becomes quads
// (four from a quad, three from a triangle). Borders keep their curve;
// corners stay. Point-indexed and polygon-indexed tags other than points and
// polygons are dropped, as they no longer fit. An error leaves `op` as it was.
Result<void> SubdivideOnce(PolygonObject& op);

}  // namespace zta
