#pragma once
// UVWTag (5671): four texture coordinates per polygon.
#include <memory>

#include "host/scene/basetag.h"

namespace zta {

struct UVWStruct {
  Vector a, b, c, d;
  bool operator==(const UVWStruct&) const = default;
};

class UVWTag : public VariableTag {
 public:
  static std::unique_ptr<UVWTag> Alloc(Int32 polygonCount);
  // Out-of-range indices are ignored by Set and give zeros from Get.
  void Set(Int32 i, const UVWStruct& uvw);
  UVWStruct Get(Int32 i) const;
  const UVWStruct* GetDataAddressR() const { return static_cast<const UVWStruct*>(Address()); }
  UVWStruct* GetDataAddressW() { return static_cast<UVWStruct*>(Address()); }

 protected:
  explicit UVWTag(Int32 count) : VariableTag(HOST_TAG_UVW, sizeof(UVWStruct), count) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(0); }
};

}  // namespace zta
