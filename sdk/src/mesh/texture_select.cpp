// Choosing, for every triangle, the keyframe that sees it best.
#include <tbb/enumerable_thread_specific.h>

#include <tbb/parallel_for.h>
#include <Eigen/Dense>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include "mesh/internal/texture_atlas.h"

namespace pv::internal {
namespace {

constexpr int kDepthScale = 4;  // the depth test runs at a quarter of the image resolution

float sharpness(const cv::Mat& bgr) {
  cv::Mat grey, small, lap;
  cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
  cv::resize(grey, small, cv::Size(), 0.5, 0.5, cv::INTER_AREA);
  cv::Laplacian(small, lap, CV_32F);
  cv::Scalar mean, dev;
  cv::meanStdDev(lap, mean, dev);
  return float(dev[0] * dev[0]);
}

struct Projected {
  float x, y, z;  // full-resolution pixels, depth in mesh units
  bool valid;
};

// Depth of the nearest surface at quarter resolution: triangles are rasterised at pixel centres
// and their corners splatted, so small triangles leave no holes.
void renderDepth(const std::vector<Projected>& pv, const std::vector<uint3>& triangles, int w, int h, cv::Mat& depth) {
  depth.create(h, w, CV_32F);
  depth.setTo(std::numeric_limits<float>::infinity());
  const float s = 1.f / kDepthScale;
  for (const uint3& t : triangles) {
    const Projected &a = pv[t.x], &b = pv[t.y], &c = pv[t.z];
    if (!a.valid || !b.valid || !c.valid) continue;
    const float ax = a.x * s, ay = a.y * s, bx = b.x * s, by = b.y * s, cx = c.x * s, cy = c.y * s;
    const int x0 = std::max(0, int(std::floor(std::min({ax, bx, cx})))),
              x1 = std::min(w - 1, int(std::ceil(std::max({ax, bx, cx}))));
    const int y0 = std::max(0, int(std::floor(std::min({ay, by, cy})))),
              y1 = std::min(h - 1, int(std::ceil(std::max({ay, by, cy}))));
    if (x0 > x1 || y0 > y1) continue;
    const float area = (bx - ax) * (cy - ay) - (cx - ax) * (by - ay);
    if (std::fabs(area) > 1e-12f) {
      for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) {
          const float px = float(x) + 0.5f, py = float(y) + 0.5f;
          const float w0 = ((bx - px) * (cy - py) - (cx - px) * (by - py)) / area;
          const float w1 = ((cx - px) * (ay - py) - (ax - px) * (cy - py)) / area;
          const float w2 = 1.f - w0 - w1;
          if (w0 < 0 || w1 < 0 || w2 < 0) continue;
          float& d = depth.at<float>(y, x);
          d = std::min(d, w0 * a.z + w1 * b.z + w2 * c.z);
        }
    }
    for (const Projected* p : {&a, &b, &c}) {
      const int x = int(p->x * s), y = int(p->y * s);
      if (x >= 0 && y >= 0 && x < w && y < h) depth.at<float>(y, x) = std::min(depth.at<float>(y, x), p->z);
    }
  }
}

// Triangles sharing a vertex, as compressed rows per vertex.
void vertexTriangles(size_t vertex_count, const std::vector<uint3>& triangles, std::vector<unsigned>& start,
                     std::vector<unsigned>& list) {
  start.assign(vertex_count + 1, 0);
  for (const uint3& t : triangles)
    for (size_t k = 0; k < 3; ++k) ++start[t[k] + 1];
  for (size_t i = 0; i < vertex_count; ++i) start[i + 1] += start[i];
  list.resize(start.back());
  std::vector<unsigned> fill(start.begin(), start.end() - 1);
  for (size_t i = 0; i < triangles.size(); ++i)
    for (size_t k = 0; k < 3; ++k) list[fill[triangles[i][k]]++] = unsigned(i);
}

}  // namespace

bool projectToKeyframe(const TextureKeyframe& k, const Eigen::Matrix4f& T_camera_mesh, const float3& p, float& x,
                       float& y, float& z) {
  const Eigen::Vector4f c = T_camera_mesh * Eigen::Vector4f(p.x, p.y, p.z, 1.f);
  z = c.z();
  if (!(z > 1e-6f)) return false;
  x = float(k.fx * c.x() / z + k.cx);
  y = float(k.fy * c.y() / z + k.cy);
  return std::isfinite(x) && std::isfinite(y);
}

