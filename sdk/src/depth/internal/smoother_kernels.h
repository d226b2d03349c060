// The smoother's vector kernels (global_smoother_avx512.cpp), for CPUs with AVX-512.
#pragma once

namespace pv::internal::smoother_kernels {

/// The horizontal pass on 16 rows of two images at once: `across[i]`, `u0[i]` and `u1[i]` are
/// row i's coupling weights and values (w floats each; the values are solved in place), as in
/// GlobalSmoother's scalar pass. `scratch` holds 48 * w floats.
void solveRows16x2(const float* const* across, float* const* u0, float* const* u1, int w, float lambda, float* scratch);

}  // namespace pv::internal::smoother_kernels
