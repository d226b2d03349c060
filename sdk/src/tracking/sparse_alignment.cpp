#include "tracking/internal/sparse_alignment.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace pv::internal {

namespace {

constexpr int kPatch = 4;  // 4x4 pixels around each point
constexpr int kPixels = kPatch * kPatch;
using PatchJacobian = Eigen::Matrix<double, kPixels, 6>;
using PatchValues = Eigen::Matrix<double, kPixels, 1>;

float bilinear(const cv::Mat& m, double x, double y) {
  const int x0 = int(x), y0 = int(y);
  const float ax = float(x - x0), ay = float(y - y0);
  const float* r0 = m.ptr<float>(y0);
  const float* r1 = m.ptr<float>(y0 + 1);
  return (1 - ay) * ((1 - ax) * r0[x0] + ax * r0[x0 + 1]) + ay * ((1 - ax) * r1[x0] + ax * r1[x0 + 1]);
}

struct LevelCamera {
  double fx, fy, cx, cy;
  Eigen::Vector2d project(const Eigen::Vector3d& p) const { return {fx * p.x() / p.z() + cx, fy * p.y() / p.z() + cy}; }
};

// True when a patch at (x, y), with one more pixel for the gradients, lies inside the image.
bool inside(const cv::Mat& m, const Eigen::Vector2d& x) {
  return x.x() >= kPatch / 2 + 1 && x.y() >= kPatch / 2 + 1 && x.x() < m.cols - kPatch / 2 - 2 &&
         x.y() < m.rows - kPatch / 2 - 2;
}

// The patch's grey values with their mean removed (a change of exposure does not count).
PatchValues patch(const cv::Mat& m, const Eigen::Vector2d& x) {
  PatchValues v;
  for (int k = 0; k < kPixels; ++k)
    v[k] = bilinear(m, x.x() + (k % kPatch) - kPatch / 2, x.y() + (k / kPatch) - kPatch / 2);
  return v.array() - v.mean();
}

Eigen::Isometry3d expSE3(const Eigen::Matrix<double, 6, 1>& d) {
  Eigen::Isometry3d T = Eigen::Isometry3d::Identity();
  const Eigen::Vector3d w = d.tail<3>();
  if (w.norm() > 1e-12) T.linear() = Eigen::AngleAxisd(w.norm(), w.normalized()).toRotationMatrix();
  T.translation() = d.head<3>();
  return T;
}

}  // namespace

SparseAlignment::SparseAlignment(const RectifiedCalibration& calibration, const SparseAlignmentParameters& parameters)
    : calibration_(calibration), parameters_(parameters) {}

std::vector<cv::Mat> SparseAlignment::prepare(const cv::Mat& gray) const {
  // Levels finer than the finest searched stay empty; the others are halved in 8 bits first.
  std::vector<cv::Mat> levels(1);
  cv::Mat image = gray;
  for (;;) {
    const int level = int(levels.size()) - 1;
    if (level >= parameters_.bottom_level) image.convertTo(levels.back(), CV_32F);
    if (level >= parameters_.top_level || image.cols / 2 < parameters_.min_top_width_px) break;
    cv::Mat next;
    cv::pyrDown(image, next);
    image = next;
    levels.emplace_back();
  }
  return levels;
}

