// The refinement's offset costs for AVX-512 with the bit-count instruction (built for it, run only
// where the CPU has it): 16 pixels at a time, the right census words of each offset picked out of a
// window of 32 (or gathered where the priors are too far apart), their distances to the left words
// counted in one instruction.
// GCC 12 takes the intrinsics' deliberately undefined start values for uninitialised reads.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>

#include <cstdint>

#include "depth/internal/refine_costs.h"

namespace pv::internal::refine_kernels {

int offsetCostsAvx512(const uint32_t* left, const uint32_t* right, const float* prior, int width, int radius,
                      uint8_t* const* rows) {
  const __m512i iota = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const __m512i zero = _mm512_setzero_si512();
  int x = 0;
  for (; x + 16 <= width; x += 16) {
    const __m512 p = _mm512_loadu_ps(prior + x);
    const __mmask16 known = _mm512_cmp_ps_mask(p, p, _CMP_ORD_Q);
    // Lanes without a prior hold garbage here; `known` keeps them out.
    const __m512i first =
        _mm512_sub_epi32(_mm512_cvttps_epi32(_mm512_add_ps(p, _mm512_set1_ps(0.5f))), _mm512_set1_epi32(radius));
    const __m512i xs = _mm512_add_epi32(_mm512_set1_epi32(x), iota);
    const __m512i l = _mm512_loadu_si512(left + x);
    const __m512i unmatched =
        _mm512_mask_blend_epi32(known, _mm512_set1_epi32(kNeutralCost), _mm512_set1_epi32(kMaxCost));
    // Where the priors of the 16 pixels lie close together (a smooth surface), all the right words
    // they need lie within 32 from `base`: two loads and a permute per offset replace the gathers.
    const int K = 2 * radius + 1;
    const int highest = known ? _mm512_mask_reduce_max_epi32(known, first) : 0;
    const int lowest = known ? _mm512_mask_reduce_min_epi32(known, first) : 0;
    const int base = x - highest - (K - 1);
    const bool window = known && highest - lowest + K - 1 <= 16 && base >= 0;
    __m512i low_words = zero, high_words = zero, at = zero;
    if (window) {
      const auto loadable = [&](int from) {
        const int n = width - from;
        return static_cast<__mmask16>(n >= 16 ? 0xffff : (n <= 0 ? 0 : (1u << n) - 1));
      };
      low_words = _mm512_maskz_loadu_epi32(loadable(base), right + base);
      high_words = _mm512_maskz_loadu_epi32(loadable(base + 16), right + base + 16);
      // Lane i at offset k reads right[x + i - first_i - k], that is window entry `at` - k.
      at = _mm512_add_epi32(_mm512_sub_epi32(iota, first), _mm512_set1_epi32(highest + K - 1));
    }
    for (int k = 0; k < K; ++k) {
      const __m512i d = _mm512_add_epi32(first, _mm512_set1_epi32(k)), xr = _mm512_sub_epi32(xs, d);
      const __mmask16 inside = _mm512_mask_cmpge_epi32_mask(_mm512_mask_cmpge_epi32_mask(known, d, zero), xr, zero);
      const __m512i word =
          window ? _mm512_permutex2var_epi32(low_words, _mm512_sub_epi32(at, _mm512_set1_epi32(k)), high_words)
                 : _mm512_mask_i32gather_epi32(zero, inside, xr, right, 4);
      const __m512i cost = _mm512_popcnt_epi32(_mm512_xor_si512(l, word));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(rows[k] + x),
                       _mm512_cvtepi32_epi8(_mm512_mask_blend_epi32(inside, unmatched, cost)));
    }
  }
  return x;
}

}  // namespace pv::internal::refine_kernels
