#include "host/objects/pointobject.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "host/objects/phongtag.h"
#include "host/objects/polygonobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"

namespace zta {

namespace {
// Tags allocate in their constructors; a failure there is a null tag here.
template <typename T, typename... A>
std::unique_ptr<T> NewNoThrow(A&&... args) {
  try {
    return std::unique_ptr<T>(new T(std::forward<A>(args)...));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
}  // namespace

// ---- tags

std::unique_ptr<PointTag> PointTag::Alloc(Int32 count) {
  if (count < 0) return nullptr;
  struct Make : PointTag {
    explicit Make(Int32 n) : PointTag(n) {}
  };
  return NewNoThrow<Make>(count);
}

std::unique_ptr<PolygonTag> PolygonTag::Alloc(Int32 count) {
  if (count < 0) return nullptr;
  struct Make : PolygonTag {
    explicit Make(Int32 n) : PolygonTag(n) {}
  };
  return NewNoThrow<Make>(count);
}

std::unique_ptr<UVWTag> UVWTag::Alloc(Int32 polygonCount) {
  if (polygonCount < 0) return nullptr;
  struct Make : UVWTag {
    explicit Make(Int32 n) : UVWTag(n) {}
  };
  return NewNoThrow<Make>(polygonCount);
}

void UVWTag::Set(Int32 i, const UVWStruct& uvw) {
  if (i < 0 || i >= GetDataCount()) return;
  GetDataAddressW()[i] = UVWStruct32(uvw);
}

UVWStruct UVWTag::Get(Int32 i) const {
  if (i < 0 || i >= GetDataCount()) return {};
  return GetDataAddressR()[i].Widen();
}

std::unique_ptr<VertexMapTag> VertexMapTag::Alloc(Int32 pointCount) {
  if (pointCount < 0) return nullptr;
  struct Make : VertexMapTag {
    explicit Make(Int32 n) : VertexMapTag(n) {}
  };
  return NewNoThrow<Make>(pointCount);
}

PhongTag::PhongTag() : BaseTag(HOST_TAG_PHONG) {
  BaseContainer* bc = GetDataInstance();
  bc->SetBool(PHONGTAG_PHONG_ANGLELIMIT, true);
  bc->SetFloat(PHONGTAG_PHONG_ANGLE, 80.0 * M_PI / 180.0);
  bc->SetBool(PHONGTAG_PHONG_USEEDGES, true);
}

std::unique_ptr<PhongTag> PhongTag::Alloc() {
  struct Make : PhongTag {};
  return NewNoThrow<Make>();
}

Float PhongTag::GetSmoothingAngle() const {
  const BaseContainer* bc = GetDataInstance();
  return bc->GetBool(PHONGTAG_PHONG_ANGLELIMIT) ? bc->GetFloat(PHONGTAG_PHONG_ANGLE) : M_PI;
}

// ---- PointObject

PointObject::PointObject(Int32 type, Int32 pointCount) : BaseObject(type) {
  auto tag = PointTag::Alloc(pointCount);
  if (!tag) throw std::bad_alloc();
  InsertTag(tag.release());
}

PointTag* PointObject::GetPointTag() const { return static_cast<PointTag*>(GetTag(HOST_TAG_POINT)); }

Int32 PointObject::GetPointCount() const {
  const PointTag* t = GetPointTag();
  return t ? t->GetDataCount() : 0;
}

const Vector* PointObject::GetPointR() const {
  const PointTag* t = GetPointTag();
  return t ? t->GetDataAddressR() : nullptr;
}

Vector* PointObject::GetPointW() {
  PointTag* t = GetPointTag();
  return t ? t->GetDataAddressW() : nullptr;
}

bool PointObject::ResizePoints(Int32 count) {
  PointTag* t = GetPointTag();
  if (!t) {
    auto tag = PointTag::Alloc(count);
    if (!tag) return false;
    InsertTag(tag.release());
    return true;
  }
  return t->Resize(count);
}

bool PointObject::GetOwnBounds(Vector& mp, Vector& rad) const {
  const Int32 n = GetPointCount();
  if (n == 0) return false;
  const Vector* p = GetPointR();
  Vector mn = p[0], mx = p[0];
  for (Int32 i = 1; i < n; ++i) {
    for (int k = 0; k < 3; ++k) {
      mn[k] = std::min(mn[k], p[i][k]);
      mx[k] = std::max(mx[k], p[i][k]);
    }
  }
  mp = (mn + mx) * 0.5;
  rad = (mx - mn) * 0.5;
  return true;
}

// ---- PolygonObject

PolygonObject::PolygonObject(Int32 pointCount, Int32 polygonCount) : PointObject(HOST_TYPE_POLYGON, pointCount) {
  auto tag = PolygonTag::Alloc(polygonCount);
  if (!tag) throw std::bad_alloc();
  InsertTag(tag.release(), GetFirstTag());
}

std::unique_ptr<PolygonObject> PolygonObject::Alloc(Int32 pointCount, Int32 polygonCount) {
  if (pointCount < 0 || polygonCount < 0) return nullptr;
  struct Make : PolygonObject {
    Make(Int32 p, Int32 q) : PolygonObject(p, q) {}
  };
  return NewNoThrow<Make>(pointCount, polygonCount);
}

PolygonTag* PolygonObject::GetPolygonTag() const { return static_cast<PolygonTag*>(GetTag(HOST_TAG_POLYGON)); }

Int32 PolygonObject::GetPolygonCount() const {
  const PolygonTag* t = GetPolygonTag();
  return t ? t->GetDataCount() : 0;
}

const CPolygon* PolygonObject::GetPolygonR() const {
  const PolygonTag* t = GetPolygonTag();
  return t ? t->GetDataAddressR() : nullptr;
}

CPolygon* PolygonObject::GetPolygonW() {
  PolygonTag* t = GetPolygonTag();
  return t ? t->GetDataAddressW() : nullptr;
}

bool PolygonObject::ResizeObject(Int32 pointCount, Int32 polygonCount) {
  if (pointCount < 0 || polygonCount < 0) return false;
  // Both new arrays first, so that a failure leaves the object as it was.
  auto points = PointTag::Alloc(pointCount);
  auto polys = PolygonTag::Alloc(polygonCount);
  if (!points || !polys) return false;
  if (GetPointCount() > 0)
    std::memcpy(points->GetDataAddressW(), GetPointR(), sizeof(Vector) * size_t(std::min(pointCount, GetPointCount())));
  if (GetPolygonCount() > 0)
    std::memcpy(polys->GetDataAddressW(), GetPolygonR(),
                sizeof(CPolygon) * size_t(std::min(polygonCount, GetPolygonCount())));
  if (PointTag* t = GetPointTag()) t->SwapData(*points);
  else InsertTag(points.release());
  if (PolygonTag* t = GetPolygonTag()) t->SwapData(*polys);
  else InsertTag(polys.release(), GetTag(HOST_TAG_POINT));
  SetDirty(DIRTYFLAGS_DATA);
  return true;
}

bool PolygonObject::IsValid() const {
  const Int32 n = GetPointCount();
  const CPolygon* p = GetPolygonR();
  for (Int32 i = 0; i < GetPolygonCount(); ++i)
    for (int k = 0; k < 4; ++k)
      if (p[i][k] < 0 || p[i][k] >= n) return false;
  return true;
}

}  // namespace zta
