#pragma once
// VertexMapTag (5682): one weight per point.
#include <memory>

#include "host/scene/basetag.h"

namespace zta {

class VertexMapTag : public VariableTag {
 public:
  Int32 GetInfo() const override { return TAG_VISIBLE; }
  static std::unique_ptr<VertexMapTag> Alloc(Int32 pointCount);
  const Float32* GetDataAddressR() const { return static_cast<const Float32*>(Address()); }
  Float32* GetDataAddressW() { return static_cast<Float32*>(Address()); }

 protected:
  explicit VertexMapTag(Int32 count) : VariableTag(HOST_TAG_VERTEXMAP, sizeof(Float32), count) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(0); }
};

}  // namespace zta
