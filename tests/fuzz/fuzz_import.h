// What `pavo import` does with a stereo folder before it reads any image: the folder's lists,
// calibration and ground truth read, missing times filled, frames selected, the calibration
// checked against the images' size and rectified, the ground truth moved onto the rectified
// camera, and the recording's pavo.json written. Whatever passes must write a pavo.json that
// reads back.
#pragma once

#include <Eigen/Core>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "input/internal/rectifier.h"
#include "io/internal/ktr_metadata.h"
#include "io/internal/stereo_folder.h"

namespace mapura::fuzz {

/// The size of the images laid out by the fuzz folders (one eye).
constexpr int kImageWidth = 32, kImageHeight = 24;

inline void importFolder(const std::string& dir, pv::internal::ImportFormat format) {
  using namespace pv::internal;
  StereoFolder f;
  if (loadStereoFolder(dir, format, f) != pv::ERROR_CODE::SUCCESS) return;
  if (f.left.empty() || f.left.size() != f.right.size() || f.poses.size() != f.size() || f.has_pose.size() != f.size())
    std::abort();
  fillMissingTimestamps(f, 0);
  selectFrames(f, 1 + int(f.size() % 3), 0);
  if (f.left.empty() || f.timestamps_ns.size() != f.size()) std::abort();
  const double fps = frameRate(f);
  if (f.calibration.width == 0) {
    f.calibration.width = kImageWidth;
    f.calibration.height = kImageHeight;
  }
  if (f.calibration.width != kImageWidth || f.calibration.height != kImageHeight) return;
  Rectifier rectifier;
  if (rectifier.init(f.calibration) != pv::ERROR_CODE::SUCCESS) return;
  Eigen::Matrix3d R1;
  for (int i = 0; i < 9; ++i) R1(i / 3, i % 3) = rectifier.leftRotation().at<double>(i);
  if (f.hasGroundTruth()) (void)rectifiedGroundTruth(f, R1);
  KtrMetadata m;
  m.width = kImageWidth;
  m.height = kImageHeight;
  m.fps = fps;
  m.time_origin_ns = f.timestamps_ns[0];
  m.calibration = f.calibration;
  KtrMetadata again;
  if (!(fps > 0) || !std::isfinite(fps) || parseKtrMetadata(writeKtrMetadata(m), again) != pv::ERROR_CODE::SUCCESS)
    std::abort();  // a recording the importer would write that no reader opens
}

}  // namespace mapura::fuzz
