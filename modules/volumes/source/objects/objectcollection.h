#pragma once
// ObjectCollection: turns an input's hierarchy into three flat trees, one of
// polygon objects (and whatever else is neither spline nor volume), one of
// splines and lines, one of volume objects, each object carrying its global
// matrix as its local one under a Null at the origin.
#include <memory>
#include <unordered_set>

#include "host/core/result.h"
#include "host/scene/baseobject.h"

namespace zta {
class BaseDocument;
class HierarchyHelp;
}  // namespace zta

namespace zelmar {

class ObjectCollection {
 public:
  // Collects `object` as the host evaluates it now. With `useClone` and a
  // HierarchyHelp the host's hierarchy clone gives the current state (and
  // `object` joins the generator's dependence list, `dirty` telling whether it
  // changed since the last build); otherwise the object's caches stand in.
  zta::Result<void> Collect(zta::BaseDocument* document, zta::BaseObject* object, bool useClone,
                            const zta::HierarchyHelp* hh, bool* dirty = nullptr);

  std::unique_ptr<zta::BaseObject> TakePolygons() { return std::move(polygons_); }
  std::unique_ptr<zta::BaseObject> TakeSplines() { return std::move(splines_); }
  std::unique_ptr<zta::BaseObject> TakeVolumes() { return std::move(volumes_); }

 private:
  zta::Result<std::unique_ptr<zta::BaseObject>> CopyCurrentState(const zta::BaseObject* op);
  zta::Result<void> Split(std::unique_ptr<zta::BaseObject> root);

  zta::BaseObject* object_ = nullptr;
  zta::BaseDocument* document_ = nullptr;
  std::unique_ptr<zta::BaseObject> polygons_, splines_, volumes_;
  std::unordered_set<const zta::BaseObject*> seen_;
};

}  // namespace zelmar
