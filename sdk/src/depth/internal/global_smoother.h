// Fast global smoother guided by a grey image: the weighted least-squares smoothing of Min et al.
// (2014), solved as alternating one-dimensional passes (a tridiagonal system per row, then per
// column). Its weights depend on the guide alone, so one smoother filters several images with the
// same guide, and the passes share their coefficients between those images.
#pragma once

#include <opencv2/core.hpp>

namespace pv::internal {

class GlobalSmoother {
 public:
  /// `guide_gray` CV_8UC1. Neighbours are coupled by lambda * exp(-|grey difference| / sigma);
  /// each iteration runs a horizontal and a vertical pass, the next with lambda times
  /// `lambda_attenuation`.
  GlobalSmoother(const cv::Mat& guide_gray, double lambda, double sigma_color, double lambda_attenuation = 0.25,
                 int iterations = 1);

  /// Smooths `count` CV_32FC1 images of the guide's size in place.
  void filter(cv::Mat* const* images, int count) const;
  void filter(cv::Mat& a, cv::Mat& b) const {
    cv::Mat* both[] = {&a, &b};
    filter(both, 2);
  }

  /// The weighted mean smooth(weight * values) / smooth(weight) of `values` (CV_32FC1, NaN where
  /// missing, which weighs nothing) with `weight` (CV_32FC1, empty: 1 everywhere); NaN where
  /// smooth(weight) < `min_weight`. The same as filter() on both images, with their making and the
  /// division done row by row within the first and the last pass.
  cv::Mat weightedMean(const cv::Mat& values, const cv::Mat& weight, float min_weight) const;

  /// Keeps the horizontal passes off the vector kernel (tests compare the two).
  void useScalarRows() { vectorised_ = false; }

 private:
  cv::Mat across_;  ///< CV_32F: -weight between (y, x) and (y, x + 1), 0 in the last column
  cv::Mat down_;    ///< CV_32F: -weight between (y, x) and (y + 1, x), 0 in the last row
  float lambda_;
  float attenuation_;
  int iterations_;
  bool vectorised_ = true;
};

}  // namespace pv::internal
