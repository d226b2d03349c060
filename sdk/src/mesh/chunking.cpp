#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include "mesh/internal/chunking.h"

namespace pv::internal {
namespace {

uint64_t nowNs() {
  return uint64_t(
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
          .count());
}

uint32_t spreadBits(uint32_t v) {  // 10 bits to every third bit of 30
  v = (v | (v << 16)) & 0x030000FF;
  v = (v | (v << 8)) & 0x0300F00F;
  v = (v | (v << 4)) & 0x030C30C3;
  v = (v | (v << 2)) & 0x09249249;
  return v;
}

// A coarse grid over a bounding box whose cells are numbered in Morton order.
class MortonGrid {
 public:
  MortonGrid(const float3& lo, const float3& hi, size_t items, size_t per_chunk) : lo_(lo) {
    // About eight cells per expected chunk, at most 32 per axis.
    const double cells = std::max(1.0, 8.0 * double(items) / double(std::max<size_t>(per_chunk, 1)));
    dim_ = std::clamp(int(std::ceil(std::cbrt(cells))), 1, 32);
    for (size_t a = 0; a < 3; ++a) {
      const float extent = hi[a] - lo[a];
      scale_[a] = extent > 0 ? float(dim_) / extent : 0.f;
    }
  }
  uint32_t cellOf(const float3& p) const {
    uint32_t code = 0;
    for (size_t a = 0; a < 3; ++a) {
      const float f = (p[a] - lo_[a]) * scale_[a];
      const uint32_t c = f > 0 ? uint32_t(std::min<float>(f, float(dim_ - 1))) : 0u;
      code |= spreadBits(c) << a;
    }
    return code;
  }
  static constexpr uint32_t kCells = 1u << 15;

