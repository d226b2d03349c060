#include "stereo_scenes.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace mapura::test {

cv::Mat makeTexture(cv::Size size, unsigned seed) {
  cv::RNG rng(seed);
  cv::Mat noise(size, CV_32F);
  rng.fill(noise, cv::RNG::UNIFORM, 0.f, 1.f);
  cv::GaussianBlur(noise, noise, cv::Size(0, 0), 1.0);
  cv::Mat out;
  cv::normalize(noise, out, 10, 245, cv::NORM_MINMAX, CV_32F);
  return out;
}

namespace {
// Samples `texture` (CV_32F) at (x, y) with linear interpolation.
float sample(const cv::Mat& texture, float x, float y) {
  const int x0 = std::clamp(static_cast<int>(std::floor(x)), 0, texture.cols - 2);
  const int yi = std::clamp(static_cast<int>(y), 0, texture.rows - 1);
  const float a = std::clamp(x - static_cast<float>(x0), 0.f, 1.f);
  return (1 - a) * texture.at<float>(yi, x0) + a * texture.at<float>(yi, x0 + 1);
}
}  // namespace

SyntheticPair renderStep(cv::Size size, float background_px, float foreground_px, cv::Rect box, unsigned seed) {
  // Each surface carries its texture in left-image coordinates; the right camera sees the point
  // of left column x at x - d.
  const int margin = static_cast<int>(std::ceil(std::max(background_px, foreground_px))) + 2;
  const cv::Mat back = makeTexture(cv::Size(size.width + margin, size.height), seed);
  const cv::Mat front = makeTexture(cv::Size(size.width + margin, size.height), seed + 101);
  SyntheticPair p;
  p.left.create(size, CV_8UC1);
  p.right.create(size, CV_8UC1);
  p.disparity_px.create(size, CV_32F);
  p.visible.create(size, CV_8UC1);
  for (int y = 0; y < size.height; ++y) {
    const bool row_in_box = y >= box.y && y < box.y + box.height;
    for (int x = 0; x < size.width; ++x) {
      const bool in_front = row_in_box && x >= box.x && x < box.x + box.width;
      p.left.at<uint8_t>(y, x) = cv::saturate_cast<uint8_t>((in_front ? front : back).at<float>(y, x));
      p.disparity_px.at<float>(y, x) = in_front ? foreground_px : background_px;
      // Right image: the front box covers [box.x - df, box.x + width - df).
      const float xr = static_cast<float>(x);
      const bool right_front = row_in_box && xr >= box.x - foreground_px && xr < box.x + box.width - foreground_px;
      const float value = right_front ? sample(front, xr + foreground_px, static_cast<float>(y))
                                      : sample(back, xr + background_px, static_cast<float>(y));
      p.right.at<uint8_t>(y, x) = cv::saturate_cast<uint8_t>(value);
    }
  }
  // A background point is hidden from the right camera when the box lands on it there.
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const float d = p.disparity_px.at<float>(y, x);
      const float xr = static_cast<float>(x) - d;
      const bool row_in_box = y >= box.y && y < box.y + box.height;
      const bool hidden = d == background_px && row_in_box && xr >= box.x - foreground_px &&
                          xr < box.x + box.width - foreground_px && foreground_px > background_px;
      p.visible.at<uint8_t>(y, x) = (xr >= 0 && !hidden) ? 255 : 0;
    }
  return p;
}

double shareWithin(const cv::Mat& estimate, const cv::Mat& truth, const cv::Mat& mask, float tolerance_px) {
  long n = 0, good = 0;
  for (int y = 0; y < truth.rows; ++y)
    for (int x = 0; x < truth.cols; ++x) {
      if (!mask.at<uint8_t>(y, x)) continue;
      ++n;
      const float e = estimate.at<float>(y, x);
      good += std::isfinite(e) && std::abs(e - truth.at<float>(y, x)) <= tolerance_px;
    }
  return n ? static_cast<double>(good) / n : 0.0;
}

double medianError(const cv::Mat& estimate, const cv::Mat& truth, const cv::Mat& mask) {
  std::vector<float> errors;
  for (int y = 0; y < truth.rows; ++y)
    for (int x = 0; x < truth.cols; ++x) {
      const float e = estimate.at<float>(y, x);
      if (mask.at<uint8_t>(y, x) && std::isfinite(e)) errors.push_back(std::abs(e - truth.at<float>(y, x)));
    }
  if (errors.empty()) return 1e9;
  std::nth_element(errors.begin(), errors.begin() + errors.size() / 2, errors.end());
  return errors[errors.size() / 2];
}

}  // namespace mapura::test
