#pragma once
// Closes the holes of a polygon object before it becomes a volume, through the
// host's optimise command and its close-polygon-hole tool.
#include "host/core/result.h"
#include "zelmar/api.h"

namespace zta {
class BaseDocument;
class PolygonObject;
}  // namespace zta

namespace zelmar {

// True when holes were found and closing ran; false for an object without
// polygons or without an open edge. With `addUndo` and a document, one undo
// step covers the closing. Changes the object: not for concurrent use on one object.
ZELMAR_API zta::Result<bool> ClosePolygonObject(zta::PolygonObject* polygonObject, zta::BaseDocument* document, bool addUndo);

}  // namespace zelmar
