// The rectification's bilinear kernel for AVX-512 (built with -march=x86-64-v4, run only where
// the CPU has it). Per 16 output pixels it gathers the two source rows' neighbour pairs (or, for
// BGRA, picks them out of a window of whole source rows loaded at once), blends them horizontally
// with byte multiply-adds and vertically with rounded 16-bit products: kernelBlend's numbers, the
// same bytes as the portable kernel (remap_kernel.inc), which fetches each pixel's neighbours one
// by one and on these CPUs is several times slower (bench_remap shows them side by side).
// GCC 12 takes the intrinsics' deliberately undefined start values for uninitialised reads.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>

#include <cstring>

#include "input/internal/remap_table.h"

namespace pv::internal::remap_kernels {

namespace {

// The gathers wait on memory unless the source lines are fetched early: this many output pixels
// ahead (the table runs on into the next row), the neighbours' lines are asked for.
constexpr int kPrefetchAhead = 192;
constexpr int kWindowsAhead = 6;  // the same for blocks read through windows

/// Asks for the lines of two source rows from pixel `at` (x | y << 16) on.
inline void prefetchRows(const uint8_t* src, uint32_t at, int step, int channels) {
  const char* p = reinterpret_cast<const char*>(src + (at >> 16) * size_t(step) + (at & 0xFFFF) * size_t(channels));
  _mm_prefetch(p, _MM_HINT_T0);
  _mm_prefetch(p + step, _MM_HINT_T0);
  if (channels == 4) {  // 16 BGRA pixels span two lines
    _mm_prefetch(p + 64, _MM_HINT_T0);
    _mm_prefetch(p + step + 64, _MM_HINT_T0);
  }
}

inline void prefetchSource(const uint32_t* xy, int x, ptrdiff_t left, const uint8_t* src, int step, int channels) {
  if (kPrefetchAhead < left) prefetchRows(src, xy[x + kPrefetchAhead], step, channels);
}

inline __m512i offsets(__m512i xy, int step, int channels) {
  const __m512i x = _mm512_and_si512(xy, _mm512_set1_epi32(0xFFFF));
  const __m512i y = _mm512_srli_epi32(xy, 16);
  return _mm512_add_epi32(_mm512_mullo_epi32(y, _mm512_set1_epi32(step)),
                          _mm512_mullo_epi32(x, _mm512_set1_epi32(channels)));
}

// top + (bottom - top) * fy / 32 in 16-bit lanes, then from 1/32 steps to grey levels.
inline __m512i blendVertical(__m512i top, __m512i bottom, __m512i fy_q15) {
  const __m512i r = _mm512_add_epi16(top, _mm512_mulhrs_epi16(_mm512_sub_epi16(bottom, top), fy_q15));
  return _mm512_srli_epi16(_mm512_add_epi16(r, _mm512_set1_epi16(16)), 5);
}

void grayRow(const uint32_t* xy, const uint8_t* fx, const uint8_t* fy, int width, ptrdiff_t left, const uint8_t* src,
             int step, uint8_t* dst) {
  const __m512i low_pair = _mm512_set1_epi32(0xFFFF), c32 = _mm512_set1_epi32(32);
  int x = 0;
  for (; x + 16 <= width; x += 16) {
    prefetchSource(xy, x, left - x, src, step, 1);
    const __m512i at = offsets(_mm512_loadu_si512(xy + x), step, 1);
    const __m512i top = _mm512_and_si512(_mm512_i32gather_epi32(at, src, 1), low_pair);
    const __m512i bottom = _mm512_and_si512(_mm512_i32gather_epi32(at, src + step, 1), low_pair);
    const __m512i wx = _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(fx + x)));
    const __m512i wy = _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(fy + x)));
    const __m512i weights = _mm512_or_si512(_mm512_sub_epi32(c32, wx), _mm512_slli_epi32(wx, 8));  // (32-fx, fx)
    const __m512i r = blendVertical(_mm512_maddubs_epi16(top, weights), _mm512_maddubs_epi16(bottom, weights),
                                    _mm512_slli_epi32(wy, 10));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm512_cvtepi32_epi8(r));
  }
  for (; x < width; ++x) {
    const uint8_t* p = src + (xy[x] >> 16) * size_t(step) + (xy[x] & 0xFFFF);
    dst[x] = uint8_t(kernelBlend(p[0], p[1], p[step], p[step + 1], fx[x], fy[x]));
  }
}

