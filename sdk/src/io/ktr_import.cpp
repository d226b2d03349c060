#include "io/internal/ktr_import.h"

#include <Eigen/Dense>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "core/internal/error.h"
#include "input/internal/rectifier.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_side_files.h"

namespace pv::internal {

namespace {

// One side-by-side BGR frame; empty when an image cannot be read or has another size.
cv::Mat loadPair(const std::string& left, const std::string& right, int w, int h) {
  cv::Mat l = cv::imread(left, cv::IMREAD_COLOR), r = cv::imread(right, cv::IMREAD_COLOR), sbs;
  if (l.cols != w || l.rows != h || r.cols != w || r.rows != h) return cv::Mat();
  cv::hconcat(l, r, sbs);
  return sbs;
}

// <name>.gt.txt: the rectified left camera, rebased on the first known pose, right-handed y-up.
ERROR_CODE writeGroundTruth(const StereoFolder& f, const Rectifier& rectifier, const std::string& output,
                            int& written) {
  written = 0;
  if (!f.hasGroundTruth()) return ERROR_CODE::SUCCESS;
  Eigen::Matrix3d R1;
  for (int i = 0; i < 9; ++i) R1(i / 3, i % 3) = rectifier.leftRotation().at<double>(i);
  const std::vector<Eigen::Matrix4d> rectified = rectifiedGroundTruth(f, R1);
  const Eigen::Matrix4d flip = Eigen::Vector4d(1, -1, -1, 1).asDiagonal();
  std::vector<int64_t> ts;
  std::vector<Eigen::Matrix4d> poses;
  Eigen::Matrix4d first_inv = Eigen::Matrix4d::Identity();
  for (size_t i = 0; i < f.size(); ++i) {
    if (!f.has_pose[i]) continue;
    if (poses.empty()) first_inv = rectified[i].inverse();
    ts.push_back(f.timestamps_ns[i]);
    poses.push_back(flip * (first_inv * rectified[i]) * flip);
  }
  if (!writeTumTrajectory(sideFileStem(output) + ".gt.txt", ts, poses))
    return fail(ERROR_CODE::FILE_IO_ERROR, "cannot write " + sideFileStem(output) + ".gt.txt");
  written = int(poses.size());
  return ERROR_CODE::SUCCESS;
}

}  // namespace

ERROR_CODE importStereoFolder(const std::string& dir, const std::string& output, const ImportOptions& options,
                              ImportReport* report) {
  StereoFolder f;
  ERROR_CODE err = loadStereoFolder(dir, options.format, f);
  if (err != ERROR_CODE::SUCCESS) return err;
  fillMissingTimestamps(f, options.fps);
  selectFrames(f, options.every, options.first);
  const cv::Mat first = cv::imread(f.left[0], cv::IMREAD_UNCHANGED);
  if (first.empty()) return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "cannot read " + f.left[0]);
  const int w = first.cols, h = first.rows;
  if (f.calibration.width == 0) {
    f.calibration.width = w;
    f.calibration.height = h;
  }
  if (f.calibration.width != w || f.calibration.height != h)
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the calibration is for " + std::to_string(f.calibration.width) +
                                                          "x" + std::to_string(f.calibration.height) + " images, " +
                                                          f.left[0] + " is " + std::to_string(w) + "x" +
                                                          std::to_string(h));
  Rectifier rectifier;
  if ((err = rectifier.init(f.calibration)) != ERROR_CODE::SUCCESS) return err;
  const double fps = frameRate(f);

  KtrMetadata m;
  m.serial_number = options.serial_number;
  m.width = w;
  m.height = h;
  m.fps = fps;
  m.time_origin_ns = f.timestamps_ns[0];
  m.calibration = f.calibration;
  KtrWriter writer;
  if ((err = writer.open(output, m, options.codec)) != ERROR_CODE::SUCCESS) return err;
  for (size_t i = 0; i < f.size(); ++i) {
    const cv::Mat sbs = loadPair(f.left[i], f.right[i], w, h);
    if (sbs.empty()) return fail(ERROR_CODE::UNSUPPORTED_FILE_FORMAT, "cannot read the pair " + f.left[i]);
    if ((err = writer.write(sbs, f.timestamps_ns[i])) != ERROR_CODE::SUCCESS) return err;
  }
  if ((err = writer.close()) != ERROR_CODE::SUCCESS) return err;
  int written = 0;
  if ((err = writeGroundTruth(f, rectifier, output, written)) != ERROR_CODE::SUCCESS) return err;
  if (report) *report = ImportReport{int(f.size()), written, fps};
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv::internal
