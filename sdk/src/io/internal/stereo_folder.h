// Stereo image folders as their publishers lay them out, read without changing anything: the
// image pairs in frame order, their capture times, the calibration and the ground truth. The
// importer turns one into a recording; the tracking benchmark reads it directly.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <vector>

#include "io/internal/ktr_metadata.h"
#include "pv/defines.h"

namespace pv::internal {

enum class ImportFormat {
  /// ASL layout: mav0/cam0|cam1/{sensor.yaml, data.csv, data/}; ground truth <dir>/*gt*.txt (TUM,
  /// body poses). sensor.yaml is read with or without its "%YAML:1.0" first line.
  EUROC,
  /// KITTI odometry or raw: image_0|1, image_2|3, image_l|r or image_00|01/data; calib.txt with
  /// "P0:".."P3:" lines or bare rows of 12 numbers (or calib_cam_to_cam.txt's P_rect_0N);
  /// times.txt or image_00/timestamps.txt; poses.txt or ../../poses/<sequence>.txt (3x4 rows).
  KITTI,
  /// left/ + right/ (same sorted names) or one pair im0.png + im1.png; calibration.yml (OpenCV
  /// YAML) or calib.txt (Middlebury 2014 / ETH3D: cam0=[..], cam1=[..], baseline in mm); gt.txt
  /// (TUM, right-handed y-up) when present.
  PAIRS
};

/// Everything known about a folder of stereo pairs.
struct StereoFolder {
  std::vector<std::string> left, right;  ///< image paths, frame order
  std::vector<int64_t> timestamps_ns;    ///< empty when the folder has none
  StereoCalibration calibration;         ///< width/height 0 when the calibration does not say
  double nominal_fps = 0;                ///< the rate the folder states (0: none); timestamps prevail
  /// Ground truth, T_world_leftcamera of the raw left camera in IMAGE axes (x right, y down, z
  /// forward), one per frame; `has_pose[i]` false where the trajectory does not cover frame i.
  std::vector<Eigen::Matrix4d> poses;
  std::vector<char> has_pose;

  size_t size() const { return left.size(); }
  bool hasGroundTruth() const;
};

/// Reads a folder in the given layout. Errors: FILE_IO_ERROR (no such folder or an unreadable
/// list), CALIBRATION_FILE_NOT_AVAILABLE, INVALID_CALIBRATION_FILE, UNSUPPORTED_FILE_FORMAT
/// (malformed lists, no pairs). Pairs whose image is missing are skipped.
[[nodiscard]] ERROR_CODE loadStereoFolder(const std::string& dir, ImportFormat format, StereoFolder& folder);

/// The layout a folder most likely has (EuRoC when it holds mav0/, KITTI when it holds a KITTI
/// image folder, pairs otherwise).
ImportFormat guessImportFormat(const std::string& dir);

/// Keeps every `every`-th frame from the first one, then the first `first` of those (0: all).
void selectFrames(StereoFolder& folder, int every, int first);

/// Gives every frame a timestamp at `fps` (0: the folder's nominal rate, else 30) when the folder
/// has none. Call it before selectFrames so that kept frames keep their times.
void fillMissingTimestamps(StereoFolder& folder, double fps);
/// The rate of the frames: the median step of their timestamps; the nominal rate for one frame.
double frameRate(const StereoFolder& folder);

/// The ground truth of the rectified left camera, IMAGE axes: poses[i] * R1^T, where
/// `left_rectification` is the rotation from the raw to the rectified left camera (3x3 row-major).
std::vector<Eigen::Matrix4d> rectifiedGroundTruth(const StereoFolder& folder,
                                                  const Eigen::Matrix3d& left_rectification);

// One reader per layout (each in its own file).
ERROR_CODE loadEurocFolder(const std::string& dir, StereoFolder& folder);
ERROR_CODE loadKittiFolder(const std::string& dir, StereoFolder& folder);
ERROR_CODE loadPairFolder(const std::string& dir, StereoFolder& folder);

/// The pose at `t_s` from a time-sorted trajectory: interpolated (position linearly, rotation by
/// slerp) between the samples around it when they are at most `max_gap_s` apart, or a sample
/// within a millisecond. False when the trajectory does not cover `t_s`.
bool interpolatePose(const std::vector<double>& times_s, const std::vector<Eigen::Matrix4d>& poses, double t_s,
                     double max_gap_s, Eigen::Matrix4d& pose);

/// Image files (png, jpg, jpeg, pgm, ppm) of a folder, sorted by name; empty when none.
std::vector<std::string> sortedImageFiles(const std::string& dir);

}  // namespace pv::internal
