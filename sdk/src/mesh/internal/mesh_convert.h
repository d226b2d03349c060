// Conversions between the public map objects and the file readers' MeshData.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "mesh/internal/mesh_data.h"
#include "pv/mesh.h"

namespace pv::internal {

/// The whole-map arrays (when `ids` is empty and they are filled) or the listed chunks (all when
/// `ids` is empty) as one mesh, with the texture. False when an id is out of range.
bool meshToData(const Mesh& mesh, const std::vector<int>& ids, MeshData& data);
/// Moves `data` into the whole-map arrays and texture of `mesh` (chunks untouched).
void dataToMesh(MeshData&& data, Mesh& mesh);
bool pointCloudToData(const FusedPointCloud& cloud, const std::vector<int>& ids, MeshData& data);
void dataToPointCloud(const MeshData& data, FusedPointCloud& cloud);

/// Packs red, green, blue into the fourth float of a point (bits 16-23, 8-15, 0-7).
float packColor(uchar3 rgb);
uchar3 unpackColor(float w);

/// Deep copies between OpenCV images (CV_8UC3/CV_8UC4) and CPU Mats (U8_C3/U8_C4).
Mat toPvMat(const cv::Mat& image);
cv::Mat toCvMat(const Mat& image);

}  // namespace pv::internal
