#include <opencv2/calib3d.hpp>

#include "depth/internal/stereo_stages.h"

namespace pv::internal {

void removeSpeckles(cv::Mat& disparity_px, int max_speckle_px, float max_diff_px) {
  CV_Assert(disparity_px.type() == CV_32F);
  // OpenCV's region growing works on 1/16-pixel fixed point; -1 marks holes.
  cv::Mat fixed16;
  disparity_px.convertTo(fixed16, CV_16S, 16.0);
  const cv::Mat invalid = invalidMask(disparity_px);
  fixed16.setTo(-16, invalid);
  cv::filterSpeckles(fixed16, -16, max_speckle_px, static_cast<double>(max_diff_px) * 16.0);
  disparity_px.setTo(std::numeric_limits<float>::quiet_NaN(), fixed16 == -16);
}

}  // namespace pv::internal
