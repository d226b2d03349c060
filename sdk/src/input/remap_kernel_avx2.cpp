// Rectification's resampling kernel compiled for AVX2 (x86-64-v3); the build sets this file's
// instruction set.
#define PV_REMAP_ISA remap_avx2
#include "input/internal/remap_kernel.inc"
