// The semi-global matcher compiled for the x86-64 baseline or any other CPU; the build sets this file's instruction
// set.
#define PV_SGM_ISA sgm_baseline
#include "depth/internal/census_sgm_kernel.inc"
