// Marks a function whose loops vectorise for a second build with 256-bit vectors, chosen once when
// the library loads where the processor has them. No fused multiply-add in that build: every
// processor computes the same numbers.
#pragma once

// Not under TSan: the loader runs the clones' resolver before the sanitizer's runtime is up.
#if defined(__GNUC__) && defined(__x86_64__) && !defined(__SANITIZE_THREAD__)
#define PV_WIDE_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define PV_WIDE_VECTOR_CLONES
#endif
