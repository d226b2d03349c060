#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

namespace {

cv::Mat matchPadded(const cv::Mat& left, const cv::Mat& right, const MatchParameters& p) {
  CV_Assert(left.type() == CV_8UC1 && right.type() == CV_8UC1 && left.size() == right.size());
  CV_Assert(p.num_disparities >= 16 && p.num_disparities % 16 == 0 && p.block_size % 2 == 1);
  const int pad = p.num_disparities;
  cv::Mat l, r;
  cv::copyMakeBorder(left, l, 0, 0, pad, 0, cv::BORDER_REPLICATE);
  cv::copyMakeBorder(right, r, 0, 0, pad, 0, cv::BORDER_REPLICATE);
  const int area = p.block_size * p.block_size;
  auto sgbm =
      cv::StereoSGBM::create(0, p.num_disparities, p.block_size, p.p1_per_pixel * area, p.p2_per_pixel * area,
                             p.internal_lr_check ? 1 : -1, 63, p.uniqueness_pct, 0, 0, cv::StereoSGBM::MODE_SGBM_3WAY);
  cv::Mat fixed16;
  sgbm->compute(l, r, fixed16);
  cv::Mat out;
  fixed16(cv::Rect(pad, 0, left.cols, left.rows)).convertTo(out, CV_32F, 1.0 / 16.0);
  out.setTo(std::numeric_limits<float>::quiet_NaN(), fixed16(cv::Rect(pad, 0, left.cols, left.rows)) < 0);
  return out;
}

}  // namespace

cv::Mat matchLeftDisparity(const cv::Mat& left, const cv::Mat& right, const MatchParameters& params) {
  return matchPadded(left, right, params);
}

cv::Mat matchRightDisparity(const cv::Mat& left, const cv::Mat& right, const MatchParameters& params) {
  // Mirrored, the right image becomes a left reference whose matches lie at smaller x.
  cv::Mat lf, rf;
  cv::flip(left, lf, 1);
  cv::flip(right, rf, 1);
  cv::Mat mirrored = matchPadded(rf, lf, params);
  cv::Mat out;
  cv::flip(mirrored, out, 1);
  return out;
}

}  // namespace pv::internal
