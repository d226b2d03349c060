#include "input/internal/remap_table.h"

#include <algorithm>
#include <cstring>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "core/internal/cpu_features.h"

namespace pv::internal {

#define PV_DECLARE_REMAP_KERNEL(isa)                                                                                   \
  namespace isa {                                                                                                      \
  void rows(const remap_kernels::Tables& t, const uint8_t* src, size_t src_step, int channels, uint8_t* dst,           \
            size_t dst_step, int y0, int y1);                                                                          \
  void bgrGrayRows(const remap_kernels::Tables& t, const uint8_t* src, size_t src_step, uint8_t* bgr, size_t bgr_step, \
                   uint8_t* gray, size_t gray_step, int y0, int y1);                                                   \
  }
PV_DECLARE_REMAP_KERNEL(remap_baseline)
#if defined(PV_REMAP_ISA_BUILDS)
PV_DECLARE_REMAP_KERNEL(remap_avx2)
#endif
#undef PV_DECLARE_REMAP_KERNEL

namespace {

struct RemapKernel {
  decltype(&remap_baseline::rows) rows;
  decltype(&remap_baseline::bgrGrayRows) bgr_gray_rows;
  const char* name;
  bool runs;
};

#if defined(__x86_64__)
constexpr const char* kBaselineName = "x86-64 baseline (SSE2)";
#elif defined(__aarch64__) && defined(__ARM_NEON)
constexpr const char* kBaselineName = "arm64 NEON";
#else
constexpr const char* kBaselineName = "baseline";
#endif

// In order of preference, with whether the running CPU has what each needs.
const std::vector<RemapKernel>& remapKernels() {
  static const std::vector<RemapKernel> all = [] {
    std::vector<RemapKernel> k{{remap_baseline::rows, remap_baseline::bgrGrayRows, kBaselineName, true}};
#if defined(PV_REMAP_ISA_BUILDS)  // x86-64 with GCC or clang: the AVX2 build of the portable kernel, and AVX-512's
    k.push_back({remap_avx2::rows, remap_avx2::bgrGrayRows, "AVX2", cpuRuns(CpuLevel::kAvx2)});
    k.push_back({remap_kernels::avx512Rows, remap_kernels::avx512BgrGrayRows, "AVX-512", cpuRuns(CpuLevel::kAvx512)});
#endif
    return k;
  }();
  return all;
}

/// Kernel `wanted`, or the best one the CPU runs for -1; null when it does not run here.
const RemapKernel* pickKernel(int wanted) {
  const std::vector<RemapKernel>& all = remapKernels();
  if (wanted >= 0) return wanted < int(all.size()) && all[size_t(wanted)].runs ? &all[size_t(wanted)] : nullptr;
  for (auto it = all.rbegin(); it != all.rend(); ++it)
    if (it->runs) return &*it;
  return &all.front();
}

}  // namespace

bool RemapTable::kernelRuns(int kernel) { return kernel >= 0 && pickKernel(kernel) != nullptr; }

const char* RemapTable::kernelName(int kernel) {
  const RemapKernel* k = pickKernel(kernel);
  return k ? k->name : "not built or not run by this CPU";
}

void RemapTable::build(const cv::Mat& map_xy, const cv::Mat& map_fraction, cv::Size source_size) {
  CV_Assert(map_xy.type() == CV_16SC2 && map_fraction.type() == CV_16UC1 && map_xy.size() == map_fraction.size());
  CV_Assert(source_size.width < 65536 && source_size.height < 65536);
  map_xy_ = map_xy;
  map_fraction_ = map_fraction;
  source_size_ = source_size;
  const int w = map_xy.cols, h = map_xy.rows;
  xy_.assign(size_t(w) * size_t(h), 0u);
  fx_.assign(xy_.size(), 0);
  fy_.assign(xy_.size(), 0);
  border_.clear();
  border_xy_.clear();
  border_row_start_.assign(size_t(h) + 1, 0);
  for (int y = 0; y < h; ++y) {
    border_row_start_[size_t(y)] = border_.size();
    const cv::Vec2s* p = map_xy.ptr<cv::Vec2s>(y);
    const uint16_t* f = map_fraction.ptr<uint16_t>(y);
    for (int x = 0; x < w; ++x) {
      const size_t i = size_t(y) * size_t(w) + size_t(x);
      fx_[i] = uint8_t(f[x] & 31);
      fy_[i] = uint8_t((f[x] >> 5) & 31);
      // The grey kernel reads four bytes from the neighbour on: keep those inside the row too.
      const bool inside =
          p[x][0] >= 0 && p[x][1] >= 0 && p[x][0] + 3 < source_size.width && p[x][1] + 1 < source_size.height;
      if (inside) {
        xy_[i] = uint32_t(p[x][0]) | uint32_t(p[x][1]) << 16;
      } else {
        border_.push_back(int(i));
        border_xy_.push_back(p[x]);
      }
    }
  }
  border_row_start_[size_t(h)] = border_.size();
  buildBlocks();
}

void RemapTable::buildBlocks() {
  // A window is two source rows (three with the bottom neighbours) of 32 BGRA pixels: the kernel
  // loads it whole and picks each pixel's neighbours out of it.
  constexpr int kWindow = 32;
  const int w = map_xy_.cols, h = map_xy_.rows, per_row = w / 16;
  block_at_.assign(size_t(per_row) * size_t(h), remap_kernels::kNoWindow);
  block_x_.assign(block_at_.size() * 16, 0);
  block_lower_.assign(block_at_.size(), 0);
  for (int y = 0; y < h; ++y) {
    size_t next_border = border_row_start_[size_t(y)];  // the row's border pixels, in order
    const size_t row_end = border_row_start_[size_t(y) + 1];
    for (int b = 0; b < per_row; ++b) {
      const size_t first = size_t(y) * size_t(w) + size_t(16 * b), block = size_t(y) * size_t(per_row) + size_t(b);
      while (next_border < row_end && size_t(border_[next_border]) < first) ++next_border;
      if (next_border < row_end && size_t(border_[next_border]) < first + 16) continue;  // the border pass redoes it
      int x0 = 65535, x1 = -1, y0 = 65535, y1 = -1;
      for (size_t i = first; i < first + 16; ++i) {
        const int sx = int(xy_[i] & 0xFFFF), sy = int(xy_[i] >> 16);
        x0 = std::min(x0, sx), x1 = std::max(x1, sx), y0 = std::min(y0, sy), y1 = std::max(y1, sy);
      }
      if (y1 - y0 > 1 || x1 + 1 - x0 >= kWindow || x0 + kWindow > source_size_.width) continue;
      block_at_[block] = uint32_t(x0) | uint32_t(y0) << 16;
      for (int k = 0; k < 16; ++k) {
        const uint32_t at = xy_[first + size_t(k)];
        block_x_[16 * block + size_t(k)] = uint8_t(int(at & 0xFFFF) - x0);
        if (int(at >> 16) > y0) block_lower_[block] = uint16_t(block_lower_[block] | 1u << k);
      }
    }
  }
}

int RemapTable::windowBlocks() const {
  return int(
      std::count_if(block_at_.begin(), block_at_.end(), [](uint32_t at) { return at != remap_kernels::kNoWindow; }));
}

remap_kernels::Tables RemapTable::tables() const {
  return {xy_.data(),      fx_.data(),          fy_.data(),   block_at_.data(),
          block_x_.data(), block_lower_.data(), map_xy_.cols, map_xy_.rows};
}

template <typename Put>
void RemapTable::fixBorder(const cv::Mat& src, int y0, int y1, Put put) const {
  const int cn = src.channels(), w = map_xy_.cols;
  auto sample = [&](int x, int y, int c) {
    return x >= 0 && y >= 0 && x < src.cols && y < src.rows ? int(src.ptr<uint8_t>(y)[x * cn + c]) : 0;
  };
  for (size_t k = border_row_start_[size_t(y0)]; k < border_row_start_[size_t(y1)]; ++k) {
    const size_t i = size_t(border_[k]);
    const int sx = border_xy_[k][0], sy = border_xy_[k][1], fx = fx_[i], fy = fy_[i];
    uint8_t value[4] = {0, 0, 0, 0};
    for (int c = 0; c < cn; ++c)
      value[c] = uint8_t(bilinearBlend(sample(sx, sy, c), sample(sx + 1, sy, c), sample(sx, sy + 1, c),
                                       sample(sx + 1, sy + 1, c), fx, fy));
    put(border_[k] % w, border_[k] / w, value);
  }
}

void RemapTable::apply(const cv::Mat& src, cv::Mat& dst) const {
  CV_Assert(!map_xy_.empty() && src.size() == source_size_ && src.depth() == CV_8U);
  const int cn = src.channels();
  if (cn != 1 && cn != 4) {
    cv::remap(src, dst, map_xy_, map_fraction_, cv::INTER_LINEAR);
    return;
  }
  const RemapKernel* kernel = pickKernel(kernel_);
  CV_Assert(kernel != nullptr);
  dst.create(map_xy_.size(), src.type());
  cv::parallel_for_(
      cv::Range(0, dst.rows),
      [&](const cv::Range& rows) {
        kernel->rows(tables(), src.data, src.step, cn, dst.data, dst.step, rows.start, rows.end);
        fixBorder(src, rows.start, rows.end, [&](int x, int y, const uint8_t* value) {
          std::memcpy(dst.ptr<uint8_t>(y) + x * cn, value, size_t(cn));
        });
      },
      8);
}

void RemapTable::applyBgrGray(const cv::Mat& src, cv::Mat& bgr, cv::Mat& gray) const { bgrGray(src, &bgr, gray); }

void RemapTable::applyGray(const cv::Mat& src, cv::Mat& gray) const { bgrGray(src, nullptr, gray); }

void RemapTable::bgrGray(const cv::Mat& src, cv::Mat* bgr, cv::Mat& gray) const {
  CV_Assert(!map_xy_.empty() && src.size() == source_size_ && src.type() == CV_8UC4);
  const RemapKernel* kernel = pickKernel(kernel_);
  CV_Assert(kernel != nullptr);
  if (bgr) bgr->create(map_xy_.size(), CV_8UC3);
  gray.create(map_xy_.size(), CV_8UC1);
  cv::parallel_for_(
      cv::Range(0, gray.rows),
      [&](const cv::Range& rows) {
        kernel->bgr_gray_rows(tables(), src.data, src.step, bgr ? bgr->data : nullptr, bgr ? bgr->step : 0, gray.data,
                              gray.step, rows.start, rows.end);
        fixBorder(src, rows.start, rows.end, [&](int x, int y, const uint8_t* value) {
          if (bgr) std::memcpy(bgr->ptr<uint8_t>(y) + 3 * x, value, 3);
          gray.ptr<uint8_t>(y)[x] = grayOfBgr(value[0], value[1], value[2]);
        });
      },
      8);
}

}  // namespace pv::internal
