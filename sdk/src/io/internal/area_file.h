// Area files: the sparse map of positional tracking (keyframes with their poses, observations
// and descriptors, landmarks) in a versioned little-endian binary file with a checksum.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "pv/defines.h"
#include "tracking/internal/map_data.h"

namespace pv::internal {

/// Version written by writeAreaFile; readers accept exactly this version.
constexpr uint32_t kAreaFileVersion = 1;

/// Checksum stored in the last 8 bytes of an area file, over every byte before them.
uint64_t areaFileChecksum(const uint8_t* data, size_t size);

/// The bytes of an area file for `map`, built with rectified `calibration`.
std::vector<uint8_t> encodeAreaFile(const MapData& map, const RectifiedCalibration& calibration);
/// Parses area file bytes. INVALID_AREA_FILE (reason recorded) for anything that is not a
/// complete, intact file of this version; `map` and `calibration` are untouched then.
ERROR_CODE decodeAreaFile(const uint8_t* data, size_t size, MapData& map, RectifiedCalibration& calibration);

/// Writes through a temporary file renamed into place; FILE_IO_ERROR when it cannot.
ERROR_CODE writeAreaFile(const std::string& path, const MapData& map, const RectifiedCalibration& calibration);
/// Reads and decodes; FILE_IO_ERROR when unreadable, INVALID_AREA_FILE when not a valid file.
ERROR_CODE readAreaFile(const std::string& path, MapData& map, RectifiedCalibration& calibration);

}  // namespace pv::internal