bool SparseAlignment::align(const std::vector<cv::Mat>& previous, const std::vector<cv::Mat>& current,
                            const std::vector<Eigen::Vector3d>& points, Eigen::Isometry3d& T) const {
  if (previous.size() != current.size() || previous.empty() || points.size() < size_t(parameters_.min_points))
    return false;
  const int top = std::min(parameters_.top_level, int(previous.size()) - 1);
  const int bottom = std::min(parameters_.bottom_level, top);
  Eigen::Isometry3d estimate = T;
  double residual = 0, contrast = 0;  // mean absolute grey difference after the last step, patch contrast
  for (int level = top; level >= bottom; --level) {
    const cv::Mat &P = previous[size_t(level)], &C = current[size_t(level)];
    const double s = 1.0 / double(1 << level);
    const LevelCamera k{calibration_.fx * s, calibration_.fy * s, (calibration_.cx + 0.5) * s - 0.5,
                        (calibration_.cy + 0.5) * s - 0.5};
    // Reference patches and their Jacobians against a motion of the previous frame (inverse
    // compositional: computed once per level).
    std::vector<size_t> used;
    std::vector<PatchValues> reference;
    std::vector<PatchJacobian> jacobians;
    for (size_t i = 0; i < points.size(); ++i) {
      const Eigen::Vector3d& p = points[i];
      if (p.z() <= 1e-3) continue;
      const Eigen::Vector2d x = k.project(p);
      if (!inside(P, x)) continue;
      Eigen::Matrix<double, 2, 6> dx;  // d pixel / d (translation, rotation) of the point
      const double z = p.z(), z2 = z * z;
      Eigen::Matrix<double, 2, 3> dproj;
      dproj << k.fx / z, 0, -k.fx * p.x() / z2, 0, k.fy / z, -k.fy * p.y() / z2;
      Eigen::Matrix3d skew;
      skew << 0, -p.z(), p.y(), p.z(), 0, -p.x(), -p.y(), p.x(), 0;
      dx.leftCols<3>() = dproj;
      dx.rightCols<3>() = -dproj * skew;
      PatchJacobian J;
      for (int q = 0; q < kPixels; ++q) {
        const double u = x.x() + (q % kPatch) - kPatch / 2, v = x.y() + (q / kPatch) - kPatch / 2;
        const Eigen::RowVector2d g(0.5 * (bilinear(P, u + 1, v) - bilinear(P, u - 1, v)),
                                   0.5 * (bilinear(P, u, v + 1) - bilinear(P, u, v - 1)));
        J.row(q) = g * dx;
      }
      J.rowwise() -= J.colwise().mean();  // as the patch's mean is removed
      used.push_back(i);
      reference.push_back(patch(P, x));
      jacobians.push_back(J);
    }
    if (used.size() < size_t(parameters_.min_points)) return false;
    contrast = 0;
    for (const PatchValues& r : reference) contrast += r.cwiseAbs().mean() / double(reference.size());
    for (int iteration = 0; iteration < parameters_.iterations; ++iteration) {
      Eigen::Matrix<double, 6, 6> H = Eigen::Matrix<double, 6, 6>::Zero();
      Eigen::Matrix<double, 6, 1> b = Eigen::Matrix<double, 6, 1>::Zero();
      int seen = 0;
      residual = 0;
      for (size_t n = 0; n < used.size(); ++n) {
        const Eigen::Vector3d q = estimate * points[used[n]];
        if (q.z() <= 1e-3) continue;
        const Eigen::Vector2d x = k.project(q);
        if (!inside(C, x)) continue;
        const PatchValues r = patch(C, x) - reference[n];
        const PatchValues w = r.unaryExpr([&](double e) {
          return std::abs(e) <= parameters_.huber_grey ? 1.0 : parameters_.huber_grey / std::abs(e);
        });
        H += jacobians[n].transpose() * w.asDiagonal() * jacobians[n];
        b += jacobians[n].transpose() * (w.array() * r.array()).matrix();
        residual += r.cwiseAbs().mean();
        ++seen;
      }
      if (seen < parameters_.min_points) return false;
      residual /= seen;
      // The coarse levels turn only: between frames a turn and a sideways step look alike there,
      // and a hand or a vehicle turns much more than it travels in a frame's time.
      Eigen::Matrix<double, 6, 1> delta = Eigen::Matrix<double, 6, 1>::Zero();
      if (level > top - parameters_.turn_only_levels)
        delta.tail<3>() = H.bottomRightCorner<3, 3>().ldlt().solve(b.tail<3>());
      else
        delta = H.ldlt().solve(b);
      if (!delta.allFinite()) return false;
      estimate = estimate * expSE3(delta).inverse();
      if (delta.norm() < 1e-5) break;
    }
  }
  // The patches are not there (a blank frame, a wrong pose): as different as they are textured.
  if (residual > parameters_.max_residual_ratio * contrast) return false;
  T = estimate;
  return true;
}

}  // namespace pv::internal
