#include "core/internal/coordinates.h"

#include <Eigen/Geometry>

namespace pv::internal {

Eigen::Matrix3f basisFromImage(COORDINATE_SYSTEM system) {
  Eigen::Matrix3f c = Eigen::Matrix3f::Identity();
  switch (system) {
    case COORDINATE_SYSTEM::LEFT_HANDED_Y_UP:  // x right, y up, z forward
      c.diagonal() << 1, -1, 1;
      break;
    case COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP:  // x right, y up, looking along -z
      c.diagonal() << 1, -1, -1;
      break;
    case COORDINATE_SYSTEM::RIGHT_HANDED_Z_UP:  // x right, z up, looking along +y
      c << 1, 0, 0, 0, 0, 1, 0, -1, 0;
      break;
    default: break;
  }
  return c;
}

float metresTo(UNIT unit) {
  switch (unit) {
    case UNIT::MILLIMETER: return 1000.f;
    case UNIT::CENTIMETER: return 100.f;
    default: return 1.f;
  }
}

float3 pointToUser(const Eigen::Vector3f& p_image_m, COORDINATE_SYSTEM system, UNIT unit) {
  const Eigen::Vector3f p = basisFromImage(system) * p_image_m * metresTo(unit);
  return {p.x(), p.y(), p.z()};
}

Transform transformToUser(const Eigen::Matrix4f& T_image_m, COORDINATE_SYSTEM system, UNIT unit) {
  const Eigen::Matrix3f c = basisFromImage(system);
  const Eigen::Matrix3f r = c * T_image_m.topLeftCorner<3, 3>() * c.transpose();
  const Eigen::Vector3f t = c * T_image_m.topRightCorner<3, 1>() * metresTo(unit);
  Transform out;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) out(i, j) = r(i, j);
    out(i, 3) = t(i);
  }
  return out;
}

Eigen::Matrix4f transformFromUser(const Transform& T_user, COORDINATE_SYSTEM system, UNIT unit) {
  const Eigen::Matrix3f c = basisFromImage(system);
  Eigen::Matrix3f r;
  Eigen::Vector3f t;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) r(i, j) = T_user(i, j);
    t(i) = T_user(i, 3);
  }
  Eigen::Matrix4f out = Eigen::Matrix4f::Identity();
  out.topLeftCorner<3, 3>() = c.transpose() * r * c;
  out.topRightCorner<3, 1>() = c.transpose() * t / metresTo(unit);
  return out;
}

}  // namespace pv::internal
