#include "mapping/internal/marching_cubes.h"

#include <Eigen/Geometry>
#include <cmath>
#include <map>
#include <unordered_map>

namespace pv::internal {

namespace {

Eigen::Vector3f cornerPosition(int c) {
  return Eigen::Vector3f(float(c & 1), float((c >> 1) & 1), float((c >> 2) & 1));
}

// The table is derived, not typed in: on each cube face the sign pattern gives the segments of
// the iso-curve (an ambiguous face keeps its inside corners apart, decided by the face alone, so
// neighbouring cubes agree and the surface is closed); the segments are oriented with the inside
// on their left seen from outside the cube, chained into loops and fanned into triangles.
MarchingCubesTable buildTable() {
  MarchingCubesTable t;
  int edge_of[8][8];
  for (auto& row : edge_of)
    for (int& e : row) e = -1;
  int e = 0;
  for (int axis = 0; axis < 3; ++axis)
    for (int c = 0; c < 8; ++c)
      if (!(c & (1 << axis))) {
        const int c1 = c | (1 << axis);
        t.edge_corners[size_t(e)] = {c, c1};
        edge_of[c][c1] = edge_of[c1][c] = e++;
      }
  for (int config = 0; config < 256; ++config) {
    auto inside = [&](int c) { return (config >> c) & 1; };
    std::map<int, int> next;  // directed segments, edge -> edge
    for (int axis = 0; axis < 3; ++axis) {
      for (int side = 0; side < 2; ++side) {
        const int b = (axis + 1) % 3, c2 = (axis + 2) % 3;
        const int uv[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
        int cyc[4];
        for (int m = 0; m < 4; ++m) cyc[m] = (side << axis) | (uv[m][0] << b) | (uv[m][1] << c2);
        Eigen::Vector3f normal = Eigen::Vector3f::Zero();
        normal[axis] = side ? 1.f : -1.f;
        int crossed = 0;
        for (int m = 0; m < 4; ++m) crossed += inside(cyc[m]) != inside(cyc[(m + 1) % 4]);
        auto add = [&](int ea, int eb, int inner_corner) {
          const auto& a = t.edge_corners[size_t(ea)];
          const auto& bb = t.edge_corners[size_t(eb)];
          const Eigen::Vector3f pa = 0.5f * (cornerPosition(a[0]) + cornerPosition(a[1]));
          const Eigen::Vector3f pb = 0.5f * (cornerPosition(bb[0]) + cornerPosition(bb[1]));
          if ((pb - pa).cross(cornerPosition(inner_corner) - pa).dot(normal) > 0.f)
            next[ea] = eb;
          else
            next[eb] = ea;
        };
        if (crossed == 2) {
          int ends[2], n = 0, inner = -1;
          for (int m = 0; m < 4; ++m) {
            if (inside(cyc[m])) inner = cyc[m];
            if (inside(cyc[m]) != inside(cyc[(m + 1) % 4])) ends[n++] = edge_of[cyc[m]][cyc[(m + 1) % 4]];
          }
          add(ends[0], ends[1], inner);
        } else if (crossed == 4) {
          for (int m = 0; m < 4; ++m)
            if (inside(cyc[m])) add(edge_of[cyc[(m + 3) % 4]][cyc[m]], edge_of[cyc[m]][cyc[(m + 1) % 4]], cyc[m]);
        }
      }
    }
    while (!next.empty()) {
      std::vector<int> loop;
      int cur = next.begin()->first;
      while (next.count(cur)) {
        loop.push_back(cur);
        const int n = next[cur];
        next.erase(cur);
        cur = n;
      }
      // The loop runs counter-clockwise around the inside seen from outside; reversed fans make
      // the triangles face the outside (free space).
      for (size_t k = 1; k + 1 < loop.size(); ++k)
        t.triangles[size_t(config)].push_back({loop[0], loop[k + 1], loop[k]});
    }
  }
  return t;
}

constexpr float kFarFromSurface = 0.999f;

}  // namespace

const MarchingCubesTable& marchingCubesTable() {
  static const MarchingCubesTable table = buildTable();
  return table;
}

void meshChunk(const TsdfVolume& volume, const ChunkInfo& chunk, ChunkMesh& out) {
  const MarchingCubesTable& table = marchingCubesTable();
  out = ChunkMesh();
  const float vox = volume.voxelSize();
  // Vertex of each voxel edge (lower voxel, axis), over the chunk's voxels plus one layer.
  const int side = volume.chunkBlocks() * kBlockSide + 1;
  thread_local std::vector<uint32_t> vertex_of;
  vertex_of.assign(size_t(side) * side * side * 3, UINT32_MAX);
  const int ox = chunk.key.x * (side - 1), oy = chunk.key.y * (side - 1), oz = chunk.key.z * (side - 1);
  std::vector<Eigen::Vector3f> accumulated;

  for (int block_index : chunk.blocks) {
    const VoxelBlock& block = volume.block(block_index);
    const VoxelBlock* nb[8];
    for (int d = 0; d < 8; ++d)
      nb[d] = d == 0 ? &block
                     : volume.find({block.key.x + (d & 1), block.key.y + ((d >> 1) & 1), block.key.z + ((d >> 2) & 1)});
    const int gx = block.key.x * kBlockSide, gy = block.key.y * kBlockSide, gz = block.key.z * kBlockSide;
    for (int k = 0; k < kBlockSide; ++k) {
      for (int j = 0; j < kBlockSide; ++j) {
        for (int i = 0; i < kBlockSide; ++i) {
          // A cube whose first corner is truncated (a full truncation distance from the surface)
          // holds no true crossing; a sign change there is the seam between free space and the
          // back of a surface seen from elsewhere.
          const int own = i + kBlockSide * j + kBlockSide * kBlockSide * k;
          if (block.weight[size_t(own)] <= 0.f || std::abs(block.tsdf[size_t(own)]) > kFarFromSurface) continue;
          float value[8];
          const VoxelBlock* src[8];
          int local[8];
          int config = 0;
          bool complete = true;
          const bool interior = i < kBlockSide - 1 && j < kBlockSide - 1 && k < kBlockSide - 1;
          for (int c = 0; c < 8 && complete; ++c) {
            const int x = i + (c & 1), y = j + ((c >> 1) & 1), z = k + ((c >> 2) & 1);
            const VoxelBlock* b = interior ? &block : nb[(x >> 3) | ((y >> 3) << 1) | ((z >> 3) << 2)];
            if (!b) {
              complete = false;
              break;
            }
            const int idx = (x & 7) + kBlockSide * (y & 7) + kBlockSide * kBlockSide * (z & 7);
            if (b->weight[size_t(idx)] <= 0.f) {
              complete = false;
              break;
            }
            src[c] = b;
            local[c] = idx;
            value[c] = b->tsdf[size_t(idx)];
            if (value[c] < 0.f) config |= 1 << c;
          }
          if (!complete || config == 0 || config == 255) continue;
          for (const auto& tri : table.triangles[size_t(config)]) {
            uint32_t ids[3];
            for (int n = 0; n < 3; ++n) {
              const int e = tri[size_t(n)];
              const int c0 = table.edge_corners[size_t(e)][0], c1 = table.edge_corners[size_t(e)][1];
              const int axis = e / 4;
              const int x = gx + i + (c0 & 1), y = gy + j + ((c0 >> 1) & 1), z = gz + k + ((c0 >> 2) & 1);
              uint32_t& slot =
                  vertex_of[3 * (size_t(x - ox) + size_t(side) * (size_t(y - oy) + size_t(side) * size_t(z - oz))) +
                            size_t(axis)];
              if (slot == UINT32_MAX) {
                slot = uint32_t(out.vertices.size());
                const float v0 = value[c0], v1 = value[c1];
                const float s = v0 / (v0 - v1);
                Eigen::Vector3f p{float(x), float(y), float(z)};
                p[axis] += s;
                out.vertices.push_back(p * vox);
                const auto& a = src[c0]->bgr[size_t(local[c0])];
                const auto& b = src[c1]->bgr[size_t(local[c1])];
                // Stored blue, green, red; handed out red, green, blue.
                out.rgb.push_back({uint8_t(a[2] + s * (b[2] - a[2])), uint8_t(a[1] + s * (b[1] - a[1])),
                                   uint8_t(a[0] + s * (b[0] - a[0]))});
                accumulated.push_back(Eigen::Vector3f::Zero());
              }
              ids[n] = slot;
            }
            if (ids[0] == ids[1] || ids[1] == ids[2] || ids[0] == ids[2]) continue;
            const Eigen::Vector3f fn =
                (out.vertices[ids[1]] - out.vertices[ids[0]]).cross(out.vertices[ids[2]] - out.vertices[ids[0]]);
            for (uint32_t id : ids) accumulated[id] += fn;
            out.triangles.push_back({ids[0], ids[1], ids[2]});
          }
        }
      }
    }
  }
  out.normals.resize(accumulated.size());
  for (size_t n = 0; n < accumulated.size(); ++n) {
    const float len = accumulated[n].norm();
    out.normals[n] = len > 0.f ? Eigen::Vector3f(accumulated[n] / len) : Eigen::Vector3f(0.f, 0.f, 0.f);
  }
}

}  // namespace pv::internal
