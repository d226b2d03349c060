#include "depth/internal/global_smoother.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "core/internal/cpu_features.h"
#include "depth/internal/smoother_kernels.h"
#include "depth/internal/vector_clones.h"

namespace pv::internal {

namespace {

constexpr int kMaxImages = 2;     // images sharing one sweep
constexpr int kRowsTogether = 4;  // rows solved side by side, so their serial chains overlap
constexpr int kColumnBlock = 128;

/// Negative coupling weight of each neighbour pair: -exp(-|difference| / sigma) from a table.
void pairWeights(const cv::Mat& guide, double sigma, cv::Mat& across, cv::Mat& down) {
  std::array<float, 256> table{};
  for (int d = 0; d < 256; ++d) table[size_t(d)] = -static_cast<float>(std::exp(-d / sigma));
  across.create(guide.size(), CV_32F);
  down.create(guide.size(), CV_32F);
  cv::parallel_for_(cv::Range(0, guide.rows), [&](const cv::Range& rows) {
    for (int y = rows.start; y < rows.end; ++y) {
      const uchar* g = guide.ptr<uchar>(y);
      const uchar* below = guide.ptr<uchar>(std::min(y + 1, guide.rows - 1));
      float* a = across.ptr<float>(y);
      float* d = down.ptr<float>(y);
      for (int x = 0; x + 1 < guide.cols; ++x) a[x] = table[size_t(std::abs(int(g[x]) - int(g[x + 1])))];
      a[guide.cols - 1] = 0.f;
      for (int x = 0; x < guide.cols; ++x)
        d[x] = y + 1 < guide.rows ? table[size_t(std::abs(int(g[x]) - int(below[x])))] : 0.f;
    }
  });
}

/// One horizontal pass over rows y0 .. y0 + R - 1 of K images: the tridiagonal system of each row
/// (1 - lambda (c[x-1] + c[x])) u[x] + lambda c[x-1] u[x-1] + lambda c[x] u[x+1] = f[x] solved by
/// forward elimination and back substitution. `inter` holds R rows of scratch.
template <int K, int R>
void solveRows(const cv::Mat& across, cv::Mat* const* images, int y0, float lambda, float* inter_rows) {
  const int w = across.cols;
  const float* c[R];
  float* inter[R];
  float* u[K][R];
  for (int r = 0; r < R; ++r) {
    c[r] = across.ptr<float>(y0 + r);
    inter[r] = inter_rows + size_t(r) * size_t(w);
    for (int k = 0; k < K; ++k) u[k][r] = images[k]->ptr<float>(y0 + r);
  }
  for (int r = 0; r < R; ++r) {
    const float inv = 1.f / (1.f - lambda * c[r][0]);
    inter[r][0] = lambda * c[r][0] * inv;
    for (int k = 0; k < K; ++k) u[k][r][0] *= inv;
  }
  for (int x = 1; x < w; ++x) {
    for (int r = 0; r < R; ++r) {
      const float a = lambda * c[r][x - 1];
      const float inv = 1.f / (1.f - lambda * (c[r][x] + c[r][x - 1]) - a * inter[r][x - 1]);
      inter[r][x] = lambda * c[r][x] * inv;
      for (int k = 0; k < K; ++k) u[k][r][x] = (u[k][r][x] - a * u[k][r][x - 1]) * inv;
    }
  }
  for (int x = w - 2; x >= 0; --x)
    for (int r = 0; r < R; ++r)
      for (int k = 0; k < K; ++k) u[k][r][x] -= inter[r][x] * u[k][r][x + 1];
}

/// Nothing to do before a row is solved, or after.
struct NoRowStep {
  void operator()(int /*y*/) const {}
  void operator()(int /*y*/, int /*x0*/, int /*n*/) const {}
};

/// Rows y0 .. y1 - 1 (at most four) by the scalar solver.
template <int K>
void solveScalarRows(const cv::Mat& across, cv::Mat* const* images, int y0, int y1, float lambda, float* inter) {
  if (y1 - y0 == kRowsTogether) {
    solveRows<K, kRowsTogether>(across, images, y0, lambda, inter);
    return;
  }
  for (int y = y0; y < y1; ++y) solveRows<K, 1>(across, images, y, lambda, inter);
}

/// Whether the vector kernel of the horizontal pass runs here.
bool rowsVectorised() {
#if defined(PV_SMOOTHER_AVX512)
  return cpuRuns(CpuLevel::kAvx512);
#else
  return false;
#endif
}

/// Rows y0 .. y0 + 15 of two images by the vector kernel.
void solveSixteenRows(const cv::Mat& across, cv::Mat* const* images, int y0, float lambda, float* scratch) {
#if defined(PV_SMOOTHER_AVX512)
  const float* c[16];
  float *u0[16], *u1[16];
  for (int i = 0; i < 16; ++i) {
    c[i] = across.ptr<float>(y0 + i);
    u0[i] = images[0]->ptr<float>(y0 + i);
    u1[i] = images[1]->ptr<float>(y0 + i);
  }
  smoother_kernels::solveRows16x2(c, u0, u1, across.cols, lambda, scratch);
#else
  // A build without the kernel (rowsVectorised() is false there) solves them four at a time.
  for (int y = y0; y < y0 + 16; y += kRowsTogether)
    solveScalarRows<2>(across, images, y, y + kRowsTogether, lambda, scratch);
#endif
}

/// The horizontal pass; `prepare(y)` runs just before row y is solved (while the row is still in
/// the cache once solved).
template <int K, typename Prepare = NoRowStep>
void horizontalPass(const cv::Mat& across, cv::Mat* const* images, float lambda, bool vectorised,
                    const Prepare& prepare = {}) {
  // Two images go sixteen rows at a time through the vector kernel where it runs, the rows left
  // over (and other counts) through the scalar one, four rows side by side.
  constexpr int kSixteen = 16;
  const int rows_per_group = K == 2 && vectorised && rowsVectorised() ? kSixteen : kRowsTogether;
  const int groups = (across.rows + rows_per_group - 1) / rows_per_group;
  cv::parallel_for_(cv::Range(0, groups), [&](const cv::Range& range) {
    std::vector<float> inter(size_t(rows_per_group == kSixteen ? 3 * kSixteen : kRowsTogether) * size_t(across.cols));
    for (int g = range.start; g < range.end; ++g) {
      const int y_start = g * rows_per_group, y_end = std::min(y_start + rows_per_group, across.rows);
      for (int y = y_start; y < y_end; ++y) prepare(y);
      if (rows_per_group == kSixteen && y_end - y_start == kSixteen) {
        solveSixteenRows(across, images, y_start, lambda, inter.data());
        continue;
      }
      for (int y0 = y_start; y0 < y_end; y0 += kRowsTogether)
        solveScalarRows<K>(across, images, y0, std::min(y0 + kRowsTogether, y_end), lambda, inter.data());
    }
  });
}

// Forward elimination of one row of the vertical systems (every column at once): `c_up` couples
// the row above to this one, `c` this row to the one below.
PV_VECTOR_CLONES
void eliminateRow(const float* __restrict c_up, const float* __restrict c, const float* __restrict inter_up,
                  float* __restrict inter, float* __restrict inv_out, int n, float lambda) {
  for (int x = 0; x < n; ++x) {
    const float a = lambda * c_up[x];
    const float inv = 1.f / (1.f - lambda * (c[x] + c_up[x]) - a * inter_up[x]);
    inter[x] = lambda * c[x] * inv;
    inv_out[x] = inv;
  }
}

PV_VECTOR_CLONES
void forwardRow(const float* __restrict c_up, const float* __restrict inv, const float* __restrict u_up,
                float* __restrict u, int n, float lambda) {
  for (int x = 0; x < n; ++x) u[x] = (u[x] - lambda * c_up[x] * u_up[x]) * inv[x];
}

PV_VECTOR_CLONES
void backRow(const float* __restrict inter, const float* __restrict u_down, float* __restrict u, int n) {
  for (int x = 0; x < n; ++x) u[x] -= inter[x] * u_down[x];
}

/// The vertical pass, in blocks of columns; `finish(y, x0, n)` runs on the columns x0 .. x0 + n - 1
/// of row y as soon as they are final.
template <typename Finish = NoRowStep>
void verticalPass(const cv::Mat& down, cv::Mat* const* images, int count, float lambda, cv::Mat& inter,
                  const Finish& finish = {}) {
  const int h = down.rows, w = down.cols;
  // Blocks of at most kColumnBlock columns (a multiple of 16), as many as a multiple of the thread
  // count, so that the threads get about the same width.
  const int threads = std::max(1, cv::getNumThreads());
  const int wanted = threads * ((w + threads * kColumnBlock - 1) / (threads * kColumnBlock));
  const int block = std::min(kColumnBlock, ((w + wanted - 1) / wanted + 15) / 16 * 16);
  const int blocks = (w + block - 1) / block;
  cv::parallel_for_(cv::Range(0, blocks), [&](const cv::Range& range) {
    std::vector<float> inv(static_cast<size_t>(block));
    std::vector<float> zero(static_cast<size_t>(block), 0.f);
    for (int b = range.start; b < range.end; ++b) {
      const int x0 = b * block, n = std::min(block, w - x0);
      for (int y = 0; y < h; ++y) {
        const float* c_up = y > 0 ? down.ptr<float>(y - 1) + x0 : zero.data();
        const float* inter_up = y > 0 ? inter.ptr<float>(y - 1) + x0 : zero.data();
        eliminateRow(c_up, down.ptr<float>(y) + x0, inter_up, inter.ptr<float>(y) + x0, inv.data(), n, lambda);
        for (int k = 0; k < count; ++k) {
          float* u = images[k]->ptr<float>(y) + x0;
          const float* u_up = y > 0 ? images[k]->ptr<float>(y - 1) + x0 : zero.data();
          forwardRow(c_up, inv.data(), u_up, u, n, lambda);
        }
      }
      finish(h - 1, x0, n);
      for (int y = h - 2; y >= 0; --y) {
        for (int k = 0; k < count; ++k)
          backRow(inter.ptr<float>(y) + x0, images[k]->ptr<float>(y + 1) + x0, images[k]->ptr<float>(y) + x0, n);
        finish(y, x0, n);
      }
    }
  });
}

/// `num` = value * weight and `den` = weight (1 when `weight` is null), both 0 where the value is
/// NaN.
PV_VECTOR_CLONES
void weightRow(const float* __restrict values, const float* __restrict weight, int w, float* __restrict num,
               float* __restrict den) {
  for (int x = 0; x < w; ++x) {
    const bool valid = values[x] == values[x];
    den[x] = valid ? (weight ? weight[x] : 1.f) : 0.f;
    num[x] = valid ? values[x] * den[x] : 0.f;
  }
}

/// `out` = num / den, NaN where den < min_weight.
PV_VECTOR_CLONES
void divideRow(const float* __restrict num, const float* __restrict den, int n, float min_weight,
               float* __restrict out) {
  for (int x = 0; x < n; ++x) out[x] = den[x] < min_weight ? std::numeric_limits<float>::quiet_NaN() : num[x] / den[x];
}

/// The smoother's iterations on K images, lambda shrinking by `attenuation` after each;
/// `prepare` runs inside the first horizontal pass, `finish` inside the last vertical one.
template <int K, typename Prepare = NoRowStep, typename Finish = NoRowStep>
void runPasses(const cv::Mat& across, const cv::Mat& down, cv::Mat* const* images, float lambda, float attenuation,
               int iterations, bool vectorised, const Prepare& prepare = {}, const Finish& finish = {}) {
  cv::Mat inter(across.size(), CV_32F);
  for (int it = 0; it < iterations; ++it) {
    if (it == 0)
      horizontalPass<K>(across, images, lambda, vectorised, prepare);
    else
      horizontalPass<K>(across, images, lambda, vectorised);
    if (it + 1 == iterations)
      verticalPass(down, images, K, lambda, inter, finish);
    else
      verticalPass(down, images, K, lambda, inter);
    lambda *= attenuation;
  }
}

}  // namespace

GlobalSmoother::GlobalSmoother(const cv::Mat& guide_gray, double lambda, double sigma_color, double lambda_attenuation,
                               int iterations)
    : lambda_(static_cast<float>(lambda)),
      attenuation_(static_cast<float>(lambda_attenuation)),
      iterations_(std::max(1, iterations)) {
  CV_Assert(guide_gray.type() == CV_8UC1 && !guide_gray.empty() && lambda >= 0 && sigma_color > 0);
  pairWeights(guide_gray, sigma_color, across_, down_);
}

void GlobalSmoother::filter(cv::Mat* const* images, int count) const {
  for (int i = 0; i < count; ++i) CV_Assert(images[i]->type() == CV_32FC1 && images[i]->size() == across_.size());
  for (int first = 0; first < count; first += kMaxImages) {
    if (count - first >= 2)
      runPasses<2>(across_, down_, images + first, lambda_, attenuation_, iterations_, vectorised_);
    else
      runPasses<1>(across_, down_, images + first, lambda_, attenuation_, iterations_, vectorised_);
  }
}

cv::Mat GlobalSmoother::weightedMean(const cv::Mat& values, const cv::Mat& weight, float min_weight) const {
  CV_Assert(values.type() == CV_32FC1 && values.size() == across_.size());
  CV_Assert(weight.empty() || (weight.type() == CV_32FC1 && weight.size() == across_.size()));
  const int w = values.cols;
  cv::Mat num(values.size(), CV_32F), den(values.size(), CV_32F), out(values.size(), CV_32F);
  cv::Mat* both[] = {&num, &den};
  // The weighted values and their weights, made row by row just before the first pass solves them.
  const auto prepare = [&](int y) {
    weightRow(values.ptr<float>(y), weight.empty() ? nullptr : weight.ptr<float>(y), w, num.ptr<float>(y),
              den.ptr<float>(y));
  };
  const auto divide = [&](int y, int x0, int n) {
    divideRow(num.ptr<float>(y) + x0, den.ptr<float>(y) + x0, n, min_weight, out.ptr<float>(y) + x0);
  };
  runPasses<2>(across_, down_, both, lambda_, attenuation_, iterations_, vectorised_, prepare, divide);
  return out;
}

}  // namespace pv::internal
