// A fixed bilinear resampling (a rectification map) prepared for fast application.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace pv::internal {

namespace remap_kernels {

/// A block's window: none (its pixels are gathered one by one).
constexpr uint32_t kNoWindow = 0xFFFFFFFFu;

/// What the vector kernels read of a table (see RemapTable's members).
struct Tables {
  const uint32_t* xy;
  const uint8_t* fx;
  const uint8_t* fy;
  const uint32_t* block_at;
  const uint8_t* block_x;
  const uint16_t* block_lower;
  int width, height;
};

/// Rows y0 .. y1 - 1 of the AVX-512 kernel (remap_avx512.cpp) for 1 or 4 channels.
void avx512Rows(const Tables& t, const uint8_t* src, size_t src_step, int channels, uint8_t* dst, size_t dst_step,
                int y0, int y1);
/// The same for a BGRA source written as BGR (unless `bgr` is null) and grey.
void avx512BgrGrayRows(const Tables& t, const uint8_t* src, size_t src_step, uint8_t* bgr, size_t bgr_step,
                       uint8_t* gray, size_t gray_step, int y0, int y1);

}  // namespace remap_kernels

/// Built from OpenCV's fixed-point maps (CV_16SC2 whole pixels, CV_16UC1 5-bit fractions), it
/// resamples like cv::remap with INTER_LINEAR and a constant black border, to within one grey
/// level. Grey and BGRA images go through a vector kernel, the best the CPU runs picked at run
/// time: AVX-512 intrinsics (remap_avx512.cpp), or plain C++ the compiler vectorises
/// (remap_kernel.inc) built for AVX2 and for the baseline (SSE2 on x86-64, NEON on arm64). Every
/// kernel gives the same bytes. Anything else goes through cv::remap.
class RemapTable {
 public:
  /// `source_size`: the size of the images the map reads from.
  void build(const cv::Mat& map_xy, const cv::Mat& map_fraction, cv::Size source_size);
  /// `dst` = `src` (CV_8UC1, CV_8UC3 or CV_8UC4 of the source size, any row step) resampled.
  void apply(const cv::Mat& src, cv::Mat& dst) const;
  /// A BGRA `src` resampled into BGR and its grey image (as cv::cvtColor makes them) in one pass.
  void applyBgrGray(const cv::Mat& src, cv::Mat& bgr, cv::Mat& gray) const;
  /// A BGRA `src` resampled into its grey image alone (the grey of the resampled BGR).
  void applyGray(const cv::Mat& src, cv::Mat& gray) const;
  /// Blocks of 16 output pixels whose sources lie in one window of two rows and 32 pixels, read
  /// without gathers by the BGRA kernel (for tests and figures).
  int windowBlocks() const;
  /// The kernel used: 0 the baseline, 1 AVX2, 2 AVX-512; -1 (the default) the best this CPU runs.
  /// Tests and benchmarks compare them.
  void useKernel(int kernel) { kernel_ = kernel; }
  /// Whether kernel `kernel` is built and runs on this CPU.
  static bool kernelRuns(int kernel);
  /// The instruction set of kernel `kernel` (-1: the one used by default), for people.
  static const char* kernelName(int kernel);

 private:
  /// Redoes the pixels whose neighbours leave the source, in rows y0 .. y1 - 1; `put(x, y, value)`
  /// writes one pixel's channels.
  template <typename Put>
  void fixBorder(const cv::Mat& src, int y0, int y1, Put put) const;
  /// Notes, per block of 16 output pixels, where its sources lie when a window holds them.
  void buildBlocks();
  /// The BGRA kernel into BGR (when `bgr` is not null) and grey.
  void bgrGray(const cv::Mat& src, cv::Mat* bgr, cv::Mat& gray) const;
  remap_kernels::Tables tables() const;
  int kernel_ = -1;

  cv::Mat map_xy_, map_fraction_;
  cv::Size source_size_;
  std::vector<uint32_t> xy_;              ///< x | y << 16 of the top-left neighbour (0 on the border)
  std::vector<uint8_t> fx_, fy_;          ///< fractions, 0..31
  std::vector<int> border_;               ///< pixels (y * width + x) whose neighbours are not all inside
  std::vector<cv::Vec2s> border_xy_;      ///< their top-left neighbours, possibly outside
  std::vector<size_t> border_row_start_;  ///< first border_ entry of each row, and the end
  std::vector<uint32_t> block_at_;        ///< per block: x | y << 16 of its window, or kNoWindow
  std::vector<uint8_t> block_x_;          ///< per block, 16 pixels' top-left neighbours within it
  std::vector<uint16_t> block_lower_;     ///< per block, the pixels whose neighbours are a row down
};

/// One channel of the bilinear blend of a pixel's four neighbours (top left, top right, bottom left,
/// bottom right) with 5-bit fractions, rounded as cv::remap rounds.
inline int bilinearBlend(int p00, int p01, int p10, int p11, int fx, int fy) {
  const int top = p00 * (32 - fx) + p01 * fx, bottom = p10 * (32 - fx) + p11 * fx;
  return (top * (32 - fy) + bottom * fy + 512) >> 10;
}

/// What the vector kernels compute for one channel, within a grey level of bilinearBlend: the
/// neighbours blended across into 1/32 steps (exact), then down with the product rounded, then back
/// to grey levels, rounded (a rounded high product, x86's pmulhrsw, does the step down).
inline int kernelBlend(int p00, int p01, int p10, int p11, int fx, int fy) {
  const int top = p00 * (32 - fx) + p01 * fx, bottom = p10 * (32 - fx) + p11 * fx;
  return (top + (((bottom - top) * fy + 16) >> 5) + 16) >> 5;
}

/// Grey level of a BGR pixel, exactly as cv::cvtColor computes it for 8-bit images.
inline uint8_t grayOfBgr(int b, int g, int r) { return uint8_t((3735 * b + 19235 * g + 9798 * r + 16384) >> 15); }

}  // namespace pv::internal
