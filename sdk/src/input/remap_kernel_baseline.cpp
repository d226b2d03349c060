// Rectification's resampling kernel compiled for the x86-64 baseline (SSE2), for NEON on arm64, or
// for any other CPU; the build sets this file's instruction set.
#define PV_REMAP_ISA remap_baseline
#include "input/internal/remap_kernel.inc"
