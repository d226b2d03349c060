// A small renderer for the tests and benchmarks: the synthetic scene ray-cast with procedural
// colours (the truth a texture must reproduce), and textured meshes rasterised with a depth buffer.
#pragma once

#include <Eigen/Dense>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>

#include "mesh/internal/texture_source.h"
#include "pv/mesh.h"
#include "synthetic_scan.h"

namespace mapura::test {

struct ViewCamera {
  Eigen::Matrix4f T_world_camera = Eigen::Matrix4f::Identity();  ///< IMAGE axes: x right, y down, z forward
  double fx = 400, fy = 400, cx = 239.5, cy = 179.5;
  int width = 480, height = 360;
};

/// Camera at `eye` looking at `target`, world y up.
inline ViewCamera lookAt(const Eigen::Vector3f& eye, const Eigen::Vector3f& target, int width = 480, int height = 360,
                         double focal = 400) {
  ViewCamera c;
  const Eigen::Vector3f z = (target - eye).normalized();
  const Eigen::Vector3f x = z.cross(Eigen::Vector3f::UnitY()).normalized();
  const Eigen::Vector3f y = z.cross(x);
  c.T_world_camera.block<3, 1>(0, 0) = x;
  c.T_world_camera.block<3, 1>(0, 1) = y;
  c.T_world_camera.block<3, 1>(0, 2) = z;
  c.T_world_camera.block<3, 1>(0, 3) = eye;
  c.width = width;
  c.height = height;
  c.fx = c.fy = focal;
  c.cx = (width - 1) / 2.0;
  c.cy = (height - 1) / 2.0;
  return c;
}

/// True colour (blue, green, red) of the scene at a surface point: a two-colour checkerboard of
/// 0.25 m squares shaded by a gradient on the floor, bands of latitude and longitude on the ball.
inline cv::Vec3b trueColor(const SyntheticScene& s, const pv::float3& p) {
  const pv::float3 d = p - s.ball_centre;
  const float r = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
  if (std::fabs(r - s.ball_radius) < std::fabs(p.y)) {
    const float theta = std::acos(std::clamp(d.y / std::max(r, 1e-6f), -1.f, 1.f)), phi = std::atan2(d.z, d.x);
    return cv::Vec3b(static_cast<unsigned char>(128 + 100 * std::sin(6 * phi)),
                     static_cast<unsigned char>(128 + 100 * std::cos(5 * theta)), 200);
  }
  const int cell = (int(std::floor(p.x / 0.25f)) + int(std::floor(p.z / 0.25f))) & 1;
  const float shade = 0.6f + 0.4f * (p.x + s.floor_half_size) / (2 * s.floor_half_size);
  return cell ? cv::Vec3b(static_cast<unsigned char>(40 * shade), static_cast<unsigned char>(160 * shade),
                          static_cast<unsigned char>(230 * shade))
              : cv::Vec3b(static_cast<unsigned char>(210 * shade), static_cast<unsigned char>(90 * shade),
                          static_cast<unsigned char>(40 * shade));
}

/// The scene as the camera sees it (ray cast; black where no surface is hit).
inline cv::Mat renderScene(const SyntheticScene& s, const ViewCamera& c) {
  cv::Mat image(c.height, c.width, CV_8UC3, cv::Scalar::all(0));
  const Eigen::Matrix3f R = c.T_world_camera.block<3, 3>(0, 0);
  const Eigen::Vector3f o = c.T_world_camera.block<3, 1>(0, 3);
  const Eigen::Vector3f centre(s.ball_centre.x, s.ball_centre.y, s.ball_centre.z);
  for (int v = 0; v < c.height; ++v)
    for (int u = 0; u < c.width; ++u) {
      const Eigen::Vector3f dir =
          (R * Eigen::Vector3f(float((u - c.cx) / c.fx), float((v - c.cy) / c.fy), 1.f)).normalized();
      float t_hit = std::numeric_limits<float>::infinity();
      const Eigen::Vector3f oc = o - centre;
      const float b = oc.dot(dir), disc = b * b - (oc.squaredNorm() - s.ball_radius * s.ball_radius);
      if (disc >= 0) {
        const float t = -b - std::sqrt(disc);
        if (t > 0) t_hit = t;
      }
      if (dir.y() != 0) {
        const float t = -o.y() / dir.y();
        const Eigen::Vector3f p = o + dir * t;
        if (t > 0 && t < t_hit && std::fabs(p.x()) <= s.floor_half_size && std::fabs(p.z()) <= s.floor_half_size)
          t_hit = t;
      }
      if (!std::isfinite(t_hit)) continue;
      const Eigen::Vector3f p = o + dir * t_hit;
      image.at<cv::Vec3b>(v, u) = trueColor(s, {p.x(), p.y(), p.z()});
    }
  return image;
}

inline pv::internal::TextureKeyframe keyframeFrom(const SyntheticScene& s, const ViewCamera& c) {
  pv::internal::TextureKeyframe k;
  k.bgr = renderScene(s, c);
  k.T_mesh_camera = c.T_world_camera;
  k.fx = c.fx;
  k.fy = c.fy;
  k.cx = c.cx;
  k.cy = c.cy;
  return k;
}

/// a * wa + b * wb + c * wc.
inline pv::float2 mix(const pv::float2& a, const pv::float2& b, const pv::float2& c, float wa, float wb, float wc) {
  return {a.x * wa + b.x * wb + c.x * wc, a.y * wa + b.y * wb + c.y * wc};
}

/// Bilinear sample of a BGR or BGRA texture at (u, v) in [0, 1] (origin at the first row).
inline cv::Vec3f sampleTexture(const pv::Mat& texture, const pv::float2& uv) {
  const int w = int(texture.getWidth()), h = int(texture.getHeight());
  const float x = std::clamp(uv.x * float(w) - 0.5f, 0.f, float(w - 1)),
              y = std::clamp(uv.y * float(h) - 0.5f, 0.f, float(h - 1));
  const int x0 = int(x), y0 = int(y), x1 = std::min(x0 + 1, w - 1), y1 = std::min(y0 + 1, h - 1);
  const float fx = x - float(x0), fy = y - float(y0);
  cv::Vec3f out;
  for (int k = 0; k < 3; ++k) {
    const auto at = [&](int xx, int yy) { return float(texture.getPixel<unsigned char>(size_t(xx), size_t(yy))[k]); };
    out[k] = (at(x0, y0) * (1 - fx) + at(x1, y0) * fx) * (1 - fy) + (at(x0, y1) * (1 - fx) + at(x1, y1) * fx) * fy;
  }
  return out;
}

/// The textured mesh rasterised from a camera (perspective-correct texture coordinates).
inline cv::Mat renderTexturedMesh(const pv::Mesh& m, const ViewCamera& c) {
  cv::Mat image(c.height, c.width, CV_8UC3, cv::Scalar::all(0));
  cv::Mat depth(c.height, c.width, CV_32F, cv::Scalar(std::numeric_limits<float>::infinity()));
  const Eigen::Matrix4f T = c.T_world_camera.inverse();
  std::vector<Eigen::Vector3f> px(m.vertices.size());
  for (size_t i = 0; i < m.vertices.size(); ++i) {
    const Eigen::Vector4f q = T * Eigen::Vector4f(m.vertices[i].x, m.vertices[i].y, m.vertices[i].z, 1.f);
    px[i] = {float(c.fx * q.x() / q.z() + c.cx), float(c.fy * q.y() / q.z() + c.cy), q.z()};
  }
  for (const pv::uint3& t : m.triangles) {
    const Eigen::Vector3f &a = px[t.x], &b = px[t.y], &d = px[t.z];
    if (a.z() <= 0.01f || b.z() <= 0.01f || d.z() <= 0.01f) continue;
    const float area = (b.x() - a.x()) * (d.y() - a.y()) - (d.x() - a.x()) * (b.y() - a.y());
    if (std::fabs(area) < 1e-9f) continue;
    const int x0 = std::max(0, int(std::floor(std::min({a.x(), b.x(), d.x()})))),
              x1 = std::min(c.width - 1, int(std::ceil(std::max({a.x(), b.x(), d.x()}))));
    const int y0 = std::max(0, int(std::floor(std::min({a.y(), b.y(), d.y()})))),
              y1 = std::min(c.height - 1, int(std::ceil(std::max({a.y(), b.y(), d.y()}))));
    for (int y = y0; y <= y1; ++y)
      for (int x = x0; x <= x1; ++x) {
        const float w0 = ((b.x() - x) * (d.y() - y) - (d.x() - x) * (b.y() - y)) / area;
        const float w1 = ((d.x() - x) * (a.y() - y) - (a.x() - x) * (d.y() - y)) / area;
        const float w2 = 1 - w0 - w1;
        if (w0 < 0 || w1 < 0 || w2 < 0) continue;
        const float inv = w0 / a.z() + w1 / b.z() + w2 / d.z(), z = 1.f / inv;
        if (z >= depth.at<float>(y, x)) continue;
        depth.at<float>(y, x) = z;
        const pv::float2 uv = mix(m.uv[t.x], m.uv[t.y], m.uv[t.z], w0 / a.z() * z, w1 / b.z() * z, w2 / d.z() * z);
        const cv::Vec3f col = sampleTexture(m.texture, uv);
        image.at<cv::Vec3b>(y, x) = cv::Vec3b(cv::saturate_cast<uchar>(col[0]), cv::saturate_cast<uchar>(col[1]),
                                              cv::saturate_cast<uchar>(col[2]));
      }
  }
  return image;
}

}  // namespace mapura::test
