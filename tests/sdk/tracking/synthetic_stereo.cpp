#include "synthetic_stereo.h"

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <random>

namespace mapura::test {

namespace {
constexpr double kTexelM = 0.005;  // texture resolution on the walls
}

SyntheticRoom::SyntheticRoom(const Eigen::Vector3d& half_extent_m, unsigned seed) : half_(half_extent_m) {
  // One texture per wall, large enough that nothing repeats anywhere in the room.
  const int size = int(2 * half_extent_m.maxCoeff() / kTexelM) + 8;
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> pos(0, size - 1), grey(20, 235), extent(3, 40), kind(0, 2);
  const int shapes = int(5000.0 * size * size / (1024.0 * 1024.0));
  for (cv::Mat& t : textures_) {
    t.create(size, size, CV_8U);
    t.setTo(cv::Scalar(128));
    for (int i = 0; i < shapes; ++i) {
      const cv::Point p(pos(rng), pos(rng));
      const int e = extent(rng);
      const cv::Scalar g(grey(rng));
      if (kind(rng) == 0)
        cv::circle(t, p, e / 2 + 1, g, -1, cv::LINE_AA);
      else
        cv::rectangle(t, cv::Rect(p.x, p.y, e, extent(rng)), g, -1);
    }
    cv::GaussianBlur(t, t, cv::Size(3, 3), 0.8);
  }
}

pv::internal::RectifiedCalibration syntheticCalibration(int width, int height, double fx) {
  pv::internal::RectifiedCalibration c;
  c.fx = c.fy = fx;
  c.cx = (width - 1) / 2.0;
  c.cy = (height - 1) / 2.0;
  c.baseline_m = 0.12;
  c.size = cv::Size(width, height);
  return c;
}

Eigen::Isometry3d circlePose(double t, double radius_m) {
  const double a = 2 * M_PI * t;
  Eigen::Isometry3d T = Eigen::Isometry3d::Identity();
  // Yaw about the vertical (image y) axis, with a gentle pitch swing.
  T.linear() = (Eigen::AngleAxisd(a, Eigen::Vector3d::UnitY()) *
                Eigen::AngleAxisd(0.15 * std::sin(3 * a), Eigen::Vector3d::UnitX()))
                   .toRotationMatrix();
  T.translation() = Eigen::Vector3d(radius_m * std::sin(a), 0.2 * std::sin(2 * a), radius_m * std::cos(a));
  return T;
}

void SyntheticRoom::renderEye(const pv::internal::RectifiedCalibration& c, const Eigen::Isometry3d& T,
                              cv::Mat& out) const {
  out.create(c.size, CV_8U);
  const Eigen::Matrix3d R = T.linear();
  const Eigen::Vector3d o = T.translation();
  cv::parallel_for_(cv::Range(0, c.size.height), [&](const cv::Range& rows) {
    for (int v = rows.start; v < rows.end; ++v) {
      uint8_t* dst = out.ptr<uint8_t>(v);
      for (int u = 0; u < c.size.width; ++u) {
        const Eigen::Vector3d d = R * Eigen::Vector3d((u - c.cx) / c.fx, (v - c.cy) / c.fy, 1.0);
        double t_hit = 1e30;
        int axis = 0;
        for (int k = 0; k < 3; ++k) {
          if (std::abs(d[k]) < 1e-12) continue;
          const double wall = d[k] > 0 ? half_[k] : -half_[k];
          const double t = (wall - o[k]) / d[k];
          if (t > 0 && t < t_hit) {
            t_hit = t;
            axis = k;
          }
        }
        const Eigen::Vector3d p = o + t_hit * d;
        const int a = (axis + 1) % 3, b = (axis + 2) % 3;
        const cv::Mat& tex = textures_[size_t(2 * axis + (d[axis] > 0 ? 1 : 0))];
        const double x = std::min(tex.cols - 1.001, std::max(0.0, (p[a] + half_.maxCoeff()) / kTexelM + 2));
        const double y = std::min(tex.rows - 1.001, std::max(0.0, (p[b] + half_.maxCoeff()) / kTexelM + 2));
        const int x0 = int(x), y0 = int(y);
        const double fx = x - x0, fy = y - y0;
        const uint8_t* r0 = tex.ptr<uint8_t>(y0);
        const uint8_t* r1 = tex.ptr<uint8_t>(y0 + 1);
        const double g = (1 - fy) * ((1 - fx) * r0[x0] + fx * r0[x0 + 1]) + fy * ((1 - fx) * r1[x0] + fx * r1[x0 + 1]);
        dst[u] = cv::saturate_cast<uint8_t>(g);
      }
    }
  });
}

void SyntheticRoom::render(const pv::internal::RectifiedCalibration& c, const Eigen::Isometry3d& T_world_camera,
                           cv::Mat& left, cv::Mat& right) const {
  renderEye(c, T_world_camera, left);
  Eigen::Isometry3d T_camera_right = Eigen::Isometry3d::Identity();
  T_camera_right.translation().x() = c.baseline_m;
  renderEye(c, T_world_camera * T_camera_right, right);
}

}  // namespace mapura::test
