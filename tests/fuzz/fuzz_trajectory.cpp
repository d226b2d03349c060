// libFuzzer target for the trajectories `pavo eval traj` compares: the input is an estimate and,
// after a NUL byte, a reference, both in the TUM text format. Whatever both readers take is
// compared, or refused with a reason.
#include <cstdlib>
#include <cstring>

#include "fuzz_memory_file.h"
#include "tracking/internal/trajectory_eval.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static mapura::fuzz::MemoryFile estimate_file("fuzz-estimate"), reference_file("fuzz-reference");
  const void* nul = std::memchr(data, 0, size);
  const size_t first = nul ? size_t(static_cast<const uint8_t*>(nul) - data) : size;
  const size_t second_start = nul ? first + 1 : size;
  pv::internal::Trajectory estimate, reference;
  std::string error;
  if (!pv::internal::readTumTrajectory(estimate_file.fill(data, first), estimate, error)) {
    if (error.empty()) std::abort();
    return 0;
  }
  if (!pv::internal::readTumTrajectory(reference_file.fill(data + second_start, size - second_start), reference, error))
    return 0;
  pv::internal::TrajectoryErrors e;
  if (!pv::internal::evaluateTrajectory(estimate, reference, e, error)) {
    if (error.empty()) std::abort();
    return 0;
  }
  if (e.matched < 3) std::abort();
  return 0;
}
