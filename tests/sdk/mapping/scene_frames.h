// Depth frames of the exact test scenes, as the depth module hands them to the mapping module.
#pragma once

#include <cstdint>

#include "mapping/internal/tsdf_volume.h"
#include "render_scene.h"

namespace mapura::test {

/// Depth and colour of `scene` seen by `cam` at camera-to-world pose `T`, taken at `t_ns`.
inline pv::internal::DepthFrame renderDepthFrame(const Scene& scene, const PinholeCamera& cam, const Eigen::Matrix4f& T,
                                                 uint64_t t_ns = 0) {
  pv::internal::DepthFrame f;
  scene.render(cam, T, f.depth_m, f.bgr);
  f.T_world_camera = T;
  f.fx = cam.fx;
  f.fy = cam.fy;
  f.cx = cam.cx;
  f.cy = cam.cy;
  f.timestamp_ns = t_ns;
  return f;
}

}  // namespace mapura::test
