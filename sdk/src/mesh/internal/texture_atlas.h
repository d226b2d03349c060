// Texturing steps: choosing a keyframe per triangle, and building the atlas from that choice.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "mesh/internal/texture_source.h"
#include "pv/mesh.h"

namespace pv::internal {

/// Per triangle, the keyframe that sees it best (-1: none). A keyframe sees a triangle when its
/// three corners project inside the image, it faces the camera and its centre passes a depth
/// test against the keyframe's rendered depth. The score grows with the cosine of the viewing
/// angle and the image's sharpness and falls with the squared distance. Neighbouring triangles
/// then adopt their neighbours' keyframe where that one sees them too, so charts grow larger.
std::vector<int> chooseKeyframes(const std::vector<float3>& vertices, const std::vector<uint3>& triangles,
                                 const std::vector<TextureKeyframe>& keyframes);

struct AtlasResult {
  std::vector<float3> vertices;  ///< split so that each chart has its own copies
  std::vector<uint3> triangles;  ///< same order as the input triangles
  std::vector<float2> uv;
  std::vector<unsigned> source_vertex;  ///< input vertex of each output vertex
  cv::Mat atlas;                        ///< CV_8UC3 or CV_8UC4 (alpha 255 on charts)
};

/// Groups connected triangles with the same keyframe into charts, packs each chart's image
/// rectangle (with a margin of real image around it, so sampling at chart borders stays on
/// the right colours) into one atlas of at most `max_side` pixels a side (charts are scaled
/// down when they do not fit), and gives every corner its atlas coordinate. Triangles no
/// keyframe sees share a small grey patch.
AtlasResult buildAtlas(const std::vector<float3>& vertices, const std::vector<uint3>& triangles,
                       const std::vector<int>& keyframe_of_triangle, const std::vector<TextureKeyframe>& keyframes,
                       bool with_alpha, int max_side = 8192);

/// Pixel position (x, y) and depth of a mesh point in a keyframe; false behind the camera.
bool projectToKeyframe(const TextureKeyframe& k, const Eigen::Matrix4f& T_camera_mesh, const float3& p, float& x,
                       float& y, float& z);

}  // namespace pv::internal
