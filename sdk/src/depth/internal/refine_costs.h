// The refinement's offset costs (disparity_refinement.cpp): the Hamming distance between each
// left census word and the right word at the pixel's prior disparity + k - radius, for every
// offset k, one byte per pixel and offset.
#pragma once

#include <cstdint>

namespace pv::internal::refine_kernels {

constexpr uint8_t kMaxCost = 31;      // the census word's length: no match at all
constexpr uint8_t kNeutralCost = 16;  // pixels without a prior: no preference

/// The vector kernel (refine_costs_avx512.cpp) on pixels 0 .. n - 1 of a row, n the largest
/// multiple of 16 within `width`; returns n. Only for CPUs with AVX-512 and its bit count.
int offsetCostsAvx512(const uint32_t* left, const uint32_t* right, const float* prior, int width, int radius,
                      uint8_t* const* rows);

}  // namespace pv::internal::refine_kernels
