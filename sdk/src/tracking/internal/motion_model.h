// Constant velocity in time: the camera's last measured motion as a rate (turn and displacement
// per second), so that a prediction spans the real interval to the next frame whatever the frame
// rate, dropped frames included.
#pragma once

#include <Eigen/Geometry>

namespace pv::internal {

class MotionModel {
 public:
  /// Forgets the rate (after a loss or a restart).
  void reset();
  /// True once a motion has been measured.
  bool known() const { return known_; }
  /// Expected T_previous_current after `dt_s` seconds (identity while unknown); intervals longer
  /// than `max_extrapolation_s` are cut to it.
  Eigen::Isometry3d predict(double dt_s, double max_extrapolation_s = 0.5) const;
  /// Learns the rate from a measured T_previous_current over `dt_s` seconds (> 0).
  void update(const Eigen::Isometry3d& T_previous_current, double dt_s);
  /// True when the last two measured displacements agree in direction and size (a steady walk or
  /// drive); false for a shake that turns back and forth, whose next displacement is anyone's guess.
  bool steady() const { return steady_; }

 private:
  Eigen::Vector3d angular_rad_s_ = Eigen::Vector3d::Zero();  ///< rotation vector per second
  Eigen::Vector3d linear_m_s_ = Eigen::Vector3d::Zero();     ///< in the previous camera's frame
  bool known_ = false;
  bool steady_ = false;
};

/// Seconds from `previous_t_s` to `t_s`; `fallback_s` when the timestamps do not grow (unknown
/// or equal times).
double frameInterval(double previous_t_s, double t_s, double fallback_s);

}  // namespace pv::internal
