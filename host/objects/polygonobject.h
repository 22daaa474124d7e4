#pragma once
// PolygonObject: points and polygons. A polygon is four point indices; c == d
// marks a triangle. The polygons live in the polygon tag (5604).
#include <memory>

#include "host/objects/pointobject.h"

namespace zta {

struct CPolygon {
  Int32 a = 0, b = 0, c = 0, d = 0;
  CPolygon() = default;
  CPolygon(Int32 a_, Int32 b_, Int32 c_) : a(a_), b(b_), c(c_), d(c_) {}
  CPolygon(Int32 a_, Int32 b_, Int32 c_, Int32 d_) : a(a_), b(b_), c(c_), d(d_) {}
  bool IsTriangle() const { return c == d; }
  Int32 operator[](Int32 i) const { return i == 0 ? a : (i == 1 ? b : (i == 2 ? c : d)); }
  Int32& operator[](Int32 i) { return i == 0 ? a : (i == 1 ? b : (i == 2 ? c : d)); }
  bool operator==(const CPolygon&) const = default;
};

// One CPolygon per polygon.
class PolygonTag : public VariableTag {
 public:
  static std::unique_ptr<PolygonTag> Alloc(Int32 count);
  const CPolygon* GetDataAddressR() const { return static_cast<const CPolygon*>(Address()); }
  CPolygon* GetDataAddressW() { return static_cast<CPolygon*>(Address()); }

 protected:
  explicit PolygonTag(Int32 count) : VariableTag(HOST_TAG_POLYGON, sizeof(CPolygon), count) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(0); }
};

class PolygonObject : public PointObject {
 public:
  // Null for negative counts or when memory runs out. New points are zero,
  // new polygons (0, 0, 0, 0).
  static std::unique_ptr<PolygonObject> Alloc(Int32 pointCount, Int32 polygonCount);

  Int32 GetInfo() const override { return OBJECT_POINTOBJECT | OBJECT_POLYGONOBJECT; }
  Int32 GetPolygonCount() const;
  const CPolygon* GetPolygonR() const;
  CPolygon* GetPolygonW();
  // Keeps the leading points and polygons; false (and unchanged) for
  // negative counts or when memory runs out.
  bool ResizeObject(Int32 pointCount, Int32 polygonCount);

  // Whether every polygon's indices are points of the object.
  bool IsValid() const;

 protected:
  PolygonObject(Int32 pointCount, Int32 polygonCount);
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(0, 0); }
  PolygonTag* GetPolygonTag() const;
};

}  // namespace zta
