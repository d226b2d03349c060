#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "test_utils.h"
#include "tracking/internal/trajectory_eval.h"

using namespace pv::internal;

namespace {

Trajectory straightLine(int n, double step_m) {
  Trajectory t;
  for (int i = 0; i < n; ++i) {
    StampedPose p;
    p.t_s = 0.1 * i;
    p.T_world_camera.translation() = Eigen::Vector3d(step_m * i, 0.05 * std::sin(0.3 * i), 0.02 * i);
    p.T_world_camera.linear() = Eigen::AngleAxisd(0.01 * i, Eigen::Vector3d::UnitY()).toRotationMatrix();
    t.push_back(p);
  }
  return t;
}

}  // namespace

TEST(TrajectoryEval, TumFilesRoundTripAndRejectMalformedLines) {
  const std::string dir = mapura::test::scratchDir("tum");
  const Trajectory original = straightLine(20, 0.1);
  std::string error;
  ASSERT_TRUE(writeTumTrajectory(dir + "/t.txt", original, error)) << error;
  // Eight numbers per line, in the order t tx ty tz qx qy qz qw.
  std::ifstream in(dir + "/t.txt");
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line[0], '#');
  std::getline(in, line);
  std::istringstream words(line);
  std::vector<double> v{std::istream_iterator<double>(words), std::istream_iterator<double>()};
  ASSERT_EQ(v.size(), 8u);
  std::getline(in, line);  // the second pose
  words = std::istringstream(line);
  v.assign(std::istream_iterator<double>(words), std::istream_iterator<double>());
  ASSERT_EQ(v.size(), 8u);
  EXPECT_NEAR(v[0], original[1].t_s, 1e-9);
  EXPECT_NEAR(v[1], original[1].T_world_camera.translation().x(), 1e-6);
  const Eigen::Quaterniond q(original[1].T_world_camera.linear());
  EXPECT_NEAR(v[5], q.y(), 1e-9);
  EXPECT_NEAR(v[7], q.w(), 1e-9);

  Trajectory read;
  ASSERT_TRUE(readTumTrajectory(dir + "/t.txt", read, error)) << error;
  ASSERT_EQ(read.size(), original.size());
  for (size_t i = 0; i < read.size(); ++i)
    EXPECT_TRUE(read[i].T_world_camera.isApprox(original[i].T_world_camera, 1e-5));

  std::ofstream(dir + "/bad.txt") << "0 1 2 3 0 0 0 1\n0.1 1 2 3 0 0\n";
  EXPECT_FALSE(readTumTrajectory(dir + "/bad.txt", read, error));
  EXPECT_NE(error.find(":2"), std::string::npos) << error;
  std::ofstream(dir + "/zero_q.txt") << "0 1 2 3 0 0 0 0\n";
  EXPECT_FALSE(readTumTrajectory(dir + "/zero_q.txt", read, error));
  EXPECT_FALSE(readTumTrajectory(dir + "/missing.txt", read, error));
  EXPECT_FALSE(writeTumTrajectory(dir + "/no/such/dir/t.txt", original, error));
}

TEST(TrajectoryEval, AlignmentRemovesARigidMotionButNotScale) {
  const Trajectory reference = straightLine(50, 0.1);
  Eigen::Isometry3d T = Eigen::Isometry3d::Identity();
  T.linear() = Eigen::AngleAxisd(0.7, Eigen::Vector3d(1, 2, 3).normalized()).toRotationMatrix();
  T.translation() = Eigen::Vector3d(4, -2, 9);
  Trajectory moved = reference;
  for (auto& p : moved) p.T_world_camera = T * p.T_world_camera;
  TrajectoryErrors e;
  std::string error;
  ASSERT_TRUE(evaluateTrajectory(moved, reference, e, error)) << error;
  EXPECT_EQ(e.matched, 50u);
  EXPECT_LT(e.ate_rmse_m, 1e-9);
  EXPECT_LT(e.rpe_pct, 1e-6);
  EXPECT_NEAR(
      e.path_length_m,
      [&] {
        double len = 0;
        for (size_t i = 1; i < reference.size(); ++i)
          len += (reference[i].T_world_camera.translation() - reference[i - 1].T_world_camera.translation()).norm();
        return len;
      }(),
      1e-9);

  // A scaled copy keeps an error: the alignment has no scale.
  Trajectory scaled = reference;
  for (auto& p : scaled) p.T_world_camera.translation() *= 1.1;
  ASSERT_TRUE(evaluateTrajectory(scaled, reference, e, error));
  EXPECT_GT(e.ate_pct, 0.5);
  EXPECT_NEAR(e.rpe_pct, 10.0, 1.0);  // every segment is 10 % too long
}

TEST(TrajectoryEval, AteOfAKnownOffsetPattern) {
  // Alternating +-d offsets across a straight path: the best alignment leaves an RMSE of about d
  // (a tiny tilt of the alternating pattern is all a rotation can win).
  Trajectory reference, estimate;
  const double d = 0.03;
  for (int i = 0; i < 100; ++i) {
    StampedPose p;
    p.t_s = i * 0.05;
    p.T_world_camera.translation() = Eigen::Vector3d(0.05 * i, 0, 0);
    reference.push_back(p);
    p.T_world_camera.translation().z() = (i % 2 ? d : -d);
    estimate.push_back(p);
  }
  TrajectoryErrors e;
  std::string error;
  ASSERT_TRUE(evaluateTrajectory(estimate, reference, e, error));
  EXPECT_NEAR(e.ate_rmse_m, d, 1e-5);
  EXPECT_NEAR(e.ate_pct, 100.0 * d / (0.05 * 99), 1e-3);
}

TEST(TrajectoryEval, AssociationByTimestamp) {
  Trajectory reference = straightLine(10, 0.1), estimate;
  for (int i = 0; i < 10; ++i) {
    StampedPose p = reference[size_t(i)];
    p.t_s += (i % 2) ? 0.004 : 0.05;  // odd ones close, even ones too far
    estimate.push_back(p);
  }
  const auto pairs = associateByTime(estimate, reference, 0.01);
  ASSERT_EQ(pairs.size(), 5u);
  for (const auto& [e, r] : pairs) EXPECT_EQ(e, r);
  TrajectoryErrors errors;
  std::string error;
  EXPECT_FALSE(evaluateTrajectory(Trajectory(estimate.begin(), estimate.begin() + 2), reference, errors, error));
}
