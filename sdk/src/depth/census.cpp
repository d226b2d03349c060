#include <algorithm>
#include <cstdint>
#include <opencv2/core/utility.hpp>

#include "depth/internal/stereo_stages.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

constexpr int kCensusHalfW = 4, kCensusHalfH = 3;

/// Centre-symmetric census of one row: bit k is set when the k-th pixel of the window's upper
/// half is brighter than its mirror image through the centre. `padded` has the window's border.
PV_VECTOR_CLONES
void censusRow(const cv::Mat& padded, int y, int width, uint32_t* dst) {
  std::fill(dst, dst + width, 0u);
  int bit = 0;
  for (int dy = -kCensusHalfH; dy <= 0; ++dy) {
    for (int dx = -kCensusHalfW; dx <= kCensusHalfW; ++dx) {
      if (dy == 0 && dx >= 0) break;
      const uint8_t* a = padded.ptr<uint8_t>(y + kCensusHalfH + dy) + kCensusHalfW + dx;
      const uint8_t* b = padded.ptr<uint8_t>(y + kCensusHalfH - dy) + kCensusHalfW - dx;
      for (int x = 0; x < width; ++x) dst[x] |= uint32_t(a[x] > b[x]) << bit;
      ++bit;
    }
  }
}

}  // namespace

cv::Mat censusTransform(const cv::Mat& gray) {
  cv::Mat padded;
  cv::copyMakeBorder(gray, padded, kCensusHalfH, kCensusHalfH, kCensusHalfW, kCensusHalfW, cv::BORDER_REPLICATE);
  cv::Mat out(gray.size(), CV_32S);
  cv::parallel_for_(cv::Range(0, gray.rows), [&](const cv::Range& rows) {
    for (int y = rows.start; y < rows.end; ++y) censusRow(padded, y, gray.cols, out.ptr<uint32_t>(y));
  });
  return out;
}

}  // namespace pv::internal
