#pragma once
// The host's small vector and matrix library. A Matrix is affine: an offset
// and three axes; points transform as off + x*v1 + y*v2 + z*v3.
#include <array>
#include <cmath>
#include <cstdint>

namespace zta {

template <typename T>
struct Vec2 {
  T x{}, y{};
  constexpr bool operator==(const Vec2&) const = default;
};

template <typename T>
struct Vec3 {
  T x{}, y{}, z{};
  constexpr Vec3() = default;
  constexpr Vec3(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}
  constexpr explicit Vec3(T s) : x(s), y(s), z(s) {}
  template <typename U>
  constexpr explicit Vec3(const Vec3<U>& o) : x(T(o.x)), y(T(o.y)), z(T(o.z)) {}

  constexpr T& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
  constexpr const T& operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
  constexpr bool operator==(const Vec3&) const = default;
  constexpr Vec3 operator+(const Vec3& o) const { return {x + o.x, y + o.y, z + o.z}; }
  constexpr Vec3 operator-(const Vec3& o) const { return {x - o.x, y - o.y, z - o.z}; }
  constexpr Vec3 operator-() const { return {-x, -y, -z}; }
  constexpr Vec3 operator*(T s) const { return {x * s, y * s, z * s}; }
  constexpr Vec3 operator/(T s) const { return {x / s, y / s, z / s}; }
  constexpr Vec3& operator+=(const Vec3& o) { x += o.x; y += o.y; z += o.z; return *this; }
  constexpr Vec3& operator-=(const Vec3& o) { x -= o.x; y -= o.y; z -= o.z; return *this; }
  constexpr Vec3& operator*=(T s) { x *= s; y *= s; z *= s; return *this; }
  T GetLength() const { return std::sqrt(x * x + y * y + z * z); }
  T GetSquaredLength() const { return x * x + y * y + z * z; }
  Vec3 GetNormalized() const {
    const T l = GetLength();
    return l > T(0) ? *this / l : *this;
  }
};

template <typename T>
constexpr Vec3<T> operator*(T s, const Vec3<T>& v) { return v * s; }
template <typename T>
constexpr T Dot(const Vec3<T>& a, const Vec3<T>& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
template <typename T>
constexpr Vec3<T> Cross(const Vec3<T>& a, const Vec3<T>& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

using Vector = Vec3<double>;
using Vector64 = Vec3<double>;
using Vector32 = Vec3<float>;
using IntVector32 = Vec3<int32_t>;
using Vector2d64 = Vec2<double>;
using Vector2d32 = Vec2<float>;
using IntVector2d32 = Vec2<int32_t>;

// A 4x4 matrix in row-major order, as file metadata holds it.
template <typename T>
struct Mat44 {
  std::array<T, 16> m{};
  constexpr bool operator==(const Mat44&) const = default;
  T& operator()(int r, int c) { return m[r * 4 + c]; }
  const T& operator()(int r, int c) const { return m[r * 4 + c]; }
  static constexpr Mat44 Identity() {
    Mat44 r;
    r.m[0] = r.m[5] = r.m[10] = r.m[15] = T(1);
    return r;
  }
};
using Matrix4d64 = Mat44<double>;
using Matrix4d32 = Mat44<float>;

struct Matrix {
  Vector off{0, 0, 0};
  Vector v1{1, 0, 0};
  Vector v2{0, 1, 0};
  Vector v3{0, 0, 1};

  constexpr bool operator==(const Matrix&) const = default;

  constexpr Vector TransformPoint(const Vector& p) const { return off + v1 * p.x + v2 * p.y + v3 * p.z; }
  constexpr Vector TransformVector(const Vector& d) const { return v1 * d.x + v2 * d.y + v3 * d.z; }
  // this * o: apply o first, then this.
  constexpr Matrix operator*(const Matrix& o) const {
    return {TransformPoint(o.off), TransformVector(o.v1), TransformVector(o.v2), TransformVector(o.v3)};
  }
  constexpr Vector operator*(const Vector& p) const { return TransformPoint(p); }
  double Det() const { return Dot(v1, Cross(v2, v3)); }
  // Inverse of the affine map; a singular matrix gives the zero matrix.
  Matrix GetInverse() const;
  Vector GetScale() const { return {v1.GetLength(), v2.GetLength(), v3.GetLength()}; }
  // The axes scaled to unit length (the rotation part when the axes are orthogonal).
  Matrix GetNormalized() const;
};

constexpr Matrix MatrixScale(const Vector& s) { return {Vector(0.0), {s.x, 0, 0}, {0, s.y, 0}, {0, 0, s.z}}; }
constexpr Matrix MatrixMove(const Vector& t) { return {t, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}; }
Matrix MatrixRotX(double a);
Matrix MatrixRotY(double a);
Matrix MatrixRotZ(double a);

// The pure rotation of m: its axes made orthonormal from the first axis on,
// right-handed, offset zero. What an Euler decomposition and rebuild yields.
Matrix GetRotation(const Matrix& m);

}  // namespace zta
