// libFuzzer target: area file bytes must decode or be refused, never crash. Each input is tried
// as it is and once more with a matching checksum, so that mutations reach the parser.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "io/internal/area_file.h"

namespace {

void decodeOnce(const uint8_t* data, size_t size) {
  pv::internal::MapData map;
  pv::internal::RectifiedCalibration calibration;
  if (pv::internal::decodeAreaFile(data, size, map, calibration) != pv::ERROR_CODE::SUCCESS) return;
  // A decoded map encodes again to a file that decodes to the same counts.
  const auto bytes = pv::internal::encodeAreaFile(map, calibration);
  pv::internal::MapData again;
  if (pv::internal::decodeAreaFile(bytes.data(), bytes.size(), again, calibration) != pv::ERROR_CODE::SUCCESS ||
      again.keyframes.size() != map.keyframes.size() || again.landmarks.size() != map.landmarks.size())
    __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  decodeOnce(data, size);
  if (size >= 16) {
    std::vector<uint8_t> fixed(data, data + size);
    const uint64_t sum = pv::internal::areaFileChecksum(fixed.data(), size - 8);
    std::memcpy(fixed.data() + size - 8, &sum, 8);
    decodeOnce(fixed.data(), fixed.size());
  }
  return 0;
}
