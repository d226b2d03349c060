// Hot loops of the depth stages are written as plain C++ over short vectors; a function marked
// PV_VECTOR_CLONES is compiled for AVX-512, AVX2 and the x86-64 baseline, and the loader picks the
// best version for the running CPU. Helpers it calls are PV_INLINE, so they are compiled for the
// same instruction set as their caller.
#pragma once

// Not under ASan or TSan: the loader runs the clones' resolvers before the sanitizer's runtime is up.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)
#define PV_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define PV_VECTOR_CLONES
#endif
#define PV_INLINE inline __attribute__((always_inline))

// The vector helpers are always inlined into code compiled for one instruction set, so the
// calling-convention note about vector arguments does not apply.
#pragma GCC diagnostic ignored "-Wpsabi"
