#pragma once
// Joins polygon objects into one, in world space.
#include <memory>
#include <vector>

#include "host/core/result.h"
#include "host/objects/polygonobject.h"

namespace zta {

// Points are taken through each object's global matrix. When any source has
// a UVW tag the result has one, zero for the polygons of sources without;
// vertex maps join by name, zero for the points of sources without.
// The result has the identity matrix.
// Null objects in the list are an error; an empty list gives an empty object.
Result<std::unique_ptr<PolygonObject>> JoinPolygonObjects(const std::vector<const PolygonObject*>& objects);

}  // namespace zta
