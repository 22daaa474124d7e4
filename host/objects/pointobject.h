#pragma once
// PointObject: an object whose data are points, held in its point tag (5600).
#include <memory>

#include "host/scene/baseobject.h"

namespace zta {

// One Vector per point.
class PointTag : public VariableTag {
 public:
  static std::unique_ptr<PointTag> Alloc(Int32 count);
  const Vector* GetDataAddressR() const { return static_cast<const Vector*>(Address()); }
  Vector* GetDataAddressW() { return static_cast<Vector*>(Address()); }

 protected:
  explicit PointTag(Int32 count) : VariableTag(HOST_TAG_POINT, sizeof(Vector), count) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(0); }
};

class PointObject : public BaseObject {
 public:
  bool IsInstanceOf(Int32 type) const override { return type == HOST_TYPE_POINT || BaseObject::IsInstanceOf(type); }
  Int32 GetInfo() const override { return OBJECT_POINTOBJECT; }

  Int32 GetPointCount() const;
  const Vector* GetPointR() const;
  // Writing points marks nothing dirty by itself; call SetDirty(DIRTYFLAGS_DATA).
  Vector* GetPointW();

 protected:
  PointObject(Int32 type, Int32 pointCount);
  bool GetOwnBounds(Vector& mp, Vector& rad) const override;
  bool ResizePoints(Int32 count);
  PointTag* GetPointTag() const;
};

}  // namespace zta
