#include "pv/math.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cstring>

namespace pv {
namespace {

using Mat3 = Eigen::Matrix<float, 3, 3, Eigen::RowMajor>;
using Mat4 = Eigen::Matrix<float, 4, 4, Eigen::RowMajor>;

Eigen::Map<Mat3> map3(float* r) { return Eigen::Map<Mat3>(r); }
Eigen::Map<const Mat3> map3(const float* r) { return Eigen::Map<const Mat3>(r); }
Eigen::Map<Mat4> map4(float* m) { return Eigen::Map<Mat4>(m); }
Eigen::Map<const Mat4> map4(const float* m) { return Eigen::Map<const Mat4>(m); }

Eigen::Quaternionf toEigen(const Orientation& q) { return Eigen::Quaternionf(q.w, q.x, q.y, q.z); }
Orientation fromEigen(const Eigen::Quaternionf& q) { return Orientation(q.x(), q.y(), q.z(), q.w()); }

Rotation rotationFrom(const Mat3& m) {
  Rotation r;
  map3(r.r) = m;
  return r;
}

}  // namespace

// ---- Matrix3f ----
Matrix3f::Matrix3f() { setIdentity(); }
Matrix3f::Matrix3f(const float data[9]) { std::memcpy(r, data, sizeof(r)); }
void Matrix3f::setIdentity() { map3(r).setIdentity(); }
Matrix3f Matrix3f::identity() { return Matrix3f(); }
void Matrix3f::transpose() { map3(r).transposeInPlace(); }
Matrix3f Matrix3f::transpose(const Matrix3f& m) {
  Matrix3f t(m);
  t.transpose();
  return t;
}
float Matrix3f::determinant() const { return map3(r).determinant(); }
ERROR_CODE Matrix3f::inverse() {
  Mat3 inv;
  bool ok = false;
  map3(r).computeInverseWithCheck(inv, ok, 1e-12f);
  if (!ok) return ERROR_CODE::FAILURE;
  map3(r) = inv;
  return ERROR_CODE::SUCCESS;
}
Matrix3f Matrix3f::inverse(const Matrix3f& m) {
  Matrix3f out(m);
  (void)out.inverse();
  return out;
}
Matrix3f Matrix3f::operator*(const Matrix3f& o) const {
  Matrix3f out;
  map3(out.r) = map3(r) * map3(o.r);
  return out;
}
Vector3<float> Matrix3f::operator*(const Vector3<float>& v) const {
  Eigen::Vector3f res = map3(r) * Eigen::Vector3f(v.x, v.y, v.z);
  return {res.x(), res.y(), res.z()};
}
bool Matrix3f::operator==(const Matrix3f& o) const { return std::equal(r, r + 9, o.r); }

// ---- Matrix4f ----
Matrix4f::Matrix4f() { setIdentity(); }
Matrix4f::Matrix4f(const float data[16]) { std::memcpy(m, data, sizeof(m)); }
void Matrix4f::setIdentity() { map4(m).setIdentity(); }
Matrix4f Matrix4f::identity() { return Matrix4f(); }
void Matrix4f::setZeros() { map4(m).setZero(); }
void Matrix4f::transpose() { map4(m).transposeInPlace(); }
Matrix4f Matrix4f::transpose(const Matrix4f& mat) {
  Matrix4f t(mat);
  t.transpose();
  return t;
}
ERROR_CODE Matrix4f::inverse() {
  Mat4 inv;
  bool ok = false;
  map4(m).computeInverseWithCheck(inv, ok, 1e-20f);
  if (!ok) return ERROR_CODE::FAILURE;
  map4(m) = inv;
  return ERROR_CODE::SUCCESS;
}
Matrix4f Matrix4f::inverse(const Matrix4f& mat) {
  Matrix4f out(mat);
  (void)out.inverse();
  return out;
}
Matrix4f Matrix4f::operator*(const Matrix4f& o) const {
  Matrix4f out;
  map4(out.m) = map4(m) * map4(o.m);
  return out;
}
Vector4<float> Matrix4f::operator*(const Vector4<float>& v) const {
  Eigen::Vector4f res = map4(m) * Eigen::Vector4f(v.x, v.y, v.z, v.w);
  return {res.x(), res.y(), res.z(), res.w()};
}
bool Matrix4f::operator==(const Matrix4f& o) const { return std::equal(m, m + 16, o.m); }

// ---- Translation ----
void Translation::normalize() { *this = pv::normalize(static_cast<const Vector3<float>&>(*this)); }
Translation Translation::normalize(const Translation& t) {
  return pv::normalize(static_cast<const Vector3<float>&>(t));
}
float Translation::dot(const Translation& a, const Translation& b) { return pv::dot<float>(a, b); }
Translation Translation::operator*(const Orientation& q) const {
  Eigen::Vector3f v = toEigen(q) * Eigen::Vector3f(x, y, z);
  return Translation(v.x(), v.y(), v.z());
}

// ---- Orientation ----
Orientation::Orientation() : Vector4<float>(0, 0, 0, 1) {}
Orientation::Orientation(float ox_, float oy_, float oz_, float ow_) : Vector4<float>(ox_, oy_, oz_, ow_) {}
Orientation::Orientation(const Rotation& rotation) : Orientation() { setRotationMatrix(rotation); }
Orientation::Orientation(const Translation& from, const Translation& to) : Orientation() {
  const Eigen::Vector3f a(from.x, from.y, from.z);
  const Eigen::Vector3f b(to.x, to.y, to.z);
  if (a.norm() <= 0.f || b.norm() <= 0.f) return;  // no direction: identity
  const Eigen::Vector3f u = a.normalized();
  const Eigen::Vector3f v = b.normalized();
  const float d = u.dot(v);
  if (d >= 1.f - 1e-6f) return;  // same direction
  if (d <= -1.f + 1e-6f) {
    // Opposite directions: half turn about any axis perpendicular to `from`.
    Eigen::Vector3f axis = u.cross(Eigen::Vector3f::UnitX());
    if (axis.squaredNorm() < 1e-6f) axis = u.cross(Eigen::Vector3f::UnitY());
    axis.normalize();
    *this = Orientation(axis.x(), axis.y(), axis.z(), 0.f);
    return;
  }
  const Eigen::Vector3f c = u.cross(v);
  const float s = std::sqrt((1.f + d) * 2.f);
  *this = Orientation(c.x() / s, c.y() / s, c.z() / s, s * 0.5f);
  normalise();
}
void Orientation::setIdentity() { *this = Orientation(); }
Orientation Orientation::identity() { return Orientation(); }
void Orientation::setZeros() { x = y = z = w = 0.f; }
void Orientation::normalise() {
  const float n = std::sqrt(x * x + y * y + z * z + w * w);
  if (n > 0.f) {
    x /= n;
    y /= n;
    z /= n;
    w /= n;
  }
}
Orientation Orientation::normalise(const Orientation& q) {
  Orientation out(q);
  out.normalise();
  return out;
}
Orientation Orientation::conjugate() const { return Orientation(-x, -y, -z, w); }
Rotation Orientation::getRotationMatrix() const { return rotationFrom(toEigen(*this).normalized().toRotationMatrix()); }
void Orientation::setRotationMatrix(const Rotation& rotation) {
  *this = fromEigen(Eigen::Quaternionf(Mat3(map3(rotation.r))).normalized());
}
Orientation Orientation::operator*(const Orientation& o) const { return fromEigen(toEigen(*this) * toEigen(o)); }

// ---- Rotation ----
Rotation::Rotation(const Orientation& q) : Matrix3f(q.getRotationMatrix()) {}
Rotation::Rotation(float angle_rad, const Translation& axis) : Matrix3f() {
  Eigen::Vector3f a(axis.x, axis.y, axis.z);
  if (a.norm() <= 0.f) return;
  map3(r) = Eigen::AngleAxisf(angle_rad, a.normalized()).toRotationMatrix();
}
void Rotation::setOrientation(const Orientation& q) { *this = q.getRotationMatrix(); }
Orientation Rotation::getOrientation() const { return Orientation(*this); }
Vector3<float> Rotation::getRotationVector() const {
  Eigen::AngleAxisf aa(Mat3(map3(r)));
  Eigen::Vector3f v = aa.axis() * aa.angle();
  return {v.x(), v.y(), v.z()};
}
void Rotation::setRotationVector(const Vector3<float>& rvec) {
  Eigen::Vector3f v(rvec.x, rvec.y, rvec.z);
  const float angle = v.norm();
  if (angle <= 0.f) {
    setIdentity();
    return;
  }
  map3(r) = Eigen::AngleAxisf(angle, v / angle).toRotationMatrix();
}
Vector3<float> Rotation::getEulerAngles(bool radian) const {
  Eigen::Vector3f e = Mat3(map3(r)).eulerAngles(0, 1, 2);
  if (!radian) e *= 180.f / float(M_PI);
  return {e.x(), e.y(), e.z()};
}
void Rotation::setEulerAngles(const Vector3<float>& angles, bool radian) {
  const float k = radian ? 1.f : float(M_PI) / 180.f;
  map3(r) = (Eigen::AngleAxisf(angles.x * k, Eigen::Vector3f::UnitX()) *
             Eigen::AngleAxisf(angles.y * k, Eigen::Vector3f::UnitY()) *
             Eigen::AngleAxisf(angles.z * k, Eigen::Vector3f::UnitZ()))
                .toRotationMatrix();
}

// ---- Transform ----
Transform::Transform(const Rotation& rotation, const Translation& translation) : Matrix4f() {
  setRotation(rotation);
  setTranslation(translation);
}
Transform::Transform(const Orientation& orientation, const Translation& translation)
    : Transform(Rotation(orientation), translation) {}
void Transform::setRotation(const Rotation& rotation) {
  for (int row = 0; row < 3; ++row)
    for (int col = 0; col < 3; ++col) m[row * 4 + col] = rotation(row, col);
}
Rotation Transform::getRotation() const {
  Rotation out;
  for (int row = 0; row < 3; ++row)
    for (int col = 0; col < 3; ++col) out(row, col) = m[row * 4 + col];
  return out;
}
void Transform::setTranslation(const Translation& t) {
  m[3] = t.x;
  m[7] = t.y;
  m[11] = t.z;
}
Translation Transform::getTranslation() const { return Translation(m[3], m[7], m[11]); }
void Transform::setOrientation(const Orientation& orientation) { setRotation(Rotation(orientation)); }
Orientation Transform::getOrientation() const { return Orientation(getRotation()); }
Vector3<float> Transform::getRotationVector() const { return getRotation().getRotationVector(); }
void Transform::setRotationVector(const Vector3<float>& rvec) {
  Rotation r;
  r.setRotationVector(rvec);
  setRotation(r);
}
Vector3<float> Transform::getEulerAngles(bool radian) const { return getRotation().getEulerAngles(radian); }
void Transform::setEulerAngles(const Vector3<float>& angles, bool radian) {
  Rotation r;
  r.setEulerAngles(angles, radian);
  setRotation(r);
}
Transform Transform::rigidInverse(const Transform& t) {
  Rotation rt = Rotation(Matrix3f::transpose(t.getRotation()));
  Translation tr = rt * static_cast<Vector3<float>>(t.getTranslation());
  return Transform(rt, -tr);
}

}  // namespace pv