/// The neighbour pairs of a block of 16 pixels whose sources lie in one window (see
/// RemapTable::buildBlocks): the window's rows loaded whole, each pixel's pair picked out of them.
inline void windowPairs(const uint8_t* window, int step, const uint8_t* block_x, uint16_t lower, __m512i& p00,
                        __m512i& p01, __m512i& p10, __m512i& p11) {
  const __m512i at = _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block_x)));
  const __m512i next = _mm512_add_epi32(at, _mm512_set1_epi32(1));
  const uint8_t* row = window;
  __m512i a = _mm512_loadu_si512(row), b = _mm512_loadu_si512(row + 64);
  p00 = _mm512_permutex2var_epi32(a, at, b);
  p01 = _mm512_permutex2var_epi32(a, next, b);
  row += step;
  a = _mm512_loadu_si512(row), b = _mm512_loadu_si512(row + 64);
  p10 = _mm512_permutex2var_epi32(a, at, b);
  p11 = _mm512_permutex2var_epi32(a, next, b);
  if (!lower) return;
  // Pixels a row further down: their top row is the second one, their bottom row the third.
  p00 = _mm512_mask_mov_epi32(p00, lower, p10);
  p01 = _mm512_mask_mov_epi32(p01, lower, p11);
  row += step;
  a = _mm512_loadu_si512(row), b = _mm512_loadu_si512(row + 64);
  p10 = _mm512_mask_mov_epi32(p10, lower, _mm512_permutex2var_epi32(a, at, b));
  p11 = _mm512_mask_mov_epi32(p11, lower, _mm512_permutex2var_epi32(a, next, b));
}

enum class Out { kBgra, kBgrGray, kGray };

/// BGRA rows resampled into BGRA (`bgra`), or into BGR and grey at once (`bgr` and `gray`), or grey
/// alone: one pass over the source instead of three over the images.
template <Out kOut>
void bgraRow(const Tables& t, int y, const uint8_t* src, int step, uint8_t* bgra, uint8_t* bgr, uint8_t* gray) {
  const int width = t.width;
  const size_t first = size_t(y) * size_t(width);
  const uint32_t* xy = t.xy + first;
  const uint8_t *fx = t.fx + first, *fy = t.fy + first;
  const ptrdiff_t left = ptrdiff_t(t.height - y) * width;  // table entries from this row's start on
  const size_t first_block = size_t(y) * size_t(width / 16);
  const __m512i c32 = _mm512_set1_epi32(32), every_byte = _mm512_set1_epi32(0x01010101);
  const __m512i evens = _mm512_set_epi32(30, 28, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
  const __m512i odds = _mm512_set_epi32(31, 29, 27, 25, 23, 21, 19, 17, 15, 13, 11, 9, 7, 5, 3, 1);
  // Per pixel (four 16-bit lanes B, G, R, A) grayOfBgr's weights; per 128-bit lane the bytes of four
  // BGR pixels first.
  const __m512i gray_weights = _mm512_set1_epi64(int64_t(9798) << 32 | int64_t(19235) << 16 | 3735);
  const __m512i drop_alpha =
      _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  int x = 0;
  for (; x + 16 <= width; x += 16) {
    __m512i p00, p01, p10, p11;
    const size_t block = first_block + size_t(x / 16);
    const uint32_t window = t.block_at[block];
    if (window != kNoWindow) {
      if (x + 16 * kWindowsAhead + 16 <= width && t.block_at[block + kWindowsAhead] != kNoWindow)
        prefetchRows(src, t.block_at[block + kWindowsAhead], step, 4);
      windowPairs(src + (window >> 16) * size_t(step) + (window & 0xFFFF) * 4u, step, t.block_x + 16 * block,
                  t.block_lower[block], p00, p01, p10, p11);
    } else {
      prefetchSource(xy, x, left - x, src, step, 4);
      const __m512i at = offsets(_mm512_loadu_si512(xy + x), step, 4);
      const __m256i at0 = _mm512_castsi512_si256(at), at1 = _mm512_extracti64x4_epi64(at, 1);
      // Each 64-bit load brings a pixel and its right neighbour.
      const __m512i t0 = _mm512_i32gather_epi64(at0, src, 1), t1 = _mm512_i32gather_epi64(at1, src, 1);
      const __m512i b0 = _mm512_i32gather_epi64(at0, src + step, 1), b1 = _mm512_i32gather_epi64(at1, src + step, 1);
      p00 = _mm512_permutex2var_epi32(t0, evens, t1), p01 = _mm512_permutex2var_epi32(t0, odds, t1);
      p10 = _mm512_permutex2var_epi32(b0, evens, b1), p11 = _mm512_permutex2var_epi32(b0, odds, b1);
    }
    const __m512i wx = _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(fx + x)));
    const __m512i wy = _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(fy + x)));
    const __m512i w0 = _mm512_mullo_epi32(_mm512_sub_epi32(c32, wx), every_byte);
    const __m512i w1 = _mm512_mullo_epi32(wx, every_byte);
    const __m512i w_lo = _mm512_unpacklo_epi8(w0, w1), w_hi = _mm512_unpackhi_epi8(w0, w1);
    const __m512i top_lo = _mm512_maddubs_epi16(_mm512_unpacklo_epi8(p00, p01), w_lo);
    const __m512i top_hi = _mm512_maddubs_epi16(_mm512_unpackhi_epi8(p00, p01), w_hi);
    const __m512i bottom_lo = _mm512_maddubs_epi16(_mm512_unpacklo_epi8(p10, p11), w_lo);
    const __m512i bottom_hi = _mm512_maddubs_epi16(_mm512_unpackhi_epi8(p10, p11), w_hi);
    __m512i fy_q15 = _mm512_slli_epi32(wy, 10);
    fy_q15 = _mm512_or_si512(fy_q15, _mm512_slli_epi32(fy_q15, 16));  // both 16-bit halves
    // Pixels 0, 1 of each 128-bit lane's four in r_lo, 2, 3 in r_hi.
    const __m512i r_lo = blendVertical(top_lo, bottom_lo, _mm512_unpacklo_epi32(fy_q15, fy_q15));
    const __m512i r_hi = blendVertical(top_hi, bottom_hi, _mm512_unpackhi_epi32(fy_q15, fy_q15));
    const __m512i pixels = _mm512_packus_epi16(r_lo, r_hi);  // back in order
    if (kOut == Out::kBgra) {
      _mm512_storeu_si512(bgra + 4 * x, pixels);
      continue;
    }
    if (kOut == Out::kBgrGray) {
      const __m512i packed = _mm512_maskz_compress_epi32(0x7777, _mm512_shuffle_epi8(pixels, drop_alpha));
      _mm512_mask_storeu_epi8(bgr + 3 * x, (__mmask64(1) << 48) - 1, packed);
    }
    __m512i g_lo = _mm512_madd_epi16(r_lo, gray_weights), g_hi = _mm512_madd_epi16(r_hi, gray_weights);
    const __m512i round = _mm512_set1_epi64(16384);
    g_lo = _mm512_srli_epi64(_mm512_add_epi64(_mm512_add_epi32(g_lo, _mm512_srli_epi64(g_lo, 32)), round), 15);
    g_hi = _mm512_srli_epi64(_mm512_add_epi64(_mm512_add_epi32(g_hi, _mm512_srli_epi64(g_hi, 32)), round), 15);
    // The low byte of each 64-bit lane is the grey level (the rest of the high partial sum lies
    // above it). g_lo holds pixels 0,1,4,5,8,9,12,13, g_hi 2,3,6,7,...: interleave their pairs.
    const __m128i gray_lo = _mm512_cvtepi64_epi8(g_lo), gray_hi = _mm512_cvtepi64_epi8(g_hi);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(gray + x), _mm_unpacklo_epi16(gray_lo, gray_hi));
  }
  for (; x < width; ++x) {
    const uint8_t* p = src + (xy[x] >> 16) * size_t(step) + 4 * (xy[x] & 0xFFFF);
    uint8_t v[4];
    for (int c = 0; c < 4; ++c) v[c] = uint8_t(kernelBlend(p[c], p[4 + c], p[step + c], p[step + 4 + c], fx[x], fy[x]));
    if (kOut == Out::kBgra) {
      std::memcpy(bgra + 4 * x, v, 4);
      continue;
    }
    if (kOut == Out::kBgrGray) std::memcpy(bgr + 3 * x, v, 3);
    gray[x] = grayOfBgr(v[0], v[1], v[2]);
  }
}

}  // namespace

