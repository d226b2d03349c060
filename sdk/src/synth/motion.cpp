#include "synth/internal/motion.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

namespace pv::internal::synth {

namespace {

// Camera axes looking along `forward` with the scene's y up (no roll): x right, y down, z forward.
Eigen::Matrix3d lookAlong(const Eigen::Vector3d& forward) {
  const Eigen::Vector3d z = forward.normalized();
  const Eigen::Vector3d x = z.cross(Eigen::Vector3d::UnitY()).normalized();
  Eigen::Matrix3d R;
  R.col(0) = x;
  R.col(1) = z.cross(x);
  R.col(2) = z;
  return R;
}

// 0 to 1 with zero speed at both ends; its steepest slope is 1.5.
double smoothStep(double s) {
  s = std::clamp(s, 0.0, 1.0);
  return s * s * (3 - 2 * s);
}

}  // namespace

bool CameraMotion::known(const std::string& name) { return name == "smooth" || name == "handheld"; }

CameraMotion::CameraMotion(const std::string& name, uint32_t seed, double duration_s) : handheld_(name == "handheld") {
  if (!handheld_) return;
  cv::RNG rng(uint64_t(seed) * 2654435761ull + 17);
  for (double& p : phases_) p = rng.uniform(0.0, 2 * CV_PI);
  // Turns one after the other, a pause between them; every third one a nod. Their signs alternate
  // so that the hand swings back instead of spinning away.
  double t = rng.uniform(0.3, 0.8);
  int yaw_sign = rng.uniform(0, 2) ? 1 : -1, pitch_sign = 1;
  for (int k = 0; t < duration_s; ++k) {
    Turn turn;
    turn.pitch = k % 3 == 2;
    turn.start_s = t;
    const double degrees = turn.pitch ? rng.uniform(25.0, 40.0) : rng.uniform(60.0, 100.0);
    // The steepest point of a smooth step is 1.5 times its mean speed: peaks of 190-320 deg/s.
    turn.duration_s = 1.5 * degrees / rng.uniform(190.0, 320.0);
    turn.angle_rad = degrees * CV_PI / 180 * (turn.pitch ? pitch_sign : yaw_sign);
    if (turn.pitch)
      pitch_sign = -pitch_sign;
    else
      yaw_sign = -yaw_sign;
    turns_.push_back(turn);
    t += turn.duration_s + rng.uniform(0.4, 1.2);
  }
}

double CameraMotion::turned(double t_s, bool pitch) const {
  double angle = 0;
  for (const Turn& turn : turns_)
    if (turn.pitch == pitch) angle += turn.angle_rad * smoothStep((t_s - turn.start_s) / turn.duration_s);
  return angle;
}

Eigen::Matrix4d CameraMotion::pose(const Scene& scene, double t) const {
  Eigen::Vector3d position, target;
  scene.cameraPath(t, position, target);
  Eigen::Matrix3d R = lookAlong(target - position);
  if (handheld_) {
    const double* p = phases_;
    // Turns and nods on top of the path, then the hand's tremor (about a degree at 4-7 Hz) and
    // sway (a centimetre at 2-3 Hz).
    const double deg = CV_PI / 180;
    const double yaw = turned(t, false) + 1.2 * deg * std::sin(2 * CV_PI * 4.3 * t + p[0]);
    const double pitch = turned(t, true) + 1.0 * deg * std::sin(2 * CV_PI * 5.9 * t + p[1]);
    const double roll = 3.0 * deg * std::sin(2 * CV_PI * 0.7 * t + p[2]) + 0.8 * deg * std::sin(2 * CV_PI * 6.7 * t);
    R = Eigen::AngleAxisd(yaw, -Eigen::Vector3d::UnitY()).toRotationMatrix() * R *
        Eigen::AngleAxisd(pitch, Eigen::Vector3d::UnitX()).toRotationMatrix() *
        Eigen::AngleAxisd(roll, Eigen::Vector3d::UnitZ()).toRotationMatrix();
    position += 0.01 * Eigen::Vector3d(std::sin(2 * CV_PI * 2.3 * t + p[3]), std::sin(2 * CV_PI * 2.9 * t + p[4]),
                                       std::sin(2 * CV_PI * 2.1 * t + p[5]));
  }
  Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
  T.topLeftCorner<3, 3>() = R;
  T.topRightCorner<3, 1>() = position;
  return T;
}

}  // namespace pv::internal::synth
