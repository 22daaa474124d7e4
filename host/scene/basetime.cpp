#include "host/scene/basetime.h"

#include <cmath>

namespace zta {

Int32 BaseTime::GetFrame(Float fps) const {
  // The small bias keeps exact frame times (1/30 s at 30 fps) from rounding down.
  return Int32(std::floor(Get() * fps + 1e-9));
}

}  // namespace zta
