// PAVO SDK: small vectors, matrices and rigid-body types. Plain values, thread compatible.
#pragma once

#include <cmath>
#include <cstddef>

#include "pv/defines.h"

namespace pv {

/// Two components; contiguous.
template <typename T>
struct Vector2 {
  T x{}, y{};
  Vector2() = default;
  Vector2(T x_, T y_) : x(x_), y(y_) {}
  T* ptr() { return &x; }
  const T* ptr() const { return &x; }
  T& operator[](size_t i) { return ptr()[i]; }
  const T& operator[](size_t i) const { return ptr()[i]; }
  static constexpr size_t size() { return 2; }
  bool operator==(const Vector2& o) const { return x == o.x && y == o.y; }
  bool operator!=(const Vector2& o) const { return !(*this == o); }
};

/// Three components; contiguous.
template <typename T>
struct Vector3 {
  T x{}, y{}, z{};
  Vector3() = default;
  Vector3(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}
  T* ptr() { return &x; }
  const T* ptr() const { return &x; }
  T& operator[](size_t i) { return ptr()[i]; }
  const T& operator[](size_t i) const { return ptr()[i]; }
  static constexpr size_t size() { return 3; }
  bool operator==(const Vector3& o) const { return x == o.x && y == o.y && z == o.z; }
  bool operator!=(const Vector3& o) const { return !(*this == o); }
  Vector3 operator+(const Vector3& o) const { return {T(x + o.x), T(y + o.y), T(z + o.z)}; }
  Vector3 operator-(const Vector3& o) const { return {T(x - o.x), T(y - o.y), T(z - o.z)}; }
  Vector3 operator-() const { return {T(-x), T(-y), T(-z)}; }
  Vector3 operator*(T s) const { return {T(x * s), T(y * s), T(z * s)}; }
  Vector3 operator/(T s) const { return {T(x / s), T(y / s), T(z / s)}; }
  Vector3& operator+=(const Vector3& o) {
    x += o.x;
    y += o.y;
    z += o.z;
    return *this;
  }
  Vector3& operator-=(const Vector3& o) {
    x -= o.x;
    y -= o.y;
    z -= o.z;
    return *this;
  }
  Vector3& operator*=(T s) {
    x *= s;
    y *= s;
    z *= s;
    return *this;
  }
};

/// Four components; contiguous.
template <typename T>
struct Vector4 {
  T x{}, y{}, z{}, w{};
  Vector4() = default;
  Vector4(T x_, T y_, T z_, T w_) : x(x_), y(y_), z(z_), w(w_) {}
  T* ptr() { return &x; }
  const T* ptr() const { return &x; }
  T& operator[](size_t i) { return ptr()[i]; }
  const T& operator[](size_t i) const { return ptr()[i]; }
  static constexpr size_t size() { return 4; }
  bool operator==(const Vector4& o) const { return x == o.x && y == o.y && z == o.z && w == o.w; }
  bool operator!=(const Vector4& o) const { return !(*this == o); }
};

using float2 = Vector2<float>;
using float3 = Vector3<float>;
using float4 = Vector4<float>;
using uchar3 = Vector3<unsigned char>;
using uchar4 = Vector4<unsigned char>;
using uint3 = Vector3<unsigned int>;

template <typename T>
T dot(const Vector3<T>& a, const Vector3<T>& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
template <typename T>
Vector3<T> cross(const Vector3<T>& a, const Vector3<T>& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
template <typename T>
T length(const Vector3<T>& a) {
  return std::sqrt(dot(a, a));
}
/// Unit vector along a; the zero vector stays zero.
template <typename T>
Vector3<T> normalize(const Vector3<T>& a) {
  T n = length(a);
  return n > T(0) ? a / n : a;
}

/// 3x3 float matrix, row-major, element (r, c) at r * 3 + c.
class Matrix3f {
 public:
  float r[9];
  Matrix3f();  ///< identity
  explicit Matrix3f(const float data[9]);
  float& operator()(int row, int col) { return r[row * 3 + col]; }
  float operator()(int row, int col) const { return r[row * 3 + col]; }
  void setIdentity();
  static Matrix3f identity();
  void transpose();
  static Matrix3f transpose(const Matrix3f& m);
  float determinant() const;
  /// Inverts in place; FAILURE (and no change) when singular.
  ERROR_CODE inverse();
  static Matrix3f inverse(const Matrix3f& m);
  Matrix3f operator*(const Matrix3f& o) const;
  Vector3<float> operator*(const Vector3<float>& v) const;
  bool operator==(const Matrix3f& o) const;
  bool operator!=(const Matrix3f& o) const { return !(*this == o); }
};

/// 4x4 float matrix, row-major, element (r, c) at m[4 r + c]; the 16 floats are contiguous.
class Matrix4f {
 public:
  float m[16];
  Matrix4f();  ///< identity
  explicit Matrix4f(const float data[16]);
  float& operator()(int row, int col) { return m[row * 4 + col]; }
  float operator()(int row, int col) const { return m[row * 4 + col]; }
  float* data() { return m; }
  const float* data() const { return m; }
  void setIdentity();
  static Matrix4f identity();
  void setZeros();
  void transpose();
  static Matrix4f transpose(const Matrix4f& mat);
  /// General inverse in place; FAILURE (and no change) when singular.
  ERROR_CODE inverse();
  static Matrix4f inverse(const Matrix4f& mat);
  Matrix4f operator*(const Matrix4f& o) const;
  Vector4<float> operator*(const Vector4<float>& v) const;
  bool operator==(const Matrix4f& o) const;
  bool operator!=(const Matrix4f& o) const { return !(*this == o); }
};

class Orientation;
class Rotation;

/// Position or direction, three floats.
class Translation : public Vector3<float> {
 public:
  Translation() = default;
  Translation(float x_, float y_, float z_) : Vector3<float>(x_, y_, z_) {}
  Translation(const Vector3<float>& v) : Vector3<float>(v) {}  // NOLINT: implicit by design
  Translation operator+(const Translation& o) const { return Translation(x + o.x, y + o.y, z + o.z); }
  Translation operator-(const Translation& o) const { return Translation(x - o.x, y - o.y, z - o.z); }
  Translation operator-() const { return Translation(-x, -y, -z); }
  Translation operator*(float s) const { return Translation(x * s, y * s, z * s); }
  Translation operator/(float s) const { return Translation(x / s, y / s, z / s); }
  float tx() const { return x; }
  float ty() const { return y; }
  float tz() const { return z; }
  void normalize();
  static Translation normalize(const Translation& t);
  float norm() const { return pv::length(static_cast<const Vector3<float>&>(*this)); }
  static float dot(const Translation& a, const Translation& b);
  /// The vector rotated by the quaternion.
  Translation operator*(const Orientation& q) const;
};

/// Unit quaternion (ox, oy, oz, ow).
class Orientation : public Vector4<float> {
 public:
  Orientation();  ///< identity
  Orientation(float ox_, float oy_, float oz_, float ow_);
  explicit Orientation(const Rotation& rotation);
  /// Shortest arc taking direction `from` onto direction `to` (any length, not zero). Opposite
  /// directions give a half turn about an axis perpendicular to `from`.
  Orientation(const Translation& from, const Translation& to);
  float ox() const { return x; }
  float oy() const { return y; }
  float oz() const { return z; }
  float ow() const { return w; }
  void setIdentity();
  static Orientation identity();
  void setZeros();
  void normalise();
  static Orientation normalise(const Orientation& q);
  Orientation conjugate() const;
  Rotation getRotationMatrix() const;
  void setRotationMatrix(const Rotation& rotation);
  /// Hamilton product: (a * b) applies b first, then a.
  Orientation operator*(const Orientation& o) const;
};

/// 3x3 rotation matrix.
class Rotation : public Matrix3f {
 public:
  Rotation() = default;                         ///< identity
  Rotation(const Matrix3f& m) : Matrix3f(m) {}  // NOLINT: implicit by design
  explicit Rotation(const Orientation& q);
  /// Rotation of angle_rad (right-handed) about axis (normalised here).
  Rotation(float angle_rad, const Translation& axis);
  void setOrientation(const Orientation& q);
  Orientation getOrientation() const;
  /// Rotation vector (axis times angle, radians).
  Vector3<float> getRotationVector() const;
  void setRotationVector(const Vector3<float>& rvec);
  /// Euler angles (x, y, z) in radians or degrees.
  Vector3<float> getEulerAngles(bool radian = true) const;
  void setEulerAngles(const Vector3<float>& angles, bool radian = true);
};

/// Rigid transform, 4x4 row-major; translation at m[3], m[7], m[11].
class Transform : public Matrix4f {
 public:
  Transform() = default;                             ///< identity
  Transform(const Matrix4f& mat) : Matrix4f(mat) {}  // NOLINT: implicit by design
  Transform(const Rotation& rotation, const Translation& translation);
  Transform(const Orientation& orientation, const Translation& translation);
  void setRotation(const Rotation& rotation);
  Rotation getRotation() const;
  void setTranslation(const Translation& translation);
  Translation getTranslation() const;
  void setOrientation(const Orientation& orientation);
  Orientation getOrientation() const;
  Vector3<float> getRotationVector() const;
  void setRotationVector(const Vector3<float>& rvec);
  Vector3<float> getEulerAngles(bool radian = true) const;
  void setEulerAngles(const Vector3<float>& angles, bool radian = true);
  /// Inverse of a rigid transform (R^T, -R^T t).
  static Transform rigidInverse(const Transform& t);
};

}  // namespace pv
