// Compiled without errno and trapping semantics for floating point (see the
// build): only then do the selects below vectorise, four points at a time.
// The values are the same either way.
#include "modules/volumes/source/helper/sphericaluv.h"

#include <cmath>
#include <numbers>

namespace zelmar {

namespace {

constexpr float kPi = std::numbers::pi_v<float>;

// atan2 in single precision, like the UVW tag: Cephes' atanf polynomial after
// reduction to |t| <= tan(pi/8), every branch a select. Within 1e-7 of the
// double result; libm's acosf and atanf per point cost six times as much.
inline float Atan2(float y, float x) {
  const float ax = std::fabs(x), ay = std::fabs(y);
  const bool steep = ay > ax;
  const float hi = steep ? ay : ax, lo = steep ? ax : ay;
  float t = lo / (hi > 0.0f ? hi : 1.0f);  // 0 to 1
  const bool upper = t > 0.41421356f;      // tan(pi/8)
  const float folded = (t - 1.0f) / (t + 1.0f);
  t = upper ? folded : t;
  const float z = t * t;
  float a = (((8.05374449538e-2f * z - 1.38776856032e-1f) * z + 1.99777106478e-1f) * z - 3.33329491539e-1f) * z * t + t;
  a += upper ? kPi / 4.0f : 0.0f;
  a = steep ? kPi / 2.0f - a : a;
  a = x < 0.0f ? kPi - a : a;
  return y < 0.0f ? -a : a;
}

}  // namespace

void SphericalUVs(const zta::Vector* points, float* uvs, int64_t begin, int64_t end, const zta::Vector& centre) {
  for (int64_t i = begin; i < end; ++i) {
    // Offsets from the centre in double, then single precision: the mesh may
    // stand far from the origin.
    const float x = float(points[i].x - centre.x), y = float(points[i].y - centre.y),
                z = float(points[i].z - centre.z);
    const float r = std::sqrt(x * x + z * z);
    // acos(x / r) is atan2(|z|, x); the back half maps to the right half.
    float u = Atan2(std::fabs(z), x) * (0.5f / kPi);
    u = z < 0.0f ? 1.0f - u : u;
    const float v = 0.5f - Atan2(y, r) * (1.0f / kPi);
    const bool pole = r < 1e-6f;
    float* out = uvs + 3 * i;
    out[0] = pole ? 1e10f : u;
    out[1] = pole ? (y > 0.0f ? 0.0f : 1.0f) : v;
    out[2] = 0.0f;
  }
}

}  // namespace zelmar
