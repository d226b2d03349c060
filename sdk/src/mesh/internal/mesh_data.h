// In-memory form of a mesh or point cloud file, shared by the PLY and OBJ readers and writers.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "pv/math.h"

namespace pv::internal {

/// One indexed triangle mesh (or point cloud when `triangles` is empty). Per-vertex arrays are
/// either empty or as long as `positions`. Texture coordinates are (column, row) over the
/// texture's width and height with the origin at the image's first row.
struct MeshData {
  std::vector<float3> positions;
  std::vector<float3> normals;
  std::vector<uchar3> colors;  ///< red, green, blue
  std::vector<float2> uv;
  std::vector<uint3> triangles;
  cv::Mat texture;           ///< CV_8UC3 (BGR) or CV_8UC4 (BGRA); empty when untextured
  std::string texture_file;  ///< texture image a read file names (path joined, not checked)

  void clear() { *this = MeshData(); }
  /// Empty per-vertex arrays whose length does not match the positions are a bug of the
  /// producer; this checks that and the triangle indices.
  bool consistent() const;
};

/// Reads and writes files with a reason on failure; none of these throw.
struct FileResult {
  bool ok = false;
  std::string error;
  static FileResult success() { return {true, {}}; }
  static FileResult failure(std::string why) { return {false, std::move(why)}; }
};

}  // namespace pv::internal
