// Keyframes kept while mapping with save_texture, handed to Mesh::applyTexture.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace pv::internal {

struct TextureKeyframe {
  cv::Mat bgr;  ///< rectified left image, CV_8UC3
  /// Camera-to-mesh transform. The camera axes are IMAGE axes (x right, y down, z forward) and
  /// the mesh axes and unit are the mesh's own (the application's coordinate system and unit),
  /// so a mesh point p projects with p_cam = inverse(T_mesh_camera) * p, u = fx x/z + cx, ...
  Eigen::Matrix4f T_mesh_camera = Eigen::Matrix4f::Identity();
  double fx = 0, fy = 0, cx = 0, cy = 0;  ///< pixels, of `bgr`
  float unit_per_metre = 1.f;             ///< mesh units in one metre (1000 for millimetres)
  uint64_t timestamp_ns = 0;
};

struct TextureSource {
  std::vector<TextureKeyframe> keyframes;
};

}  // namespace pv::internal
