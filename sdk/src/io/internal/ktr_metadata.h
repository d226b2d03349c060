// The `pavo.json` attachment of a KTR recording: camera, resolution, rate and factory calibration.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "pv/defines.h"

namespace pv::internal {

/// Raw (unrectified) intrinsics of one eye, pixels; distortion k1, k2, p1, p2, k3.
struct EyeCalibration {
  double fx = 0, fy = 0, cx = 0, cy = 0;
  std::array<double, 5> disto{};
};

/// Factory calibration of a stereo pair, OpenCV's convention: a point x_left in the left eye's
/// frame (IMAGE axes) is x_right = R * x_left + T in the right eye's frame.
struct StereoCalibration {
  EyeCalibration left, right;
  std::array<double, 9> R{1, 0, 0, 0, 1, 0, 0, 0, 1};  ///< row-major, left to right
  std::array<double, 3> T{0, 0, 0};                    ///< metres; x < 0 for a right eye at +x
  int width = 0, height = 0;                           ///< one eye, pixels
  /// True when the numbers can describe a camera (positive focal lengths, a baseline, a size).
  bool plausible() const;
};

struct KtrMetadata {
  int format_version = 1;
  std::string camera_model = "PAVO";
  unsigned int serial_number = 0;
  int width = 0, height = 0;  ///< one eye
  double fps = 0;
  int64_t time_origin_ns = 0;  ///< capture time of the stream's timestamp 0
  StereoCalibration calibration;
};

/// Writes the metadata as the JSON text of `pavo.json`.
std::string writeKtrMetadata(const KtrMetadata& metadata);

/// Parses `pavo.json`. Returns SUCCESS, INVALID_KTR_FILE (not such a document) or
/// INVALID_CALIBRATION_FILE (a document whose calibration is missing or cannot be a camera);
/// records the reason. Never throws, whatever the bytes.
ERROR_CODE parseKtrMetadata(const std::string& text, KtrMetadata& metadata);

/// Reads an OpenCV YAML calibration file (`SN<serial>.yml`): keys image_width, image_height,
/// K_left, D_left, K_right, D_right (matrices), R (3x3), T (3x1, metres).
ERROR_CODE readCalibrationYaml(const std::string& path, StereoCalibration& calibration);
ERROR_CODE writeCalibrationYaml(const std::string& path, const StereoCalibration& calibration);

}  // namespace pv::internal
