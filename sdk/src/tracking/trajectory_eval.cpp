#include "tracking/internal/trajectory_eval.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "mesh/internal/file_util.h"

namespace pv::internal {

bool readTumTrajectory(const std::string& path, Trajectory& trajectory, std::string& error) {
  trajectory.clear();
  std::ifstream in(path);
  if (!in) {
    error = "cannot read " + path;
    return false;
  }
  std::string line;
  int line_number = 0;
  while (std::getline(in, line)) {
    ++line_number;
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    std::istringstream words(line);
    double v[8];
    for (double& x : v) words >> x;
    std::string rest;
    if (!words || (words >> rest && !rest.empty())) {
      error = path + ":" + std::to_string(line_number) + ": expected 8 numbers (t tx ty tz qx qy qz qw)";
      return false;
    }
    Eigen::Quaterniond q(v[7], v[4], v[5], v[6]);
    if (!std::isfinite(q.norm()) || q.norm() < 1e-6) {
      error = path + ":" + std::to_string(line_number) + ": invalid quaternion";
      return false;
    }
    StampedPose pose;
    pose.t_s = v[0];
    pose.T_world_camera.linear() = q.normalized().toRotationMatrix();
    pose.T_world_camera.translation() = Eigen::Vector3d(v[1], v[2], v[3]);
    trajectory.push_back(pose);
  }
  return true;
}

bool writeTumTrajectory(const std::string& path, const Trajectory& trajectory, std::string& error) {
  const FileResult r = writeFileAtomically(path, [&](const std::string& temporary) {
    OutputFile out(temporary);
    out.text("# timestamp tx ty tz qx qy qz qw\n");
    char buffer[256];
    for (const StampedPose& p : trajectory) {
      const Eigen::Quaterniond q(p.T_world_camera.linear());
      const Eigen::Vector3d t = p.T_world_camera.translation();
      const int n = std::snprintf(buffer, sizeof buffer, "%.9f %.6f %.6f %.6f %.9f %.9f %.9f %.9f\n", p.t_s, t.x(),
                                  t.y(), t.z(), q.x(), q.y(), q.z(), q.w());
      out.write(buffer, size_t(std::clamp(n, 0, int(sizeof buffer) - 1)));
    }
    return out.close();
  });
  if (!r.ok) error = r.error;
  return r.ok;
}

std::vector<std::pair<size_t, size_t>> associateByTime(const Trajectory& estimate, const Trajectory& reference,
                                                       double max_dt_s) {
  std::vector<size_t> order(reference.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return reference[a].t_s < reference[b].t_s; });
  std::vector<std::pair<size_t, size_t>> pairs;
  for (size_t i = 0; i < estimate.size(); ++i) {
    const double t = estimate[i].t_s;
    auto it = std::lower_bound(order.begin(), order.end(), t,
                               [&](size_t idx, double value) { return reference[idx].t_s < value; });
    size_t best = reference.size();
    double best_dt = max_dt_s;
    for (auto c : {it, it == order.begin() ? it : it - 1}) {
      if (c == order.end()) continue;
      const double dt = std::abs(reference[*c].t_s - t);
      if (dt <= best_dt) {
        best_dt = dt;
        best = *c;
      }
    }
    if (best < reference.size()) pairs.emplace_back(i, best);
  }
  return pairs;
}

Eigen::Isometry3d alignRigid(const std::vector<Eigen::Vector3d>& from, const std::vector<Eigen::Vector3d>& to) {
  Eigen::Isometry3d T = Eigen::Isometry3d::Identity();
  const size_t n = std::min(from.size(), to.size());
  if (n == 0) return T;
  Eigen::Matrix3Xd a(3, n), b(3, n);
  for (size_t i = 0; i < n; ++i) {
    a.col(i) = from[i];
    b.col(i) = to[i];
  }
  if (n < 3) {  // too few points for a rotation: translate only
    T.translation() = b.rowwise().mean() - a.rowwise().mean();
    return T;
  }
  T.matrix() = Eigen::umeyama(a, b, false);
  return T;
}

bool evaluateTrajectory(const Trajectory& estimate, const Trajectory& reference, TrajectoryErrors& errors,
                        std::string& error, double max_dt_s) {
  errors = TrajectoryErrors();
  const auto pairs = associateByTime(estimate, reference, max_dt_s);
  if (pairs.size() < 3) {
    error = "only " + std::to_string(pairs.size()) + " poses match in time (need 3)";
    return false;
  }
  std::vector<Eigen::Vector3d> est, ref;
  for (const auto& [i, j] : pairs) {
    est.push_back(estimate[i].T_world_camera.translation());
    ref.push_back(reference[j].T_world_camera.translation());
  }
  const Eigen::Isometry3d T_ref_est = alignRigid(est, ref);
  double sum_sq = 0;
  for (size_t k = 0; k < est.size(); ++k) sum_sq += (T_ref_est * est[k] - ref[k]).squaredNorm();
  errors.matched = pairs.size();
  errors.ate_rmse_m = std::sqrt(sum_sq / double(est.size()));

  std::vector<double> along(ref.size(), 0.0);  // distance along the reference path
  for (size_t k = 1; k < ref.size(); ++k) along[k] = along[k - 1] + (ref[k] - ref[k - 1]).norm();
  errors.path_length_m = along.back();
  errors.ate_pct = errors.path_length_m > 0 ? 100.0 * errors.ate_rmse_m / errors.path_length_m : 0.0;

  const double segment = std::max(0.1, errors.path_length_m / 10.0);
  errors.rpe_segment_m = segment;
  double rpe_sum = 0;
  int rpe_count = 0;
  size_t j = 0;
  for (size_t i = 0; i < ref.size(); ++i) {
    j = std::max(j, i + 1);
    while (j < ref.size() && along[j] - along[i] < segment) ++j;
    if (j >= ref.size()) break;
    const Eigen::Isometry3d& gi = reference[pairs[i].second].T_world_camera;
    const Eigen::Isometry3d& gj = reference[pairs[j].second].T_world_camera;
    const Eigen::Isometry3d& ei = estimate[pairs[i].first].T_world_camera;
    const Eigen::Isometry3d& ej = estimate[pairs[j].first].T_world_camera;
    const Eigen::Isometry3d delta = (gi.inverse() * gj).inverse() * (ei.inverse() * ej);
    rpe_sum += delta.translation().norm() / (along[j] - along[i]);
    ++rpe_count;
  }
  errors.rpe_pct = rpe_count > 0 ? 100.0 * rpe_sum / rpe_count : 0.0;
  return true;
}

}  // namespace pv::internal