std::vector<int> chooseKeyframes(const std::vector<float3>& vertices, const std::vector<uint3>& triangles,
                                 const std::vector<TextureKeyframe>& keyframes) {
  const size_t nt = triangles.size(), nk = keyframes.size();
  std::vector<float> sharp(nk);
  tbb::parallel_for(size_t(0), nk,
                    [&](size_t k) { sharp[k] = keyframes[k].bgr.empty() ? 0.f : sharpness(keyframes[k].bgr); });
  const float max_sharp = std::max(1e-6f, *std::max_element(sharp.begin(), sharp.end()));
  const size_t words = (nk + 63) / 64;
  std::vector<std::atomic<uint64_t>> seen(nt * words);
  for (auto& w : seen) w.store(0, std::memory_order_relaxed);

  struct Best {
    std::vector<float> score;
    std::vector<int> keyframe;
    std::vector<Projected> projected;
    cv::Mat depth;
  };
  tbb::enumerable_thread_specific<Best> locals([nt] {
    return Best{std::vector<float>(nt, 0.f), std::vector<int>(nt, -1), {}, {}};
  });
  tbb::parallel_for(size_t(0), nk, [&](size_t k) {
    const TextureKeyframe& kf = keyframes[k];
    if (kf.bgr.empty() || kf.bgr.type() != CV_8UC3 || kf.fx <= 0 || kf.fy <= 0) return;
    Best& best = locals.local();
    const Eigen::Matrix4f T_camera_mesh = kf.T_mesh_camera.inverse();
    const Eigen::Vector3f centre = kf.T_mesh_camera.block<3, 1>(0, 3);
    const int w = kf.bgr.cols, h = kf.bgr.rows;
    best.projected.resize(vertices.size());
    for (size_t v = 0; v < vertices.size(); ++v) {
      Projected& p = best.projected[v];
      p.valid = projectToKeyframe(kf, T_camera_mesh, vertices[v], p.x, p.y, p.z) && p.x >= 1 && p.y >= 1 &&
                p.x <= float(w - 2) && p.y <= float(h - 2);
    }
    const int dw = (w + kDepthScale - 1) / kDepthScale, dh = (h + kDepthScale - 1) / kDepthScale;
    renderDepth(best.projected, triangles, dw, dh, best.depth);
    const float sharp_weight = 0.5f + 0.5f * sharp[k] / max_sharp;
    const float per_metre = kf.unit_per_metre > 0 ? kf.unit_per_metre : 1.f;
    for (size_t t = 0; t < nt; ++t) {
      const uint3& tri = triangles[t];
      const Projected &a = best.projected[tri.x], &b = best.projected[tri.y], &c = best.projected[tri.z];
      if (!a.valid || !b.valid || !c.valid) continue;
      // Facing: the corners run counter-clockwise or clockwise; either way the normal must
      // point towards the camera.
      const float3 e1 = vertices[tri.y] - vertices[tri.x], e2 = vertices[tri.z] - vertices[tri.x];
      Eigen::Vector3f n(e1.y * e2.z - e1.z * e2.y, e1.z * e2.x - e1.x * e2.z, e1.x * e2.y - e1.y * e2.x);
      const float n_len = n.norm();
      if (!(n_len > 0)) continue;
      const float3 mid = (vertices[tri.x] + vertices[tri.y] + vertices[tri.z]) / 3.f;
      Eigen::Vector3f to_camera = centre - Eigen::Vector3f(mid.x, mid.y, mid.z);
      const float distance = to_camera.norm();
      const float cosine = std::fabs(n.dot(to_camera)) / (n_len * distance);
      if (cosine < 0.1f) continue;
      const float z = (a.z + b.z + c.z) / 3.f;
      const int dx = int((a.x + b.x + c.x) / (3.f * kDepthScale)), dy = int((a.y + b.y + c.y) / (3.f * kDepthScale));
      if (z > best.depth.at<float>(std::min(dy, dh - 1), std::min(dx, dw - 1)) * 1.02f + 1e-6f) continue;
      seen[t * words + k / 64].fetch_or(uint64_t(1) << (k % 64), std::memory_order_relaxed);
      const float metres = distance / per_metre;
      const float score = cosine * sharp_weight / (metres * metres + 1e-6f);
      if (score > best.score[t]) {
        best.score[t] = score;
        best.keyframe[t] = int(k);
      }
    }
  });
  std::vector<float> score(nt, 0.f);
  std::vector<int> label(nt, -1);
  for (const Best& b : locals)
    for (size_t t = 0; t < nt; ++t)
      if (b.keyframe[t] >= 0 && (b.score[t] > score[t] || (b.score[t] == score[t] && b.keyframe[t] < label[t]))) {
        score[t] = b.score[t];
        label[t] = b.keyframe[t];
      }

  // Two passes of neighbourhood voting among the keyframes that see each triangle.
  std::vector<unsigned> start, list;
  vertexTriangles(vertices.size(), triangles, start, list);
  std::vector<int> next(nt);
  for (int pass = 0; pass < 2; ++pass) {
    tbb::parallel_for(size_t(0), nt, [&](size_t t) {
      next[t] = label[t];
      if (label[t] < 0) return;
      int candidates[48];
      int votes[48];
      int n = 0;
      for (size_t c = 0; c < 3; ++c) {
        const unsigned v = triangles[t][c];
        for (unsigned i = start[v]; i < start[v + 1]; ++i) {
          const int l = label[list[i]];
          if (l < 0 || !(seen[t * words + size_t(l) / 64].load(std::memory_order_relaxed) >> (l % 64) & 1)) continue;
          int j = 0;
          while (j < n && candidates[j] != l) ++j;
          if (j == n) {
            if (n == 48) continue;
            candidates[n] = l;
            votes[n++] = 0;
          }
          ++votes[j];
        }
      }
      int best = -1;
      for (int j = 0; j < n; ++j)
        if (best < 0 || votes[j] > votes[best] || (votes[j] == votes[best] && candidates[j] == label[t])) best = j;
      if (best >= 0) next[t] = candidates[best];
    });
    label.swap(next);
  }
  return label;
}

}  // namespace pv::internal
