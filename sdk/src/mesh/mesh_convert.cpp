#include "mesh/internal/mesh_convert.h"

#include <cstdint>
#include <cstring>

namespace pv::internal {
namespace {

void appendChunk(const Chunk& c, MeshData& d) {
  const unsigned base = unsigned(d.positions.size());
  d.positions.insert(d.positions.end(), c.vertices.begin(), c.vertices.end());
  d.normals.insert(d.normals.end(), c.normals.begin(), c.normals.end());
  d.colors.insert(d.colors.end(), c.colors.begin(), c.colors.end());
  d.uv.insert(d.uv.end(), c.uv.begin(), c.uv.end());
  for (const uint3& t : c.triangles) d.triangles.push_back({t.x + base, t.y + base, t.z + base});
}

// Per-vertex arrays present in only some chunks are dropped rather than misaligned.
void dropPartialArrays(MeshData& d) {
  if (d.normals.size() != d.positions.size()) d.normals.clear();
  if (d.colors.size() != d.positions.size()) d.colors.clear();
  if (d.uv.size() != d.positions.size()) d.uv.clear();
}

bool validIds(const std::vector<int>& ids, size_t count) {
  for (int id : ids)
    if (id < 0 || size_t(id) >= count) return false;
  return true;
}

}  // namespace

bool meshToData(const Mesh& mesh, const std::vector<int>& ids, MeshData& d) {
  d.clear();
  if (!validIds(ids, mesh.chunks.size())) return false;
  if (ids.empty() && !mesh.triangles.empty()) {
    d.positions = mesh.vertices;
    d.normals = mesh.normals;
    d.colors = mesh.colors;
    d.uv = mesh.uv;
    d.triangles = mesh.triangles;
  } else if (ids.empty()) {
    for (const Chunk& c : mesh.chunks) appendChunk(c, d);
  } else {
    for (int id : ids) appendChunk(mesh.chunks[size_t(id)], d);
  }
  dropPartialArrays(d);
  if (!d.uv.empty() && mesh.texture.isInit()) d.texture = toCvMat(mesh.texture);
  return true;
}

void dataToMesh(MeshData&& d, Mesh& mesh) {
  mesh.vertices = std::move(d.positions);
  mesh.normals = std::move(d.normals);
  mesh.colors = std::move(d.colors);
  mesh.uv = std::move(d.uv);
  mesh.triangles = std::move(d.triangles);
  mesh.texture = d.texture.empty() || mesh.uv.empty() ? Mat() : toPvMat(d.texture);
}

bool pointCloudToData(const FusedPointCloud& cloud, const std::vector<int>& ids, MeshData& d) {
  d.clear();
  if (!validIds(ids, cloud.chunks.size())) return false;
  const auto add = [&d](const std::vector<float4>& points, const std::vector<float3>& normals) {
    for (const float4& p : points) {
      d.positions.push_back({p.x, p.y, p.z});
      d.colors.push_back(unpackColor(p.w));
    }
    d.normals.insert(d.normals.end(), normals.begin(), normals.end());
  };
  if (ids.empty() && !cloud.vertices.empty()) {
    add(cloud.vertices, cloud.normals);
  } else if (ids.empty()) {
    for (const PointCloudChunk& c : cloud.chunks) add(c.vertices, c.normals);
  } else {
    for (int id : ids) add(cloud.chunks[size_t(id)].vertices, cloud.chunks[size_t(id)].normals);
  }
  dropPartialArrays(d);
  return true;
}

void dataToPointCloud(const MeshData& d, FusedPointCloud& cloud) {
  cloud.vertices.resize(d.positions.size());
  for (size_t i = 0; i < d.positions.size(); ++i) {
    const float3& p = d.positions[i];
    cloud.vertices[i] = {p.x, p.y, p.z, packColor(d.colors.empty() ? uchar3(255, 255, 255) : d.colors[i])};
  }
  cloud.normals = d.normals;
}

float packColor(uchar3 rgb) {
  const uint32_t bits = (uint32_t(rgb.x) << 16) | (uint32_t(rgb.y) << 8) | uint32_t(rgb.z);
  float w;
  std::memcpy(&w, &bits, sizeof(w));
  return w;
}

uchar3 unpackColor(float w) {
  uint32_t bits;
  std::memcpy(&bits, &w, sizeof(bits));
  return {uint8_t((bits >> 16) & 0xff), uint8_t((bits >> 8) & 0xff), uint8_t(bits & 0xff)};
}

Mat toPvMat(const cv::Mat& image) {
  const bool four = image.channels() == 4;
  Mat out(size_t(image.cols), size_t(image.rows), four ? MAT_TYPE::U8_C4 : MAT_TYPE::U8_C3, MEM::CPU);
  const size_t row_bytes = size_t(image.cols) * size_t(image.channels());
  for (int y = 0; y < image.rows; ++y) std::memcpy(out.getPixel<unsigned char>(0, size_t(y)), image.ptr(y), row_bytes);
  return out;
}

cv::Mat toCvMat(const Mat& image) {
  const int channels = image.getChannels();
  if ((channels != 3 && channels != 4) || image.getPixelBytes() != size_t(channels)) return cv::Mat();
  cv::Mat out(int(image.getHeight()), int(image.getWidth()), CV_8UC(channels));
  const size_t row_bytes = image.getWidth() * size_t(channels);
  for (int y = 0; y < out.rows; ++y) std::memcpy(out.ptr(y), image.getPixel<unsigned char>(0, size_t(y)), row_bytes);
  return out;
}

}  // namespace pv::internal
