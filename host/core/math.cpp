#include "host/core/math.h"

namespace zta {

Matrix Matrix::GetInverse() const {
  const double det = Det();
  if (det == 0.0) return Matrix{Vector(0.0), Vector(0.0), Vector(0.0), Vector(0.0)};
  // Rows of the inverse 3x3 are the cross products of the columns.
  const Vector r0 = Cross(v2, v3) / det;
  const Vector r1 = Cross(v3, v1) / det;
  const Vector r2 = Cross(v1, v2) / det;
  Matrix inv;
  inv.v1 = {r0.x, r1.x, r2.x};
  inv.v2 = {r0.y, r1.y, r2.y};
  inv.v3 = {r0.z, r1.z, r2.z};
  inv.off = -inv.TransformVector(off);
  return inv;
}

Matrix Matrix::GetNormalized() const {
  Matrix r = *this;
  r.v1 = v1.GetNormalized();
  r.v2 = v2.GetNormalized();
  r.v3 = v3.GetNormalized();
  return r;
}

Matrix MatrixRotX(double a) {
  const double c = std::cos(a), s = std::sin(a);
  return {Vector(0.0), {1, 0, 0}, {0, c, s}, {0, -s, c}};
}
Matrix MatrixRotY(double a) {
  const double c = std::cos(a), s = std::sin(a);
  return {Vector(0.0), {c, 0, -s}, {0, 1, 0}, {s, 0, c}};
}
Matrix MatrixRotZ(double a) {
  const double c = std::cos(a), s = std::sin(a);
  return {Vector(0.0), {c, s, 0}, {-s, c, 0}, {0, 0, 1}};
}

Matrix GetRotation(const Matrix& m) {
  Vector x = m.v1.GetNormalized();
  if (x.GetSquaredLength() == 0.0) x = {1, 0, 0};
  Vector y = m.v2 - x * Dot(x, m.v2);
  if (y.GetSquaredLength() < 1e-24) {
    // No usable second axis: take the third's direction, or any perpendicular.
    Vector seed = Cross(m.v3, x);
    if (seed.GetSquaredLength() < 1e-24) seed = std::abs(x.x) < 0.9 ? Vector(1, 0, 0) : Vector(0, 1, 0);
    y = seed - x * Dot(x, seed);
  }
  y = y.GetNormalized();
  Matrix r;
  r.v1 = x;
  r.v2 = y;
  r.v3 = Cross(x, y);
  return r;
}

}  // namespace zta
