#include "input/internal/rectifier.h"

#include <algorithm>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "core/internal/error.h"

namespace pv::internal {

namespace {

cv::Mat cameraMatrix(const EyeCalibration& e) {
  return (cv::Mat_<double>(3, 3) << e.fx, 0, e.cx, 0, e.fy, e.cy, 0, 0, 1);
}

void fillFov(CameraParameters& p) {
  const double w = double(p.image_size.width), h = double(p.image_size.height);
  if (p.fx <= 0 || p.fy <= 0) return;
  p.h_fov = float(2 * std::atan(w / (2 * p.fx)) * 180 / CV_PI);
  p.v_fov = float(2 * std::atan(h / (2 * p.fy)) * 180 / CV_PI);
  p.d_fov = float(2 * std::atan(std::hypot(w, h) / (2 * std::hypot(p.fx, p.fy) / std::sqrt(2.0))) * 180 / CV_PI);
}

// A pair published already rectified (no distortion, no rotation, the right eye along x, the
// same focal lengths and rows): the left image stays exactly as it is, and the right one only
// moves along its rows when its principal point differs (Middlebury's doffs).
bool alreadyRectified(const StereoCalibration& c) {
  auto same = [](double a, double b) { return std::abs(a - b) <= 1e-9 * std::max(1.0, std::abs(a)); };
  for (const EyeCalibration* e : {&c.left, &c.right})
    for (double d : e->disto)
      if (d != 0) return false;
  for (int i = 0; i < 9; ++i)
    if (!same(c.R[size_t(i)], i % 4 == 0 ? 1.0 : 0.0)) return false;
  return c.T[0] < 0 && same(c.T[1], 0) && same(c.T[2], 0) && same(c.left.fx, c.right.fx) &&
         same(c.left.fy, c.right.fy) && same(c.left.cy, c.right.cy);
}

}  // namespace

StereoCalibration scaleCalibration(const StereoCalibration& c, int width, int height) {
  if (c.width == width && c.height == height) return c;
  StereoCalibration s = c;
  const double sx = double(width) / c.width, sy = double(height) / c.height;
  for (EyeCalibration* e : {&s.left, &s.right}) {
    e->fx *= sx;
    e->cx = (e->cx + 0.5) * sx - 0.5;
    e->fy *= sy;
    e->cy = (e->cy + 0.5) * sy - 0.5;
  }
  s.width = width;
  s.height = height;
  return s;
}

ERROR_CODE Rectifier::init(const StereoCalibration& c) {
  if (!c.plausible()) return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the calibration is not plausible");
  const cv::Size size(c.width, c.height);
  cv::Mat K1 = cameraMatrix(c.left), K2 = cameraMatrix(c.right);
  cv::Mat D1(1, 5, CV_64F, const_cast<double*>(c.left.disto.data()));
  cv::Mat D2(1, 5, CV_64F, const_cast<double*>(c.right.disto.data()));
  cv::Mat R(3, 3, CV_64F, const_cast<double*>(c.R.data()));
  cv::Mat T(3, 1, CV_64F, const_cast<double*>(c.T.data()));
  cv::Mat R2, P1, P2, Q;
  try {
    if (alreadyRectified(c)) {
      R1_ = cv::Mat::eye(3, 3, CV_64F);
      R2 = cv::Mat::eye(3, 3, CV_64F);
      P1 = cv::Mat::zeros(3, 4, CV_64F);
      K1.copyTo(P1(cv::Rect(0, 0, 3, 3)));
      P2 = P1.clone();
      P2.at<double>(0, 3) = c.T[0] * c.left.fx;
    } else {
      cv::stereoRectify(K1, D1, K2, D2, size, R, T, R1_, R2, P1, P2, Q, cv::CALIB_ZERO_DISPARITY, 0, size);
    }
    cv::initUndistortRectifyMap(K1, D1, R1_, P1, size, CV_16SC2, map_left_[0], map_left_[1]);
    cv::initUndistortRectifyMap(K2, D2, R2, P2, size, CV_16SC2, map_right_[0], map_right_[1]);
    left_table_.build(map_left_[0], map_left_[1], size);
    right_table_.build(map_right_[0], map_right_[1], size);
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, std::string("the calibration cannot be rectified: ") + e.what());
  }
  rectified_.fx = P1.at<double>(0, 0);
  rectified_.fy = P1.at<double>(1, 1);
  rectified_.cx = P1.at<double>(0, 2);
  rectified_.cy = P1.at<double>(1, 2);
  rectified_.baseline_m = std::abs(P2.at<double>(0, 3) / P2.at<double>(0, 0));
  rectified_.size = size;
  if (!(rectified_.fx > 1 && std::isfinite(rectified_.baseline_m) && rectified_.baseline_m > 0))
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the calibration gives no usable rectified pair");
  return ERROR_CODE::SUCCESS;
}

