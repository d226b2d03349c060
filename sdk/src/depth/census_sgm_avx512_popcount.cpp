// The semi-global matcher compiled for AVX-512 with the bit-count instruction; the build sets this
// file's instruction set.
#define PV_SGM_ISA sgm_avx512_popcount
#include "depth/internal/census_sgm_kernel.inc"
