#include "host/core/rotation.h"

#include <algorithm>

namespace zta {

Matrix HPBToMatrix(const Vector& hpb) { return MatrixRotY(hpb.x) * MatrixRotX(hpb.y) * MatrixRotZ(hpb.z); }

Vector MatrixToHPB(const Matrix& m) {
  const Matrix r = m.GetNormalized();
  const double sp = std::clamp(-r.v3.y, -1.0, 1.0);
  const double p = std::asin(sp);
  if (std::abs(sp) > 1.0 - 1e-12) {
    // Heading and bank share one axis here; all of it goes to bank.
    return {0.0, p, std::atan2(r.v1.z * (sp > 0 ? 1.0 : -1.0), r.v1.x)};
  }
  return {std::atan2(r.v3.x, r.v3.z), p, std::atan2(r.v1.y, r.v2.y)};
}

PSR SplitMatrix(const Matrix& m) {
  PSR out;
  out.position = m.off;
  out.scale = m.GetScale();
  Matrix axes = m;
  if (m.Det() < 0) {
    out.scale.z = -out.scale.z;
    axes.v3 = -axes.v3;
  }
  out.rotation = MatrixToHPB(axes);
  return out;
}

Matrix JoinMatrix(const PSR& psr) {
  Matrix m = HPBToMatrix(psr.rotation) * MatrixScale(psr.scale);
  m.off = psr.position;
  return m;
}

}  // namespace zta