cv::Mat Rectifier::eye(const cv::Mat& sbs, int eye) const {
  const int w = rectified_.size.width;
  return sbs(cv::Rect(eye * w, 0, w, sbs.rows));
}

void Rectifier::apply(const cv::Mat& sbs, cv::Mat& left, cv::Mat& left_gray, cv::Mat& right_gray) {
  if (sbs.channels() == 4) {
    left_table_.applyBgrGray(eye(sbs, 0), left, left_gray);
    right_table_.applyGray(eye(sbs, 1), right_gray);
    return;
  }
  left_table_.apply(eye(sbs, 0), left);
  cv::cvtColor(left, left_gray, cv::COLOR_BGR2GRAY);
  // Grey before rectification: a third of the pixels to interpolate.
  cv::cvtColor(eye(sbs, 1), raw_gray_, cv::COLOR_BGR2GRAY);
  right_table_.apply(raw_gray_, right_gray);
}

void Rectifier::rectifyRightColour(const cv::Mat& sbs, cv::Mat& right) const {
  if (sbs.channels() != 4) {
    right_table_.apply(eye(sbs, 1), right);
    return;
  }
  cv::Mat bgra;
  right_table_.apply(eye(sbs, 1), bgra);
  cv::cvtColor(bgra, right, cv::COLOR_BGRA2BGR);
}

CalibrationParameters toCalibrationParameters(const StereoCalibration& c) {
  CalibrationParameters p;
  CameraParameters* eyes[] = {&p.left_cam, &p.right_cam};
  const EyeCalibration* src[] = {&c.left, &c.right};
  for (int i = 0; i < 2; ++i) {
    eyes[i]->fx = float(src[i]->fx);
    eyes[i]->fy = float(src[i]->fy);
    eyes[i]->cx = float(src[i]->cx);
    eyes[i]->cy = float(src[i]->cy);
    for (int k = 0; k < 5; ++k) eyes[i]->disto[k] = src[i]->disto[size_t(k)];
    eyes[i]->image_size = Resolution(size_t(c.width), size_t(c.height));
    fillFov(*eyes[i]);
  }
  p.baseline_m = float(std::sqrt(c.T[0] * c.T[0] + c.T[1] * c.T[1] + c.T[2] * c.T[2]));
  // The right eye's orientation and position in the left eye's frame: R^T and -R^T * T.
  double position[3] = {0, 0, 0};
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 3; ++k) {
      p.stereo_rotation(r, k) = float(c.R[size_t(3 * k + r)]);
      position[r] -= c.R[size_t(3 * k + r)] * c.T[size_t(k)];
    }
  p.stereo_translation = Translation(float(position[0]), float(position[1]), float(position[2]));
  return p;
}

CalibrationParameters toCalibrationParameters(const RectifiedCalibration& r) {
  CalibrationParameters p;
  for (CameraParameters* e : {&p.left_cam, &p.right_cam}) {
    e->fx = float(r.fx);
    e->fy = float(r.fy);
    e->cx = float(r.cx);
    e->cy = float(r.cy);
    e->image_size = Resolution(size_t(r.size.width), size_t(r.size.height));
    fillFov(*e);
  }
  p.baseline_m = float(r.baseline_m);
  p.stereo_translation = Translation(float(r.baseline_m), 0, 0);  // right eye at +x
  return p;
}

}  // namespace pv::internal
