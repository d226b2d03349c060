// Turning folders of stereo images into KTR recordings, ground truth included.
#pragma once

#include <string>

#include "io/internal/stereo_folder.h"
#include "pv/defines.h"

namespace pv::internal {

struct ImportOptions {
  ImportFormat format = ImportFormat::PAIRS;
  KTR_COMPRESSION_MODE codec = KTR_COMPRESSION_MODE::H264;
  double fps = 0;  ///< rate of folders without timestamps (0: the layout's own, 30 for pairs)
  int every = 1;   ///< keep every N-th frame (a reduced rate), from the first
  int first = 0;   ///< then keep the first K of those (0: all)
  unsigned int serial_number = 0;
};

struct ImportReport {
  int frames = 0;
  int ground_truth_poses = 0;  ///< poses written to <name>.gt.txt (0: none known)
  double fps = 0;              ///< rate written into the recording (from the timestamps)
};

/// Writes `output` (.ktr) and, when the data set has a trajectory, <name>.gt.txt with the poses
/// of the rectified left camera (right-handed y-up, first frame = identity). Images keep their
/// size, odd ones included. Errors: FILE_IO_ERROR / UNSUPPORTED_FILE_FORMAT for an unreadable
/// folder, CALIBRATION_FILE_NOT_AVAILABLE, INVALID_CALIBRATION_FILE, the writer's errors.
[[nodiscard]] ERROR_CODE importStereoFolder(const std::string& dir, const std::string& output,
                                            const ImportOptions& options, ImportReport* report = nullptr);

}  // namespace pv::internal
