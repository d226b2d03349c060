// Exact scenes made of planes, spheres and boxes: depth and colour rendered by ray casting from a
// pinhole camera, and the distance of any point to the true surface. IMAGE axes, metres.
#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

namespace mapura::test {

struct Primitive {
  enum Kind { PLANE, SPHERE, BOX } kind = PLANE;
  Eigen::Vector3f a = Eigen::Vector3f::Zero();  ///< plane point, sphere centre, box minimum
  Eigen::Vector3f b = Eigen::Vector3f::Zero();  ///< plane normal, box maximum
  float radius = 0.f;
  cv::Vec3b bgr{128, 128, 128};
  bool checker = false;  ///< 10 cm checker pattern of bgr and its inverse
};

struct PinholeCamera {
  int width = 320, height = 240;
  double fx = 250, fy = 250, cx = 159.5, cy = 119.5;
};

/// Camera at `eye` looking at `target`, IMAGE axes (y down), world "up" = -y.
inline Eigen::Matrix4f lookAt(const Eigen::Vector3f& eye, const Eigen::Vector3f& target) {
  const Eigen::Vector3f z = (target - eye).normalized();
  Eigen::Vector3f down(0.f, 1.f, 0.f);
  if (std::abs(z.dot(down)) > 0.99f) down = Eigen::Vector3f(0.f, 0.f, 1.f);
  const Eigen::Vector3f x = down.cross(z).normalized();
  const Eigen::Vector3f y = z.cross(x);
  Eigen::Matrix4f T = Eigen::Matrix4f::Identity();
  T.block<3, 1>(0, 0) = x;
  T.block<3, 1>(0, 1) = y;
  T.block<3, 1>(0, 2) = z;
  T.block<3, 1>(0, 3) = eye;
  return T;
}

class Scene {
 public:
  std::vector<Primitive> primitives;

  void addPlane(const Eigen::Vector3f& point, const Eigen::Vector3f& normal, cv::Vec3b bgr = {128, 128, 128}) {
    Primitive p;
    p.kind = Primitive::PLANE;
    p.a = point;
    p.b = normal.normalized();
    p.bgr = bgr;
    primitives.push_back(p);
  }
  void addSphere(const Eigen::Vector3f& centre, float radius) {
    Primitive p;
    p.kind = Primitive::SPHERE;
    p.a = centre;
    p.radius = radius;
    p.checker = true;
    primitives.push_back(p);
  }
  /// Seen from outside (a solid box) or from inside (a room): the ray's first hit on its faces.
  void addBox(const Eigen::Vector3f& min, const Eigen::Vector3f& max, bool checker = true) {
    Primitive p;
    p.kind = Primitive::BOX;
    p.a = min;
    p.b = max;
    p.checker = checker;
    primitives.push_back(p);
  }

  /// Ray parameter of the first hit after 1e-4, or infinity.
  static float hit(const Primitive& p, const Eigen::Vector3f& o, const Eigen::Vector3f& d) {
    const float inf = std::numeric_limits<float>::infinity();
    constexpr float kEps = 1e-4f;
    if (p.kind == Primitive::PLANE) {
      const float den = p.b.dot(d);
      if (std::abs(den) < 1e-9f) return inf;
      const float t = p.b.dot(p.a - o) / den;
      return t > kEps ? t : inf;
    }
    if (p.kind == Primitive::SPHERE) {
      const Eigen::Vector3f oc = o - p.a;
      const float bq = oc.dot(d), c = oc.squaredNorm() - p.radius * p.radius;
      const float disc = bq * bq - c;
      if (disc < 0.f) return inf;
      const float s = std::sqrt(disc);
      if (-bq - s > kEps) return -bq - s;
      return -bq + s > kEps ? -bq + s : inf;
    }
    float t_near = -inf, t_far = inf;
    for (int i = 0; i < 3; ++i) {
      if (std::abs(d[i]) < 1e-12f) {
        if (o[i] < p.a[i] || o[i] > p.b[i]) return inf;
        continue;
      }
      float t0 = (p.a[i] - o[i]) / d[i], t1 = (p.b[i] - o[i]) / d[i];
      if (t0 > t1) std::swap(t0, t1);
      t_near = std::max(t_near, t0);
      t_far = std::min(t_far, t1);
    }
    if (t_near > t_far) return inf;
    if (t_near > kEps) return t_near;
    return t_far > kEps ? t_far : inf;
  }

  static cv::Vec3b colourAt(const Primitive& p, const Eigen::Vector3f& x) {
    if (!p.checker) return p.bgr;
    const int parity =
        (int(std::floor(x.x() * 10.f)) + int(std::floor(x.y() * 10.f)) + int(std::floor(x.z() * 10.f))) & 1;
    return parity ? cv::Vec3b(40, 40, 200) : cv::Vec3b(200, 200, 40);
  }

  /// Depth (z, CV_32F, NaN where nothing is hit) and colour (CV_8UC3) seen from T_world_camera.
  void render(const PinholeCamera& cam, const Eigen::Matrix4f& T_world_camera, cv::Mat& depth_m, cv::Mat& bgr) const {
    depth_m.create(cam.height, cam.width, CV_32F);
    bgr.create(cam.height, cam.width, CV_8UC3);
    const Eigen::Matrix3f R = T_world_camera.topLeftCorner<3, 3>();
    const Eigen::Vector3f o = T_world_camera.topRightCorner<3, 1>();
    for (int v = 0; v < cam.height; ++v) {
      for (int u = 0; u < cam.width; ++u) {
        const Eigen::Vector3f ray_c(float((u - cam.cx) / cam.fx), float((v - cam.cy) / cam.fy), 1.f);
        const Eigen::Vector3f d = (R * ray_c).normalized();
        float best = std::numeric_limits<float>::infinity();
        const Primitive* what = nullptr;
        for (const Primitive& p : primitives) {
          const float t = hit(p, o, d);
          if (t < best) {
            best = t;
            what = &p;
          }
        }
        if (!what) {
          depth_m.at<float>(v, u) = std::numeric_limits<float>::quiet_NaN();
          bgr.at<cv::Vec3b>(v, u) = cv::Vec3b(0, 0, 0);
          continue;
        }
        depth_m.at<float>(v, u) = best / ray_c.norm();
        bgr.at<cv::Vec3b>(v, u) = colourAt(*what, o + d * best);
      }
    }
  }

  /// Unsigned distance of `x` to the nearest surface.
  float distance(const Eigen::Vector3f& x) const {
    float best = std::numeric_limits<float>::infinity();
    for (const Primitive& p : primitives) {
      float dist;
      if (p.kind == Primitive::PLANE) {
        dist = std::abs(p.b.dot(x - p.a));
      } else if (p.kind == Primitive::SPHERE) {
        dist = std::abs((x - p.a).norm() - p.radius);
      } else {
        const Eigen::Vector3f c = 0.5f * (p.a + p.b), h = 0.5f * (p.b - p.a);
        const Eigen::Vector3f q = (x - c).cwiseAbs() - h;
        const float outside = q.cwiseMax(0.f).norm();
        dist = outside > 0.f ? outside : -q.maxCoeff();
      }
      best = std::min(best, dist);
    }
    return best;
  }
};

}  // namespace mapura::test
