#pragma once
// UVWTag (5671): four texture coordinates per polygon.
#include <memory>

#include "host/scene/basetag.h"

namespace zta {

struct UVWStruct {
  Vector a, b, c, d;
  bool operator==(const UVWStruct&) const = default;
};

// The stored record: texture coordinates need no more than single
// precision, and a mesh of millions of polygons then holds half the bytes.
struct UVWStruct32 {
  Vector32 a, b, c, d;
  UVWStruct32() = default;
  UVWStruct32(const Vector32& a_, const Vector32& b_, const Vector32& c_, const Vector32& d_)
      : a(a_), b(b_), c(c_), d(d_) {}
  explicit UVWStruct32(const UVWStruct& s) : a(Narrow(s.a)), b(Narrow(s.b)), c(Narrow(s.c)), d(Narrow(s.d)) {}
  UVWStruct Widen() const { return {Wide(a), Wide(b), Wide(c), Wide(d)}; }

 private:
  static Vector32 Narrow(const Vector& v) { return {float(v.x), float(v.y), float(v.z)}; }
  static Vector Wide(const Vector32& v) { return {double(v.x), double(v.y), double(v.z)}; }
};

class UVWTag : public VariableTag {
 public:
  Int32 GetInfo() const override { return TAG_VISIBLE; }
  static std::unique_ptr<UVWTag> Alloc(Int32 polygonCount);
  // Out-of-range indices are ignored by Set and give zeros from Get.
  void Set(Int32 i, const UVWStruct& uvw);
  UVWStruct Get(Int32 i) const;
  const UVWStruct32* GetDataAddressR() const { return static_cast<const UVWStruct32*>(Address()); }
  UVWStruct32* GetDataAddressW() { return static_cast<UVWStruct32*>(Address()); }

 protected:
  explicit UVWTag(Int32 count) : VariableTag(HOST_TAG_UVW, sizeof(UVWStruct32), count) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(0); }
};

}  // namespace zta
