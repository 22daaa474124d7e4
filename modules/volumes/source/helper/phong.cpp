#include "modules/volumes/source/helper/phong.h"

#include "host/objects/phongtag.h"
#include "host/scene/baseobject.h"

namespace zelmar {

bool ApplyDefaultPhong(zta::BaseObject* op) {
  constexpr double kPhongAngle = 1.3962634015954636;  // 80 degrees
  if (!op) return false;
  zta::BaseTag* tag = op->GetTag(zta::HOST_TAG_PHONG);
  if (!tag) {
    auto phong = zta::PhongTag::Alloc();
    if (!phong) return false;
    tag = phong.release();
    op->InsertTag(tag);
  }
  tag->GetDataInstance()->SetBool(zta::PHONGTAG_PHONG_ANGLELIMIT, true);
  tag->GetDataInstance()->SetFloat(zta::PHONGTAG_PHONG_ANGLE, kPhongAngle);
  return true;
}

}  // namespace zelmar
