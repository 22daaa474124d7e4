#pragma once
// PhongTag (5612): smooth shading of a polygon object up to an angle.
#include <memory>

#include "host/scene/basetag.h"

namespace zta {

// Parameters of the Phong tag.
enum : Int32 {
  PHONGTAG_PHONG_ANGLELIMIT = 1000,  // bool
  PHONGTAG_PHONG_ANGLE = 1001,       // float, radians
  PHONGTAG_PHONG_USEEDGES = 1002,    // bool
};

class PhongTag : public BaseTag {
 public:
  Int32 GetInfo() const override { return TAG_VISIBLE; }
  // Angle limit on, 80 degrees, edges used.
  static std::unique_ptr<PhongTag> Alloc();
  // The angle limit in radians, or pi when the limit is off.
  Float GetSmoothingAngle() const;

 protected:
  PhongTag();
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(); }
};

}  // namespace zta
