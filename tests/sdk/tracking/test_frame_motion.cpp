// What carries tracking from one frame to the next when feature tracks alone would not: the
// motion the tracks' patches show (rendered room, known poses) and the motion model in time.
#include <gtest/gtest.h>

#include <cmath>

#include "synthetic_stereo.h"
#include "tracking/internal/motion_model.h"
#include "tracking/internal/sparse_alignment.h"

using namespace pv::internal;

namespace {

constexpr double kDeg = M_PI / 180;

// Points of the room's walls (half extents `half`, centred on the origin) seen by pixels of a
// camera at T_world_camera, in that camera's frame.
std::vector<Eigen::Vector3d> wallPoints(const RectifiedCalibration& c, const Eigen::Isometry3d& T_world_camera,
                                        const Eigen::Vector3d& half) {
  std::vector<Eigen::Vector3d> points;
  for (int v = 20; v < c.size.height - 20; v += c.size.height / 15)
    for (int u = 20; u < c.size.width - 20; u += c.size.width / 20) {
      const Eigen::Vector3d ray((u - c.cx) / c.fx, (v - c.cy) / c.fy, 1.0);
      const Eigen::Vector3d o = T_world_camera.translation(), d = T_world_camera.linear() * ray;
      double t = 1e9;
      for (int a = 0; a < 3; ++a)
        if (std::abs(d[a]) > 1e-9) t = std::min(t, ((d[a] > 0 ? half[a] : -half[a]) - o[a]) / d[a]);
      points.push_back(t * ray);
    }
  return points;
}

TEST(SparseAlignment, FindsFastMotionFromStandingStillAtAnySize) {
  const Eigen::Vector3d half(3, 1.5, 3);
  const mapura::test::SyntheticRoom room(half, 5);
  for (const auto& size : {cv::Size(640, 360), cv::Size(1280, 720), cv::Size(751, 479)}) {
    const RectifiedCalibration c = mapura::test::syntheticCalibration(size.width, size.height, 0.55 * size.width);
    const SparseAlignment alignment(c);
    const Eigen::Isometry3d T0 = mapura::test::circlePose(0.1, 0.5);
    cv::Mat l0, r0, l1, r1;
    room.render(c, T0, l0, r0);
    const std::vector<cv::Mat> previous = alignment.prepare(l0);
    const std::vector<Eigen::Vector3d> points = wallPoints(c, T0, half);
    // Turns of up to 9 degrees between frames (270 deg/s at 30 fps) about several axes, with and
    // without a few centimetres of travel: found from the identity, no prior.
    for (const Eigen::Vector3d& turn_deg :
         {Eigen::Vector3d(0, 9, 0), Eigen::Vector3d(6, -4, 2), Eigen::Vector3d(-3, 0, 7), Eigen::Vector3d(0, -8, -2)}) {
      for (double travel_m : {0.0, 0.04}) {
        SCOPED_TRACE(testing::Message() << size << " turn " << turn_deg.transpose() << " travel " << travel_m);
        Eigen::Isometry3d motion = Eigen::Isometry3d::Identity();  // T_previous_current
        motion.linear() = Eigen::AngleAxisd(turn_deg.norm() * kDeg, turn_deg.normalized()).toRotationMatrix();
        motion.translation() = Eigen::Vector3d(travel_m, -travel_m / 2, travel_m);
        room.render(c, T0 * motion, l1, r1);
        Eigen::Isometry3d T_current_previous = Eigen::Isometry3d::Identity();
        ASSERT_TRUE(alignment.align(previous, alignment.prepare(l1), points, T_current_previous));
        const Eigen::Isometry3d error = T_current_previous * motion;
        EXPECT_LT(Eigen::AngleAxisd(error.linear()).angle(), 0.3 * kDeg);
        EXPECT_LT(error.translation().norm(), 0.01);
      }
    }
    // Nothing to align with: a blank frame, or too few points.
    Eigen::Isometry3d T = Eigen::Isometry3d::Identity();
    EXPECT_FALSE(alignment.align(previous, alignment.prepare(cv::Mat::zeros(l0.size(), CV_8U)), points, T));
    EXPECT_FALSE(alignment.align(previous, previous, {points.begin(), points.begin() + 5}, T));
  }
}

TEST(MotionModel, PredictsOverTheRealIntervalAndForgets) {
  MotionModel m;
  EXPECT_TRUE(m.predict(0.1).isApprox(Eigen::Isometry3d::Identity()));
  Eigen::Isometry3d step = Eigen::Isometry3d::Identity();
  step.linear() = Eigen::AngleAxisd(0.1, Eigen::Vector3d::UnitY()).toRotationMatrix();
  step.translation() = Eigen::Vector3d(0.02, 0, 0.04);
  m.update(step, 0.1);  // 1 rad/s, 0.2 m/s sideways and 0.4 m/s forward
  ASSERT_TRUE(m.known());
  // Two frames' worth of time (one dropped) predicts twice the motion.
  const Eigen::Isometry3d twice = m.predict(0.2);
  EXPECT_NEAR(Eigen::AngleAxisd(twice.linear()).angle(), 0.2, 1e-9);
  EXPECT_TRUE(twice.translation().isApprox(Eigen::Vector3d(0.04, 0, 0.08), 1e-9));
  // The same frames at another nominal rate: the same prediction for the same interval.
  MotionModel n;
  n.update(m.predict(0.05), 0.05);
  EXPECT_TRUE(n.predict(0.1).isApprox(m.predict(0.1), 1e-9));
  // A long gap is not extrapolated beyond its limit; timestamps that do not grow use the fallback.
  EXPECT_NEAR(Eigen::AngleAxisd(m.predict(5.0, 0.5).linear()).angle(), 0.5, 1e-9);
  EXPECT_DOUBLE_EQ(frameInterval(2.0, 2.0, 1.0 / 30), 1.0 / 30);
  EXPECT_DOUBLE_EQ(frameInterval(2.0, 1.5, 0.1), 0.1);
  EXPECT_NEAR(frameInterval(2.0, 2.25, 0.1), 0.25, 1e-12);
  // Steady: two displacements alike; a shake that turns back is not.
  EXPECT_FALSE(m.steady());
  m.update(step, 0.1);
  EXPECT_TRUE(m.steady());
  m.update(step.inverse(), 0.1);
  EXPECT_FALSE(m.steady());
  m.reset();
  EXPECT_FALSE(m.known());
  EXPECT_TRUE(m.predict(0.1).isApprox(Eigen::Isometry3d::Identity()));
}

}  // namespace
