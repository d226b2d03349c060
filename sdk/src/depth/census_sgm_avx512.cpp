// The semi-global matcher compiled for AVX-512 (x86-64-v4); the build sets this file's instruction set.
#define PV_SGM_ISA sgm_avx512
#include "depth/internal/census_sgm_kernel.inc"
