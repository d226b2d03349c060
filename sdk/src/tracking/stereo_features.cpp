#include "tracking/internal/stereo_features.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

namespace pv::internal {

std::vector<cv::Point2f> detectFeatures(const cv::Mat& gray, const std::vector<cv::Point2f>& existing,
                                        const FeatureParameters& parameters) {
  FeatureParameters p = parameters;
  if (p.cell_px <= 0) p.cell_px = std::max(16, int(std::sqrt(double(gray.cols) * gray.rows / 400.0)));
  const int cells_x = std::max(1, gray.cols / p.cell_px), cells_y = std::max(1, gray.rows / p.cell_px);
  auto cellOf = [&](float x, float y) {
    const int cx = std::min(cells_x - 1, std::max(0, int(x) / p.cell_px));
    const int cy = std::min(cells_y - 1, std::max(0, int(y) / p.cell_px));
    return cy * cells_x + cx;
  };
  std::vector<char> occupied(size_t(cells_x * cells_y), 0);
  for (const cv::Point2f& e : existing) occupied[size_t(cellOf(e.x, e.y))] = 1;

  std::vector<cv::KeyPoint> corners;
  cv::FAST(gray, corners, p.fast_threshold, true);
  std::vector<int> best(occupied.size(), -1);
  for (int i = 0; i < int(corners.size()); ++i) {
    const cv::Point2f& q = corners[size_t(i)].pt;
    if (q.x < p.border_px || q.y < p.border_px || q.x >= gray.cols - p.border_px || q.y >= gray.rows - p.border_px)
      continue;
    const int c = cellOf(q.x, q.y);
    if (occupied[size_t(c)]) continue;
    if (best[size_t(c)] < 0 || corners[size_t(best[size_t(c)])].response < corners[size_t(i)].response)
      best[size_t(c)] = i;
  }
  std::vector<cv::Point2f> out;
  for (int b : best)
    if (b >= 0) out.push_back(corners[size_t(b)].pt);
  return out;
}

std::vector<float> matchStereo(const cv::Mat& left, const cv::Mat& right, const std::vector<cv::Point2f>& points,
                               const std::vector<float>& guess_px, float min_disparity_px, float max_disparity_px,
                               float guess_range_px, const FeatureParameters& p) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<float> disparity(points.size(), nan);
  const int r = p.patch_radius_px;
  cv::Mat scores;
  for (size_t i = 0; i < points.size(); ++i) {
    const int x = int(std::lround(points[i].x)), y = int(std::lround(points[i].y));
    if (x - r < 0 || y - r < 0 || x + r >= left.cols || y + r >= left.rows) continue;
    float d_lo = min_disparity_px, d_hi = max_disparity_px;
    if (i < guess_px.size() && guess_px[i] > 0) {
      d_lo = std::max(min_disparity_px, guess_px[i] - guess_range_px);
      d_hi = std::min(max_disparity_px, guess_px[i] + guess_range_px);
    }
    // Right columns x - d for d in [d_lo, d_hi], clipped to the image.
    const int col_lo = std::max(r, x - int(std::ceil(d_hi)));
    const int col_hi = std::min(right.cols - 1 - r, x - int(std::floor(d_lo)));
    if (col_hi - col_lo < 2) continue;
    const cv::Mat patch = left(cv::Rect(x - r, y - r, 2 * r + 1, 2 * r + 1));
    const cv::Mat strip = right(cv::Rect(col_lo - r, y - r, col_hi - col_lo + 2 * r + 1, 2 * r + 1));
    cv::matchTemplate(strip, patch, scores, cv::TM_CCOEFF_NORMED);
    const float* s = scores.ptr<float>(0);
    const int n = scores.cols;
    int best = -1;
    for (int k = 0; k < n; ++k)
      if (std::isfinite(s[k]) && (best < 0 || s[k] > s[best])) best = k;
    if (best < 0 || s[best] < p.min_score) continue;
    // Unique: no other peak (two columns away or more) nearly as good.
    bool unique = true;
    for (int k = 0; k < n && unique; ++k)
      if (std::abs(k - best) > 2 && std::isfinite(s[k]) && s[k] > s[best] - 0.03f) unique = false;
    if (!unique) continue;
    float offset = 0.f;
    if (best > 0 && best < n - 1) {
      const float a = s[best - 1], b = s[best], c = s[best + 1];
      const float denom = a - 2 * b + c;
      if (std::abs(denom) > 1e-6f) offset = std::max(-0.5f, std::min(0.5f, 0.5f * (a - c) / denom));
    }
    const float right_x = float(col_lo + best) + offset;
    const float d = points[i].x - right_x;
    if (d >= min_disparity_px && d <= max_disparity_px) disparity[i] = d;
  }
  return disparity;
}

cv::Mat describeFeatures(cv::ORB& orb, const cv::Mat& gray, const std::vector<cv::Point2f>& pixels, int octave) {
  std::vector<cv::KeyPoint> keypoints;
  const float size = 31.f * float(std::pow(orb.getScaleFactor(), octave));
  for (size_t i = 0; i < pixels.size(); ++i) keypoints.emplace_back(pixels[i], size, -1.f, 0.f, octave, int(i));
  cv::Mat computed;
  orb.compute(gray, keypoints, computed);
  cv::Mat out = cv::Mat::zeros(int(pixels.size()), 32, CV_8U);
  for (size_t k = 0; k < keypoints.size(); ++k) computed.row(int(k)).copyTo(out.row(keypoints[k].class_id));
  return out;
}

bool emptyDescriptor(const cv::Mat& row) { return cv::countNonZero(row) == 0; }

}  // namespace pv::internal
