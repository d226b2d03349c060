// Pieces of the live V4L2 path that need no hardware: serial numbers from sysfs, the
// calibration file lookup and the mapping of percent settings onto a control's range.
#pragma once

#include <string>

#include "io/internal/ktr_metadata.h"

namespace pv::internal {

/// Serial number of the USB device behind /dev/videoN, read from `sysfs_root`
/// (normally /sys/class/video4linux) as videoN/device/../serial; 0 when unknown.
unsigned int usbSerialNumber(const std::string& sysfs_root, const std::string& node_name);

/// Path of `SN<serial>.yml` in $PAVO_CALIBRATION_DIR, then ~/.local/share/pavo/calibration/;
/// empty when neither has it.
std::string findCalibrationFile(unsigned int serial_number);

/// Loads the calibration of a camera: CALIBRATION_FILE_NOT_AVAILABLE without a file,
/// INVALID_CALIBRATION_FILE for one that cannot be used.
ERROR_CODE loadCameraCalibration(unsigned int serial_number, StereoCalibration& calibration);

/// A percent (0..100) of a control's [minimum, maximum] range, rounded to its step.
int percentToControl(int percent, int minimum, int maximum, int step);
/// The percent a control value stands for.
int controlToPercent(int value, int minimum, int maximum);

}  // namespace pv::internal
