#include "tracking/internal/optimisation.h"

#include <ceres/ceres.h>
#include <ceres/rotation.h>

#include <cmath>
#include <set>
#include <unordered_map>

namespace pv::internal {
namespace {

// Stereo reprojection of a world point into a keyframe: left (u, v) and right column.
struct StereoReprojection {
  StereoReprojection(const RectifiedCalibration& c, const Observation& o) : c_(c), o_(o) {}
  template <typename T>
  bool operator()(const T* pose, const T* point, T* residual) const {
    T p[3];
    ceres::AngleAxisRotatePoint(pose, point, p);
    p[0] += pose[3];
    p[1] += pose[4];
    p[2] += pose[5];
    if (p[2] < T(1e-6)) p[2] = T(1e-6);
    const T u = T(c_.fx) * p[0] / p[2] + T(c_.cx);
    const T v = T(c_.fy) * p[1] / p[2] + T(c_.cy);
    residual[0] = u - T(o_.u);
    residual[1] = v - T(o_.v);
    if (std::isfinite(o_.u_right))
      residual[2] = u - T(c_.fx * c_.baseline_m) / p[2] - T(o_.u_right);
    else
      residual[2] = T(0);
    return true;
  }
  RectifiedCalibration c_;
  Observation o_;
};

// Pose parameters: angle-axis of R_camera_world and t_camera_world.
void toParameters(const Eigen::Isometry3d& T_world_camera, double* x) {
  const Eigen::Isometry3d T_cw = T_world_camera.inverse();
  const Eigen::AngleAxisd aa(T_cw.linear());
  const Eigen::Vector3d w = aa.axis() * aa.angle();
  for (int i = 0; i < 3; ++i) {
    x[i] = w[i];
    x[3 + i] = T_cw.translation()[i];
  }
}
Eigen::Isometry3d fromParameters(const double* x) {
  const Eigen::Vector3d w(x[0], x[1], x[2]);
  Eigen::Isometry3d T_cw = Eigen::Isometry3d::Identity();
  const double angle = w.norm();
  if (angle > 1e-12) T_cw.linear() = Eigen::AngleAxisd(angle, w / angle).toRotationMatrix();
  T_cw.translation() = Eigen::Vector3d(x[3], x[4], x[5]);
  return T_cw.inverse();
}

double reprojectionError(const RectifiedCalibration& c, const Eigen::Isometry3d& T_world_camera,
                         const Eigen::Vector3d& p_world, const Observation& o) {
  const Eigen::Vector3d p = T_world_camera.inverse() * p_world;
  double u, v;
  if (!projectPoint(c, p, u, v)) return 1e9;
  double e2 = (u - o.u) * (u - o.u) + (v - o.v) * (v - o.v);
  if (std::isfinite(o.u_right)) {
    const double ur = u - c.fx * c.baseline_m / p.z();
    e2 = std::max(e2, (ur - o.u_right) * (ur - o.u_right));
  }
  return std::sqrt(e2);
}

// Pose-graph residual between two keyframes with poses (quaternion x y z w, translation).
struct RelativePose {
  RelativePose(const Eigen::Isometry3d& T, double w) : q_(T.linear()), t_(T.translation()), w_(w) {}
  template <typename T>
  bool operator()(const T* qa, const T* ta, const T* qb, const T* tb, T* r) const {
    Eigen::Map<const Eigen::Quaternion<T>> q_a(qa), q_b(qb);
    Eigen::Map<const Eigen::Matrix<T, 3, 1>> t_a(ta), t_b(tb);
    const Eigen::Quaternion<T> q_ab = q_a.conjugate() * q_b;
    const Eigen::Matrix<T, 3, 1> t_ab = q_a.conjugate() * (t_b - t_a);
    const Eigen::Quaternion<T> dq = q_.template cast<T>().conjugate() * q_ab;
    r[0] = T(2 * w_) * dq.x();
    r[1] = T(2 * w_) * dq.y();
    r[2] = T(2 * w_) * dq.z();
    const Eigen::Matrix<T, 3, 1> dt = t_ab - t_.template cast<T>();
    r[3] = T(w_) * dt.x();
    r[4] = T(w_) * dt.y();
    r[5] = T(w_) * dt.z();
    return true;
  }
  Eigen::Quaterniond q_;
  Eigen::Vector3d t_;
  double w_;
};

}  // namespace

int bundleAdjust(MapData& map, const RectifiedCalibration& c, const std::vector<int>& keyframe_ids, int fixed_count,
                 const BundleAdjustmentParameters& p) {
  std::set<int> active(keyframe_ids.begin(), keyframe_ids.end());
  std::unordered_map<int, std::array<double, 6>> poses;
  std::unordered_map<int, std::array<double, 3>> points;
  for (int id : keyframe_ids) {
    auto it = map.keyframes.find(id);
    if (it == map.keyframes.end()) continue;
    for (const Observation& o : it->second.observations) {
      auto lm = map.landmarks.find(o.landmark);
      if (lm == map.landmarks.end()) continue;
      points[o.landmark] = {lm->second.p_world.x(), lm->second.p_world.y(), lm->second.p_world.z()};
    }
  }
  if (points.empty()) return 0;

  ceres::Problem problem;
  ceres::LossFunction* loss = new ceres::HuberLoss(p.huber_px);
  ceres::Problem::Options unused;
  (void)unused;
  std::set<int> fixed;
  for (int k = 0; k < fixed_count && k < int(keyframe_ids.size()); ++k) fixed.insert(keyframe_ids[size_t(k)]);
  // Every keyframe observing an optimised landmark contributes; those outside the set are fixed.
  for (auto& [id, kf] : map.keyframes) {
    const bool inside = active.count(id) > 0;
    bool used = false;
    for (const Observation& o : kf.observations) {
      auto pt = points.find(o.landmark);
      if (pt == points.end()) continue;
      if (!used) {
        toParameters(kf.T_world_camera, poses[id].data());
        used = true;
      }
      auto* cost = new ceres::AutoDiffCostFunction<StereoReprojection, 3, 6, 3>(new StereoReprojection(c, o));
      problem.AddResidualBlock(cost, loss, poses[id].data(), pt->second.data());
    }
    if (used && (!inside || fixed.count(id))) problem.SetParameterBlockConstant(poses[id].data());
  }
  ceres::Solver::Options options;
  options.linear_solver_type = ceres::SPARSE_SCHUR;
  options.max_num_iterations = p.max_iterations;
  options.num_threads = p.threads;
  options.logging_type = ceres::SILENT;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &problem, &summary);

