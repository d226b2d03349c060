// The smoother's horizontal pass for AVX-512 (built for it, run only where the CPU has it): each row's
// tridiagonal system is a chain along the row, so sixteen rows are solved side by side, one per
// vector lane. Tiles of 16 x 16 pixels are turned around in the registers on the way in and out;
// in between, the elimination keeps its columns (16 rows each) in a scratch buffer.
// The arithmetic is that of the scalar pass, operation by operation (this file is built without
// fused multiply-adds), so both give the same numbers.
// GCC 12 takes the intrinsics' deliberately undefined start values for uninitialised reads.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>

#include "depth/internal/smoother_kernels.h"

namespace pv::internal::smoother_kernels {

namespace {

/// Transposes the 16 x 16 floats of `r` (r[i] holds row i) in place.
inline void transpose16(__m512 r[16]) {
  __m512 t[16];
  for (int i = 0; i < 16; i += 2) {
    t[i] = _mm512_unpacklo_ps(r[i], r[i + 1]);
    t[i + 1] = _mm512_unpackhi_ps(r[i], r[i + 1]);
  }
  for (int i = 0; i < 16; i += 4) {
    r[i] = _mm512_castpd_ps(_mm512_unpacklo_pd(_mm512_castps_pd(t[i]), _mm512_castps_pd(t[i + 2])));
    r[i + 1] = _mm512_castpd_ps(_mm512_unpackhi_pd(_mm512_castps_pd(t[i]), _mm512_castps_pd(t[i + 2])));
    r[i + 2] = _mm512_castpd_ps(_mm512_unpacklo_pd(_mm512_castps_pd(t[i + 1]), _mm512_castps_pd(t[i + 3])));
    r[i + 3] = _mm512_castpd_ps(_mm512_unpackhi_pd(_mm512_castps_pd(t[i + 1]), _mm512_castps_pd(t[i + 3])));
  }
  // Each 128-bit lane k of r[i] now holds 4 consecutive columns of one row group; gather lanes.
  for (int i = 0; i < 4; ++i) {
    t[i] = _mm512_shuffle_f32x4(r[i], r[i + 4], 0x88);
    t[i + 4] = _mm512_shuffle_f32x4(r[i], r[i + 4], 0xdd);
    t[i + 8] = _mm512_shuffle_f32x4(r[i + 8], r[i + 12], 0x88);
    t[i + 12] = _mm512_shuffle_f32x4(r[i + 8], r[i + 12], 0xdd);
  }
  for (int i = 0; i < 4; ++i) {
    r[i] = _mm512_shuffle_f32x4(t[i], t[i + 8], 0x88);
    r[i + 8] = _mm512_shuffle_f32x4(t[i], t[i + 8], 0xdd);
    r[i + 4] = _mm512_shuffle_f32x4(t[i + 4], t[i + 12], 0x88);
    r[i + 12] = _mm512_shuffle_f32x4(t[i + 4], t[i + 12], 0xdd);
  }
}

/// Columns x0 .. x0 + n - 1 of 16 rows (`rows[i]` the i-th row) as 16 column vectors (lane i from
/// row i); columns past n are 0.
inline void loadColumns(const float* const* rows, int x0, int n, __m512 out[16]) {
  const __mmask16 valid = static_cast<__mmask16>(n >= 16 ? 0xffff : (1u << n) - 1);
  for (int i = 0; i < 16; ++i) out[i] = _mm512_maskz_loadu_ps(valid, rows[i] + x0);
  transpose16(out);
}

/// The inverse of loadColumns.
inline void storeColumns(__m512 in[16], int x0, int n, float* const* rows) {
  const __mmask16 valid = static_cast<__mmask16>(n >= 16 ? 0xffff : (1u << n) - 1);
  transpose16(in);
  for (int i = 0; i < 16; ++i) _mm512_mask_storeu_ps(rows[i] + x0, valid, in[i]);
}

}  // namespace

void solveRows16x2(const float* const* across, float* const* u0, float* const* u1, int w, float lambda,
                   float* scratch) {
  // Per column x: inter, u0, u1 (16 floats each) after the forward elimination.
  float* inter_col = scratch;
  float* u0_col = scratch + size_t(16) * size_t(w);
  float* u1_col = scratch + size_t(32) * size_t(w);
  const __m512 one = _mm512_set1_ps(1.f), vl = _mm512_set1_ps(lambda);
  __m512 c_prev = _mm512_setzero_ps(), inter_prev = _mm512_setzero_ps();
  __m512 a_prev = _mm512_setzero_ps(), b_prev = _mm512_setzero_ps();
  __m512 c[16], a[16], b[16];
  for (int x0 = 0; x0 < w; x0 += 16) {
    const int n = w - x0 < 16 ? w - x0 : 16;
    loadColumns(across, x0, n, c);
    loadColumns(u0, x0, n, a);
    loadColumns(u1, x0, n, b);
    for (int j = 0; j < n; ++j) {
      // a_lambda = lambda * c[x - 1]; inv = 1 / (1 - lambda * (c[x] + c[x - 1]) - a_lambda * inter[x - 1])
      const __m512 coupling = _mm512_mul_ps(vl, c_prev);
      const __m512 diagonal = _mm512_sub_ps(_mm512_sub_ps(one, _mm512_mul_ps(vl, _mm512_add_ps(c[j], c_prev))),
                                            _mm512_mul_ps(coupling, inter_prev));
      const __m512 inv = _mm512_div_ps(one, diagonal);
      inter_prev = _mm512_mul_ps(_mm512_mul_ps(vl, c[j]), inv);
      a_prev = _mm512_mul_ps(_mm512_sub_ps(a[j], _mm512_mul_ps(coupling, a_prev)), inv);
      b_prev = _mm512_mul_ps(_mm512_sub_ps(b[j], _mm512_mul_ps(coupling, b_prev)), inv);
      c_prev = c[j];
      const size_t x = size_t(x0 + j) * 16;
      _mm512_storeu_ps(inter_col + x, inter_prev);
      _mm512_storeu_ps(u0_col + x, a_prev);
      _mm512_storeu_ps(u1_col + x, b_prev);
    }
  }
  // Back substitution from the right end, the finished columns turned back into rows tile by tile.
  const int last_tile = (w - 1) / 16 * 16;
  __m512 next_a = _mm512_setzero_ps(), next_b = _mm512_setzero_ps();
  for (int x0 = last_tile; x0 >= 0; x0 -= 16) {
    const int n = w - x0 < 16 ? w - x0 : 16;
    for (int j = n - 1; j >= 0; --j) {
      const size_t x = size_t(x0 + j) * 16;
      a[j] = _mm512_loadu_ps(u0_col + x);
      b[j] = _mm512_loadu_ps(u1_col + x);
      if (x0 + j < w - 1) {
        const __m512 inter = _mm512_loadu_ps(inter_col + x);
        a[j] = _mm512_sub_ps(a[j], _mm512_mul_ps(inter, next_a));
        b[j] = _mm512_sub_ps(b[j], _mm512_mul_ps(inter, next_b));
      }
      next_a = a[j];
      next_b = b[j];
    }
    for (int j = n; j < 16; ++j) a[j] = b[j] = _mm512_setzero_ps();
    storeColumns(a, x0, n, u0);
    storeColumns(b, x0, n, u1);
  }
}

}  // namespace pv::internal::smoother_kernels
