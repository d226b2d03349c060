// Turning folders of stereo images into KTR recordings, ground truth included.
#pragma once

#include <string>

#include "pv/defines.h"

namespace pv::internal {

enum class ImportFormat {
  EUROC,  ///< ASL layout: mav0/cam0|cam1/{data.csv,data/,sensor.yaml}; <dir>/*gt*.txt (TUM, body poses)
  KITTI,  ///< image_l/, image_r/ (rectified), calib.txt (P0, P1), poses.txt (T_w_cam0, 3x4 rows)
  PAIRS   ///< left/, right/ (same sorted names), calibration.yml (OpenCV YAML), optional gt.txt (TUM)
};

struct ImportOptions {
  ImportFormat format = ImportFormat::PAIRS;
  KTR_COMPRESSION_MODE codec = KTR_COMPRESSION_MODE::H264;
  double fps = 0;  ///< 0: the data set's own rate (pairs: 30)
  unsigned int serial_number = 0;
};

struct ImportReport {
  int frames = 0;
  int ground_truth_poses = 0;  ///< poses written to <name>.gt.txt (0: none known)
};

/// Writes `output` (.ktr) and, when the data set has a trajectory, <name>.gt.txt with the poses
/// of the rectified left camera (right-handed y-up, first frame = identity). Errors:
/// FILE_IO_ERROR / UNSUPPORTED_FILE_FORMAT for an unreadable folder, INVALID_CALIBRATION_FILE.
[[nodiscard]] ERROR_CODE importStereoFolder(const std::string& dir, const std::string& output,
                                            const ImportOptions& options, ImportReport* report = nullptr);

}  // namespace pv::internal
