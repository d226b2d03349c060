// The semi-global matcher compiled for AVX2 (x86-64-v3); the build sets this file's instruction set.
#define PV_SGM_ISA sgm_avx2
#include "depth/internal/census_sgm_kernel.inc"
