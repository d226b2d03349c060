// Charts of triangles textured from one keyframe, packed into one atlas image.
#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <numeric>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include "mesh/internal/texture_atlas.h"

namespace pv::internal {
namespace {

constexpr int kMargin = 2;        // image pixels kept around each chart
constexpr int kFallbackSide = 4;  // grey patch for triangles no keyframe sees

unsigned findRoot(std::vector<unsigned>& parent, unsigned v) {
  while (parent[v] != v) {
    parent[v] = parent[parent[v]];
    v = parent[v];
  }
  return v;
}

struct Chart {
  int keyframe = -1;
  std::vector<unsigned> triangles;
  cv::Rect source;   // rectangle in the keyframe image
  cv::Point placed;  // top-left corner in the atlas
  cv::Size size_in_atlas;
};

// Connected triangles (sharing a vertex) with the same keyframe form one chart.
std::vector<Chart> makeCharts(size_t vertex_count, const std::vector<uint3>& triangles, const std::vector<int>& label) {
  std::vector<unsigned> parent(triangles.size());
  std::iota(parent.begin(), parent.end(), 0u);
  // For each vertex, the last triangle of each keyframe seen around it.
  std::vector<std::vector<std::pair<int, unsigned>>> around(vertex_count);
  for (size_t t = 0; t < triangles.size(); ++t) {
    if (label[t] < 0) continue;
    for (size_t c = 0; c < 3; ++c) {
      auto& list = around[triangles[t][c]];
      auto it = std::find_if(list.begin(), list.end(), [&](const auto& e) { return e.first == label[t]; });
      if (it == list.end())
        list.emplace_back(label[t], unsigned(t));
      else
        parent[findRoot(parent, unsigned(t))] = findRoot(parent, it->second);
    }
  }
  std::vector<int> chart_of_root(triangles.size(), -1);
  std::vector<Chart> charts;
  Chart fallback;
  for (size_t t = 0; t < triangles.size(); ++t) {
    if (label[t] < 0) {
      fallback.triangles.push_back(unsigned(t));
      continue;
    }
    const unsigned root = findRoot(parent, unsigned(t));
    if (chart_of_root[root] < 0) {
      chart_of_root[root] = int(charts.size());
      charts.emplace_back();
      charts.back().keyframe = label[t];
    }
    charts[size_t(chart_of_root[root])].triangles.push_back(unsigned(t));
  }
  if (!fallback.triangles.empty()) charts.push_back(std::move(fallback));
  return charts;
}

// Shelf packing, tallest first, into rows of `width`; returns the height used.
int pack(std::vector<Chart>& charts, const std::vector<size_t>& order, int width) {
  int x = 0, y = 0, shelf = 0;
  for (size_t i : order) {
    Chart& c = charts[i];
    if (x + c.size_in_atlas.width > width) {
      y += shelf;
      x = shelf = 0;
    }
    c.placed = {x, y};
    x += c.size_in_atlas.width;
    shelf = std::max(shelf, c.size_in_atlas.height);
  }
  return y + shelf;
}

}  // namespace

AtlasResult buildAtlas(const std::vector<float3>& vertices, const std::vector<uint3>& triangles,
                       const std::vector<int>& keyframe_of_triangle, const std::vector<TextureKeyframe>& keyframes,
                       bool with_alpha, int max_side) {
  std::vector<Chart> charts = makeCharts(vertices.size(), triangles, keyframe_of_triangle);
  std::vector<Eigen::Matrix4f> T_camera_mesh(keyframes.size());
  for (size_t k = 0; k < keyframes.size(); ++k) T_camera_mesh[k] = keyframes[k].T_mesh_camera.inverse();

  // Corner pixel positions in each chart's keyframe, and the chart's source rectangle.
  std::vector<cv::Point2f> corner_px(triangles.size() * 3);
  for (Chart& c : charts) {
    if (c.keyframe < 0) {
      c.source = cv::Rect(0, 0, kFallbackSide, kFallbackSide);
      c.size_in_atlas = c.source.size();
      continue;
    }
    const TextureKeyframe& k = keyframes[size_t(c.keyframe)];
    float x0 = 1e30f, y0 = 1e30f, x1 = -1e30f, y1 = -1e30f;
    for (unsigned t : c.triangles)
      for (size_t i = 0; i < 3; ++i) {
        float x = 0, y = 0, z = 0;
        projectToKeyframe(k, T_camera_mesh[size_t(c.keyframe)], vertices[triangles[t][i]], x, y, z);
        corner_px[t * 3 + i] = {x, y};
        x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x), y1 = std::max(y1, y);
      }
    const cv::Rect bounds(0, 0, k.bgr.cols, k.bgr.rows);
    c.source = cv::Rect(cv::Point(int(std::floor(x0)) - kMargin, int(std::floor(y0)) - kMargin),
                        cv::Point(int(std::ceil(x1)) + kMargin + 1, int(std::ceil(y1)) + kMargin + 1)) &
               bounds;
    c.size_in_atlas = c.source.size();
  }

