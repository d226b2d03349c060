// Prints the trajectory errors of an estimate against ground truth on one line.
#pragma once

#include <cstdio>
#include <string>

#include "tracking/internal/trajectory_eval.h"

namespace mapura::bench {

inline void printTrajectoryErrors(const char* label, const pv::internal::Trajectory& estimate,
                                  const pv::internal::Trajectory& reference) {
  pv::internal::TrajectoryErrors e;
  std::string error;
  if (!pv::internal::evaluateTrajectory(estimate, reference, e, error)) {
    std::printf("%s: %s\n", label, error.c_str());
    return;
  }
  std::printf("%s: matched %zu ate_rmse_m %.4f path_length_m %.3f ate_pct %.3f rpe_pct %.3f\n", label, e.matched,
              e.ate_rmse_m, e.path_length_m, e.ate_pct, e.rpe_pct);
}

}  // namespace mapura::bench
