// What the running CPU's vector units can do. Kernels built for AVX2 or AVX-512 are chosen at run
// time, each only where this says the CPU runs it.
#pragma once

namespace pv::internal {

/// Instruction-set levels, each including the ones before it.
enum class CpuLevel {
  kBaseline,        ///< x86-64 (or anything else)
  kAvx2,            ///< x86-64-v3
  kAvx512,          ///< x86-64-v4
  kAvx512Popcount,  ///< x86-64-v4 with the vector bit count (AVX512_VPOPCNTDQ)
};

/// The running CPU's level, asked once (the baseline off x86-64 and where the compiler cannot ask).
CpuLevel cpuLevel();

/// The vector instructions the kernels use on this CPU, for people: "AVX-512", "AVX2",
/// "x86-64 baseline (SSE2)", "arm64 NEON" (every arm64 CPU has it; its kernels are the baseline ones).
const char* cpuLevelName();

inline bool cpuRuns(CpuLevel level) { return cpuLevel() >= level; }

}  // namespace pv::internal
