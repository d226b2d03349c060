// The rectification's own resampling against cv::remap, the reference.
#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "input/internal/remap_table.h"

namespace pv::internal {
namespace {

TEST(RemapTable, ResamplesLikeOpenCvInsideAndOnTheBorder) {
  // A strongly distorted, rotated eye of odd size, read as the right half of a side-by-side
  // frame (a view with a row step wider than the eye): many pixels map partly or wholly outside.
  const cv::Size size(333, 201);
  const cv::Mat K = (cv::Mat_<double>(3, 3) << 180, 0, 160, 0, 180, 100, 0, 0, 1);
  const cv::Mat D = (cv::Mat_<double>(1, 5) << -0.3, 0.1, 0.002, -0.001, 0);
  cv::Mat R;
  cv::Rodrigues(cv::Vec3d(0.03, -0.05, 0.04), R);
  const cv::Mat P = (cv::Mat_<double>(3, 3) << 120, 0, 150, 0, 120, 110, 0, 0, 1);  // wider than the eye
  cv::Mat map_xy, map_fraction;
  cv::initUndistortRectifyMap(K, D, R, P, size, CV_16SC2, map_xy, map_fraction);
  RemapTable table;
  table.build(map_xy, map_fraction, size);

  cv::Mat side_by_side(size.height, 2 * size.width, CV_8UC4);
  cv::randu(side_by_side, 0, 256);
  cv::GaussianBlur(side_by_side, side_by_side, cv::Size(3, 3), 0.8);
  const cv::Mat eye = side_by_side(cv::Rect(size.width, 0, size.width, size.height));
  cv::Mat gray, bgr;
  cv::cvtColor(eye, gray, cv::COLOR_BGRA2GRAY);
  cv::cvtColor(eye, bgr, cv::COLOR_BGRA2BGR);
  // Every kernel this CPU runs, each within a level of cv::remap and all giving the same bytes.
  std::vector<cv::Mat> first;  // the baseline kernel's outputs
  for (int kernel = 0; kernel < 3; ++kernel) {
    if (!RemapTable::kernelRuns(kernel)) continue;
    table.useKernel(kernel);
    const std::string name = RemapTable::kernelName(kernel);
    std::vector<cv::Mat> outputs;
    int outside = 0;
    for (const cv::Mat& src : {eye, gray, bgr}) {
      cv::Mat ours, reference;
      table.apply(src, ours);
      cv::remap(src, reference, map_xy, map_fraction, cv::INTER_LINEAR);
      ASSERT_EQ(ours.type(), src.type()) << name;
      ASSERT_EQ(ours.size(), size) << name;
      cv::Mat diff;
      cv::absdiff(ours, reference, diff);
      diff = diff.reshape(1);
      EXPECT_LE(cv::norm(diff, cv::NORM_INF), 1.0) << name << ", " << src.channels() << " channels";
      EXPECT_LT(cv::mean(diff)[0], 0.05) << name << ", " << src.channels() << " channels";
      outside = cv::countNonZero(reference.reshape(1) == 0);
      outputs.push_back(ours);
    }
    EXPECT_GT(outside, 1000);  // the border really was exercised

    // BGR and grey at once: the BGR within a level of cv::remap's, the grey exactly cvtColor's of it.
    cv::Mat bgr_ours, gray_ours, reference;
    table.applyBgrGray(eye, bgr_ours, gray_ours);
    cv::remap(bgr, reference, map_xy, map_fraction, cv::INTER_LINEAR);
    ASSERT_EQ(bgr_ours.type(), CV_8UC3) << name;
    ASSERT_EQ(gray_ours.size(), size) << name;
    EXPECT_LE(cv::norm(bgr_ours, reference, cv::NORM_INF), 1.0) << name;
    cv::Mat gray_of_ours;
    cv::cvtColor(bgr_ours, gray_of_ours, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(cv::norm(gray_ours, gray_of_ours, cv::NORM_INF), 0.0) << name;
    cv::Mat gray_alone;
    table.applyGray(eye, gray_alone);
    EXPECT_EQ(cv::norm(gray_alone, gray_ours, cv::NORM_INF), 0.0) << name;
    outputs.push_back(bgr_ours);
    outputs.push_back(gray_ours);
    if (first.empty()) first = outputs;
    for (size_t i = 0; i < outputs.size(); ++i)
      EXPECT_EQ(cv::norm(outputs[i], first[i], cv::NORM_INF), 0.0) << name << " against the baseline, output " << i;
  }
  EXPECT_FALSE(first.empty());
  table.useKernel(-1);
  // Blocks read through windows and blocks gathered pixel by pixel both took part.
  const int blocks = (size.width / 16) * size.height;
  EXPECT_GT(table.windowBlocks(), blocks / 4);
  EXPECT_LT(table.windowBlocks(), blocks * 3 / 4);
  std::printf("kernel: %s, %d of %d blocks through windows\n", RemapTable::kernelName(-1), table.windowBlocks(),
              blocks);
}

}  // namespace
}  // namespace pv::internal
