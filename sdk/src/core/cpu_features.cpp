#include "core/internal/cpu_features.h"

namespace pv::internal {

CpuLevel cpuLevel() {
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
  static const CpuLevel level = [] {
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("x86-64-v3")) return CpuLevel::kBaseline;
    if (!__builtin_cpu_supports("x86-64-v4")) return CpuLevel::kAvx2;
    return __builtin_cpu_supports("avx512vpopcntdq") ? CpuLevel::kAvx512Popcount : CpuLevel::kAvx512;
  }();
  return level;
#else
  return CpuLevel::kBaseline;
#endif
}

const char* cpuLevelName() {
  switch (cpuLevel()) {
    case CpuLevel::kAvx512Popcount: return "AVX-512 with VPOPCNTDQ";
    case CpuLevel::kAvx512: return "AVX-512";
    case CpuLevel::kAvx2: return "AVX2";
    case CpuLevel::kBaseline: break;
  }
#if defined(__x86_64__)
  return "x86-64 baseline (SSE2)";
#elif defined(__aarch64__) && defined(__ARM_NEON)
  return "arm64 NEON";
#else
  return "baseline (no vector kernels for this CPU)";
#endif
}

}  // namespace pv::internal
