#include "tracking/internal/motion_model.h"

#include <algorithm>
#include <cmath>

namespace pv::internal {

void MotionModel::reset() {
  angular_rad_s_.setZero();
  linear_m_s_.setZero();
  known_ = false;
  steady_ = false;
}

Eigen::Isometry3d MotionModel::predict(double dt_s, double max_extrapolation_s) const {
  Eigen::Isometry3d T = Eigen::Isometry3d::Identity();
  if (!known_ || !(dt_s > 0)) return T;
  const double dt = std::min(dt_s, max_extrapolation_s);
  const Eigen::Vector3d w = angular_rad_s_ * dt;
  if (w.norm() > 1e-12) T.linear() = Eigen::AngleAxisd(w.norm(), w.normalized()).toRotationMatrix();
  T.translation() = linear_m_s_ * dt;
  return T;
}

void MotionModel::update(const Eigen::Isometry3d& T_previous_current, double dt_s) {
  if (!(dt_s > 0)) return;
  const Eigen::AngleAxisd turn(T_previous_current.linear());
  const Eigen::Vector3d linear = T_previous_current.translation() / dt_s;
  const double a = linear.norm(), b = linear_m_s_.norm();
  steady_ = known_ && a > 0 && b > 0 && linear.dot(linear_m_s_) > 0.7 * a * b && a < 2 * b && b < 2 * a;
  angular_rad_s_ = turn.axis() * turn.angle() / dt_s;
  linear_m_s_ = linear;
  known_ = true;
}

double frameInterval(double previous_t_s, double t_s, double fallback_s) {
  const double dt = t_s - previous_t_s;
  return std::isfinite(dt) && dt > 1e-6 ? dt : fallback_s;
}

}  // namespace pv::internal
