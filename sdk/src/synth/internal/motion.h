// Camera motions through a synthetic scene: the scene's own smooth path, or the same path held
// by a hand that turns quickly (swings of 60-100 degrees at peaks of 190-320 degrees per second,
// quick nods) and shakes. Deterministic for a seed.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <vector>

#include "synth/internal/scene.h"

namespace pv::internal::synth {

class CameraMotion {
 public:
  /// "smooth" or "handheld"; false for another name.
  static bool known(const std::string& name);
  CameraMotion() = default;  ///< smooth
  /// Plans the motion for `duration_s` seconds (turns are drawn from the seed).
  CameraMotion(const std::string& name, uint32_t seed, double duration_s);

  /// T_scene_camera at time t (camera in IMAGE axes: x right, y down, z forward; scene y up).
  Eigen::Matrix4d pose(const Scene& scene, double t_s) const;

 private:
  struct Turn {
    double start_s, duration_s, angle_rad;
    bool pitch;  ///< a nod instead of a turn about the vertical
  };
  double turned(double t_s, bool pitch) const;

  bool handheld_ = false;
  std::vector<Turn> turns_;
  double phases_[6] = {0, 0, 0, 0, 0, 0};
};

}  // namespace pv::internal::synth