 private:
  float3 lo_;
  float scale_[3] = {0, 0, 0};
  int dim_ = 1;
};

void bounds(const float3* p, size_t n, size_t stride_floats, float3& lo, float3& hi) {
  const float inf = std::numeric_limits<float>::infinity();
  lo = {inf, inf, inf};
  hi = {-inf, -inf, -inf};
  const float* f = &p->x;
  for (size_t i = 0; i < n; ++i, f += stride_floats)
    for (size_t a = 0; a < 3; ++a) {
      lo[a] = std::min(lo[a], f[a]);
      hi[a] = std::max(hi[a], f[a]);
    }
}

// Orders items by grid cell (counting sort) and cuts the order into groups of at most
// `per_chunk` items that never mix cells needlessly. Returns the group boundaries in `order`.
std::vector<size_t> groupByCell(const std::vector<uint32_t>& cell, size_t per_chunk, std::vector<uint32_t>& order) {
  std::vector<uint32_t> start(MortonGrid::kCells + 1, 0);
  for (uint32_t c : cell) ++start[c + 1];
  for (size_t c = 0; c < MortonGrid::kCells; ++c) start[c + 1] += start[c];
  order.resize(cell.size());
  std::vector<uint32_t> fill(start.begin(), start.end() - 1);
  for (size_t i = 0; i < cell.size(); ++i) order[fill[cell[i]]++] = uint32_t(i);
  std::vector<size_t> cuts{0};
  for (size_t c = 0; c < MortonGrid::kCells; ++c) {
    const size_t begin = start[c], end = start[c + 1];
    if (begin == end) continue;
    if (end - cuts.back() > per_chunk && begin > cuts.back()) cuts.push_back(begin);
    while (end - cuts.back() > per_chunk) cuts.push_back(cuts.back() + per_chunk);
  }
  if (cuts.back() != cell.size()) cuts.push_back(cell.size());
  return cuts;
}

float3 mean(const std::vector<float3>& v) {
  double s[3] = {0, 0, 0};
  for (const float3& p : v)
    for (size_t a = 0; a < 3; ++a) s[a] += p[a];
  const double n = std::max<size_t>(v.size(), 1);
  return {float(s[0] / n), float(s[1] / n), float(s[2] / n)};
}

}  // namespace

void buildMeshChunks(Mesh& mesh, size_t max_triangles) {
  mesh.chunks.clear();
  const size_t nt = mesh.triangles.size();
  if (nt == 0) return;
  max_triangles = std::max<size_t>(max_triangles, 1);
  float3 lo, hi;
  bounds(mesh.vertices.data(), mesh.vertices.size(), 3, lo, hi);
  const MortonGrid grid(lo, hi, nt, max_triangles);
  std::vector<uint32_t> cell(nt);
  tbb::parallel_for(tbb::blocked_range<size_t>(0, nt, 1 << 14), [&](const tbb::blocked_range<size_t>& r) {
    for (size_t t = r.begin(); t < r.end(); ++t) {
      const uint3& tri = mesh.triangles[t];
      cell[t] = grid.cellOf((mesh.vertices[tri.x] + mesh.vertices[tri.y] + mesh.vertices[tri.z]) / 3.f);
    }
  });
  std::vector<uint32_t> order;
  const std::vector<size_t> cuts = groupByCell(cell, max_triangles, order);

  const uint64_t stamp = nowNs();
  const uint32_t none = std::numeric_limits<uint32_t>::max();
  // Per thread: the chunk that last copied each vertex, and the copy's index in that chunk.
  struct Marks {
    std::vector<uint32_t> owner, local;
  };
  tbb::enumerable_thread_specific<Marks> marks([&] {
    return Marks{std::vector<uint32_t>(mesh.vertices.size(), none), std::vector<uint32_t>(mesh.vertices.size(), 0)};
  });
  mesh.chunks.resize(cuts.size() - 1);
  tbb::parallel_for(size_t(0), cuts.size() - 1, [&](size_t c) {
    Marks& m = marks.local();
    Chunk& chunk = mesh.chunks[c];
    chunk.triangles.reserve(cuts[c + 1] - cuts[c]);
    for (size_t k = cuts[c]; k < cuts[c + 1]; ++k) {
      uint3 tri = mesh.triangles[order[k]];
      for (size_t a = 0; a < 3; ++a) {
        const uint32_t v = tri[a];
        if (m.owner[v] != c) {
          m.owner[v] = uint32_t(c);
          m.local[v] = uint32_t(chunk.vertices.size());
          chunk.vertices.push_back(mesh.vertices[v]);
          if (!mesh.normals.empty()) chunk.normals.push_back(mesh.normals[v]);
          if (!mesh.colors.empty()) chunk.colors.push_back(mesh.colors[v]);
          if (!mesh.uv.empty()) chunk.uv.push_back(mesh.uv[v]);
        }
        tri[a] = m.local[v];
      }
      chunk.triangles.push_back(tri);
    }
    chunk.barycenter = mean(chunk.vertices);
    chunk.timestamp_ns = stamp;
    chunk.has_been_updated = true;
  });
}

void buildPointCloudChunks(FusedPointCloud& cloud, size_t max_points) {
  cloud.chunks.clear();
  const size_t n = cloud.vertices.size();
  if (n == 0) return;
  max_points = std::max<size_t>(max_points, 1);
  float3 lo, hi;
  bounds(reinterpret_cast<const float3*>(cloud.vertices.data()), n, 4, lo, hi);
  const MortonGrid grid(lo, hi, n, max_points);
  std::vector<uint32_t> cell(n);
  for (size_t i = 0; i < n; ++i) cell[i] = grid.cellOf({cloud.vertices[i].x, cloud.vertices[i].y, cloud.vertices[i].z});
  std::vector<uint32_t> order;
  const std::vector<size_t> cuts = groupByCell(cell, max_points, order);
  const uint64_t stamp = nowNs();
  cloud.chunks.resize(cuts.size() - 1);
  for (size_t c = 0; c + 1 < cuts.size(); ++c) {
    PointCloudChunk& chunk = cloud.chunks[c];
    double s[3] = {0, 0, 0};
    for (size_t k = cuts[c]; k < cuts[c + 1]; ++k) {
      const float4& p = cloud.vertices[order[k]];
      chunk.vertices.push_back(p);
      if (!cloud.normals.empty()) chunk.normals.push_back(cloud.normals[order[k]]);
      s[0] += p.x;
      s[1] += p.y;
      s[2] += p.z;
    }
    const double count = double(cuts[c + 1] - cuts[c]);
    chunk.barycenter = {float(s[0] / count), float(s[1] / count), float(s[2] / count)};
    chunk.timestamp_ns = stamp;
    chunk.has_been_updated = true;
  }
}

}  // namespace pv::internal