void avx512Rows(const Tables& t, const uint8_t* src, size_t src_step, int channels, uint8_t* dst, size_t dst_step,
                int y0, int y1) {
  for (int y = y0; y < y1; ++y) {
    const size_t at = size_t(y) * size_t(t.width);
    const ptrdiff_t left = ptrdiff_t(t.height - y) * t.width;  // table entries from this row's start on
    if (channels == 1)
      grayRow(t.xy + at, t.fx + at, t.fy + at, t.width, left, src, int(src_step), dst + size_t(y) * dst_step);
    else
      bgraRow<Out::kBgra>(t, y, src, int(src_step), dst + size_t(y) * dst_step, nullptr, nullptr);
  }
}

void avx512BgrGrayRows(const Tables& t, const uint8_t* src, size_t src_step, uint8_t* bgr, size_t bgr_step,
                       uint8_t* gray, size_t gray_step, int y0, int y1) {
  for (int y = y0; y < y1; ++y) {
    if (bgr)
      bgraRow<Out::kBgrGray>(t, y, src, int(src_step), nullptr, bgr + size_t(y) * bgr_step,
                             gray + size_t(y) * gray_step);
    else
      bgraRow<Out::kGray>(t, y, src, int(src_step), nullptr, nullptr, gray + size_t(y) * gray_step);
  }
}

}  // namespace pv::internal::remap_kernels
