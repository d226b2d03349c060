#include <algorithm>
#include <cstdint>
#include <opencv2/core/utility.hpp>
#include <vector>

#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

constexpr int kCensusHalfW = 4, kCensusHalfH = 3;

/// Centre-symmetric census of one row: bit k is set when the k-th pixel of the window's upper
/// half is brighter than its mirror image through the centre. `padded` has the window's border.
/// The bits are gathered a byte at a time (eight comparisons per byte, many pixels per vector
/// operation) and put together into words at the end.
PV_VECTOR_CLONES
void censusRow(const cv::Mat& padded, int y, int width, uint8_t* planes, uint32_t* dst) {
  std::fill(planes, planes + 4 * width, uint8_t(0));
  int bit = 0;
  for (int dy = -kCensusHalfH; dy <= 0; ++dy) {
    for (int dx = -kCensusHalfW; dx <= kCensusHalfW; ++dx) {
      if (dy == 0 && dx >= 0) break;
      const uint8_t* a = padded.ptr<uint8_t>(y + kCensusHalfH + dy) + kCensusHalfW + dx;
      const uint8_t* b = padded.ptr<uint8_t>(y + kCensusHalfH - dy) + kCensusHalfW - dx;
      uint8_t* plane = planes + (bit / 8) * width;
      const uint8_t value = uint8_t(1u << (bit % 8));
      for (int x = 0; x < width; ++x) plane[x] |= a[x] > b[x] ? value : uint8_t(0);
      ++bit;
    }
  }
  const uint8_t *p0 = planes, *p1 = planes + width, *p2 = planes + 2 * width, *p3 = planes + 3 * width;
  for (int x = 0; x < width; ++x)
    dst[x] = uint32_t(p0[x]) | (uint32_t(p1[x]) << 8) | (uint32_t(p2[x]) << 16) | (uint32_t(p3[x]) << 24);
}

}  // namespace

cv::Mat censusTransform(const cv::Mat& gray) {
  cv::Mat padded;
  cv::copyMakeBorder(gray, padded, kCensusHalfH, kCensusHalfH, kCensusHalfW, kCensusHalfW, cv::BORDER_REPLICATE);
  cv::Mat out(gray.size(), CV_32S);
  cv::parallel_for_(cv::Range(0, gray.rows), [&](const cv::Range& rows) {
    std::vector<uint8_t> planes(static_cast<size_t>(4 * gray.cols));
    for (int y = rows.start; y < rows.end; ++y) censusRow(padded, y, gray.cols, planes.data(), out.ptr<uint32_t>(y));
  });
  return out;
}

}  // namespace pv::internal
