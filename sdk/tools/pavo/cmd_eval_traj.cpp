// pavo eval traj TRAJ.txt GT.txt: trajectory errors of an estimate against ground truth.
#include <cstdio>

#include "command.h"
#include "tracking/internal/trajectory_eval.h"

namespace {

int runEvalTraj(int argc, char** argv) {
  const char* name = "eval traj";
  pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(name, args.error());
  if (args.positional().size() != 2) return pavo::usageError(name, "expected TRAJ.txt GT.txt");
  if (!args.unknown({"max-dt"}).empty())
    return pavo::usageError(name, "unknown option --" + args.unknown({"max-dt"})[0]);
  bool ok = true;
  const double max_dt = args.getNumber("max-dt", 0.02, &ok);
  if (!ok || max_dt <= 0) return pavo::usageError(name, "--max-dt needs a positive number of seconds");

  pv::internal::Trajectory estimate, reference;
  std::string error;
  if (!pv::internal::readTumTrajectory(args.positional()[0], estimate, error)) return pavo::failure(name, error);
  if (!pv::internal::readTumTrajectory(args.positional()[1], reference, error)) return pavo::failure(name, error);
  pv::internal::TrajectoryErrors e;
  if (!pv::internal::evaluateTrajectory(estimate, reference, e, error, max_dt)) return pavo::failure(name, error);
  std::printf("poses_matched %zu\n", e.matched);
  std::printf("ate_rmse_m %.6f\n", e.ate_rmse_m);
  std::printf("path_length_m %.4f\n", e.path_length_m);
  std::printf("ate_pct %.4f\n", e.ate_pct);
  std::printf("rpe_pct %.4f\n", e.rpe_pct);
  std::printf("rpe_segment_m %.4f\n", e.rpe_segment_m);
  return 0;
}

}  // namespace

PAVO_COMMAND("eval traj", "TRAJ.txt GT.txt [--max-dt S]",
             "trajectory error (TUM files): ATE after a rigid alignment without scale, RPE", runEvalTraj);