  // Atlas about square; charts shrink together until it fits in max_side.
  std::vector<size_t> order(charts.size());
  std::iota(order.begin(), order.end(), size_t(0));
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return charts[a].source.height > charts[b].source.height; });
  double scale = 1.0;
  int width = 0, height = 0;
  for (int attempt = 0; attempt < 40; ++attempt) {
    double area = 0;
    int widest = 1;
    for (Chart& c : charts) {
      const bool fallback = c.keyframe < 0;
      c.size_in_atlas = fallback ? c.source.size()
                                 : cv::Size(std::max(1, int(std::ceil(c.source.width * scale))),
                                            std::max(1, int(std::ceil(c.source.height * scale))));
      area += double(c.size_in_atlas.area());
      widest = std::max(widest, c.size_in_atlas.width);
    }
    width = std::min(max_side, std::max(widest, int(std::ceil(std::sqrt(area * 1.1) / 4.0)) * 4));
    height = pack(charts, order, width);
    if (height <= max_side && widest <= max_side) break;
    scale *= 0.85 * std::sqrt(double(max_side) / double(std::max(height, widest)));
  }
  height = std::max(height, 1);

  AtlasResult out;
  out.atlas = cv::Mat(height, width, with_alpha ? CV_8UC4 : CV_8UC3, cv::Scalar::all(0));
  cv::parallel_for_(cv::Range(0, int(charts.size())), [&](const cv::Range& range) {
    for (int i = range.start; i < range.end; ++i) {
      const Chart& c = charts[size_t(i)];
      const cv::Rect dst_rect(c.placed, c.size_in_atlas);
      if (dst_rect.x + dst_rect.width > width || dst_rect.y + dst_rect.height > height) continue;
      cv::Mat patch;
      if (c.keyframe < 0)
        patch = cv::Mat(c.size_in_atlas, CV_8UC3, cv::Scalar(128, 128, 128));
      else if (c.size_in_atlas == c.source.size())
        patch = keyframes[size_t(c.keyframe)].bgr(c.source);
      else
        cv::resize(keyframes[size_t(c.keyframe)].bgr(c.source), patch, c.size_in_atlas, 0, 0, cv::INTER_AREA);
      cv::Mat dst = out.atlas(dst_rect);
      if (with_alpha)
        cv::cvtColor(patch, dst, cv::COLOR_BGR2BGRA);
      else
        patch.copyTo(dst);
    }
  });

  // Every chart gets its own copy of its vertices, with the atlas coordinate of the corner
  // (pixel edges: source pixel i spans i - 0.5 to i + 0.5).
  out.triangles.resize(triangles.size());
  std::vector<unsigned> copy_of(vertices.size(), ~0u), copy_chart(vertices.size(), ~0u);
  for (size_t ci = 0; ci < charts.size(); ++ci) {
    const Chart& c = charts[ci];
    const float sx = float(c.size_in_atlas.width) / float(std::max(1, c.source.width));
    const float sy = float(c.size_in_atlas.height) / float(std::max(1, c.source.height));
    for (unsigned t : c.triangles)
      for (size_t i = 0; i < 3; ++i) {
        const unsigned v = triangles[t][i];
        if (copy_chart[v] != unsigned(ci)) {
          copy_chart[v] = unsigned(ci);
          copy_of[v] = unsigned(out.vertices.size());
          out.vertices.push_back(vertices[v]);
          out.source_vertex.push_back(v);
          if (c.keyframe < 0) {
            out.uv.push_back({(float(c.placed.x) + 0.5f * float(kFallbackSide)) / float(width),
                              (float(c.placed.y) + 0.5f * float(kFallbackSide)) / float(height)});
          } else {
            const cv::Point2f p = corner_px[size_t(t) * 3 + i];
            out.uv.push_back({(float(c.placed.x) + (p.x - float(c.source.x) + 0.5f) * sx) / float(width),
                              (float(c.placed.y) + (p.y - float(c.source.y) + 0.5f) * sy) / float(height)});
          }
        }
        out.triangles[t][i] = copy_of[v];
      }
  }
  return out;
}

}  // namespace pv::internal