  for (auto& [id, x] : poses)
    if (active.count(id) && !fixed.count(id)) map.keyframes[id].T_world_camera = fromParameters(x.data());
  for (auto& [id, x] : points) map.landmarks[id].p_world = Eigen::Vector3d(x[0], x[1], x[2]);

  int dropped = 0;
  for (int id : keyframe_ids) {
    auto it = map.keyframes.find(id);
    if (it == map.keyframes.end()) continue;
    Keyframe& kf = it->second;
    std::vector<Observation> kept;
    cv::Mat kept_descriptors;
    for (size_t i = 0; i < kf.observations.size(); ++i) {
      const Observation& o = kf.observations[i];
      auto lm = map.landmarks.find(o.landmark);
      const bool good =
          lm != map.landmarks.end() && reprojectionError(c, kf.T_world_camera, lm->second.p_world, o) < p.outlier_px;
      if (good) {
        kept.push_back(o);
        if (!kf.descriptors.empty()) kept_descriptors.push_back(kf.descriptors.row(int(i)));
      } else {
        ++dropped;
        if (lm != map.landmarks.end() && --lm->second.observations <= 0) map.landmarks.erase(lm);
      }
    }
    kf.observations.swap(kept);
    if (!kf.descriptors.empty()) kf.descriptors = kept_descriptors;
  }
  return dropped;
}

std::vector<PoseEdge> odometryEdges(const MapData& map) {
  std::vector<PoseEdge> edges;
  const Keyframe* previous = nullptr;
  for (const auto& [id, kf] : map.keyframes) {
    // Between two local maps the relative pose is only the motion model's guess.
    const double weight = previous && previous->segment != kf.segment ? 1e-3 : 1.0;
    if (previous) edges.push_back({previous->id, id, previous->T_world_camera.inverse() * kf.T_world_camera, weight});
    previous = &kf;
  }
  return edges;
}

void optimisePoseGraph(MapData& map, const std::vector<PoseEdge>& edges, int fixed_id) {
  struct Block {
    std::array<double, 4> q;
    std::array<double, 3> t;
  };
  std::unordered_map<int, Block> blocks;
  std::unordered_map<int, Eigen::Isometry3d> before;
  for (const auto& [id, kf] : map.keyframes) {
    const Eigen::Quaterniond q(kf.T_world_camera.linear());
    blocks[id] = {{q.x(), q.y(), q.z(), q.w()},
                  {kf.T_world_camera.translation().x(), kf.T_world_camera.translation().y(),
                   kf.T_world_camera.translation().z()}};
    before[id] = kf.T_world_camera;
  }
  ceres::Problem problem;
  for (const PoseEdge& e : edges) {
    auto a = blocks.find(e.from), b = blocks.find(e.to);
    if (a == blocks.end() || b == blocks.end()) continue;
    auto* cost = new ceres::AutoDiffCostFunction<RelativePose, 6, 4, 3, 4, 3>(new RelativePose(e.T_from_to, e.weight));
    problem.AddResidualBlock(cost, nullptr, a->second.q.data(), a->second.t.data(), b->second.q.data(),
                             b->second.t.data());
  }
  for (auto& [id, b] : blocks) {
    if (!problem.HasParameterBlock(b.q.data())) continue;
    problem.SetManifold(b.q.data(), new ceres::EigenQuaternionManifold());
    if (id == fixed_id) {
      problem.SetParameterBlockConstant(b.q.data());
      problem.SetParameterBlockConstant(b.t.data());
    }
  }
  ceres::Solver::Options options;
  options.linear_solver_type = ceres::SPARSE_NORMAL_CHOLESKY;
  options.max_num_iterations = 50;
  options.logging_type = ceres::SILENT;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &problem, &summary);

  for (auto& [id, b] : blocks) {
    Eigen::Isometry3d T = Eigen::Isometry3d::Identity();
    T.linear() = Eigen::Quaterniond(b.q[3], b.q[0], b.q[1], b.q[2]).normalized().toRotationMatrix();
    T.translation() = Eigen::Vector3d(b.t[0], b.t[1], b.t[2]);
    map.keyframes[id].T_world_camera = T;
  }
  // Landmarks move rigidly with the first keyframe that observed them.
  std::unordered_map<int, int> first_seen;
  for (const auto& [id, kf] : map.keyframes)
    for (const Observation& o : kf.observations) first_seen.emplace(o.landmark, id);
  for (auto& [lid, lm] : map.landmarks) {
    auto f = first_seen.find(lid);
    if (f == first_seen.end()) continue;
    lm.p_world = map.keyframes[f->second].T_world_camera * (before[f->second].inverse() * lm.p_world);
  }
}

}  // namespace pv::internal
