// The refinement's offset costs for AVX-512 with the bit-count instruction (built for it, run only
// where the CPU has it): 16 pixels at a time, the right census words of each offset gathered, their
// distances to the left words counted in one instruction.
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
    for (int k = 0; k < 2 * radius + 1; ++k) {
      const __m512i d = _mm512_add_epi32(first, _mm512_set1_epi32(k)), xr = _mm512_sub_epi32(xs, d);
      const __mmask16 inside = _mm512_mask_cmpge_epi32_mask(_mm512_mask_cmpge_epi32_mask(known, d, zero), xr, zero);
      const __m512i word = _mm512_mask_i32gather_epi32(zero, inside, xr, right, 4);
      const __m512i cost = _mm512_popcnt_epi32(_mm512_xor_si512(l, word));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(rows[k] + x),
                       _mm512_cvtepi32_epi8(_mm512_mask_blend_epi32(inside, unmatched, cost)));
    }
  }
  return x;
}

}  // namespace pv::internal::refine_kernels
