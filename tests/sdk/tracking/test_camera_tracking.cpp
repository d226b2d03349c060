// Tracking through pv::Camera on a rendered room: the camera's per-grab state is filled the way
// a grab fills it, then the tracking step runs and the public calls are checked.
#include <gtest/gtest.h>

#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "core/internal/camera_state.h"
#include "core/internal/coordinates.h"
#include "pv/camera.h"
#include "synthetic_stereo.h"
#include "test_utils.h"
#include "tracking/internal/tracking_module.h"
#include "tracking/internal/trajectory_eval.h"
#include "tracking/internal/trajectory_store.h"

using namespace pv;
using namespace pv::internal;

namespace {

constexpr int kFrames = 240;
constexpr double kRadius = 0.8;

class RoomCamera {
 public:
  RoomCamera(COORDINATE_SYSTEM system = COORDINATE_SYSTEM::IMAGE, UNIT unit = UNIT::METER, bool live = false)
      : room_(Eigen::Vector3d(3, 1.5, 3), 7), calibration_(mapura::test::syntheticCalibration(640, 360, 380)) {
    s_ = camera.state();
    s_->opened = true;
    s_->calibration = calibration_;
    s_->init_parameters.coordinate_system = system;
    s_->init_parameters.coordinate_units = unit;
    if (!live) s_->init_parameters.input.setFromKTRFile("room.ktr");
  }
  /// The path goes round again after kFrames frames.
  static Eigen::Isometry3d truth(int index) { return mapura::test::circlePose(double(index) / kFrames, kRadius); }
  /// Feeds frame `index` (blank images when `blank`) through the tracking step.
  void grab(int index, bool blank = false) {
    FrameData& f = s_->frame;
    room_.render(calibration_, truth(index), f.left_gray, f.right_gray);
    if (blank) {
      f.left_gray.setTo(0);
      f.right_gray.setTo(0);
    }
    cv::cvtColor(f.left_gray, f.left_bgr, cv::COLOR_GRAY2BGR);
    f.index = index;
    f.timestamp_ns = uint64_t(index) * 33333333ull;
    f.valid = true;
    ASSERT_EQ(trackingStep(*s_, FrameDepth()), ERROR_CODE::SUCCESS);
  }
  CameraState& state() { return *s_; }
  Camera camera;

 private:
  mapura::test::SyntheticRoom room_;
  RectifiedCalibration calibration_;
  CameraState* s_;
};

Eigen::Isometry3d fromTransform(const Transform& T) {
  Eigen::Isometry3d out = Eigen::Isometry3d::Identity();
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 4; ++c) out.matrix()(r, c) = T(r, c);
  return out;
}

/// The first frame's pose anchors the world: truth relative to frame 0.
Eigen::Isometry3d truthInWorld(int index) { return RoomCamera::truth(0).inverse() * RoomCamera::truth(index); }

}  // namespace

TEST(CameraTracking, CallsNeedAnOpenCameraAndAnEnabledModule) {
  Camera closed;
  EXPECT_EQ(closed.enablePositionalTracking(), ERROR_CODE::CAMERA_NOT_INITIALIZED);
  Pose pose;
  EXPECT_EQ(closed.getPosition(pose), POSITIONAL_TRACKING_STATE::OFF);
  EXPECT_FALSE(pose.valid);
  EXPECT_EQ(closed.saveAreaMap("x.ogt"), ERROR_CODE::MODULE_NOT_ENABLED);
  EXPECT_FALSE(closed.isPositionalTrackingEnabled());
  closed.disablePositionalTracking();  // harmless

  RoomCamera room;
  PositionalTrackingParameters bad;
  const std::string dir = mapura::test::scratchDir("tracking_bad_area");
  std::ofstream(dir + "/corrupt.ogt") << "PVAREA but not really an area file";
  bad.area_file_path = (dir + "/corrupt.ogt").c_str();
  EXPECT_EQ(room.camera.enablePositionalTracking(bad), ERROR_CODE::INVALID_AREA_FILE);
  EXPECT_FALSE(room.camera.isPositionalTrackingEnabled());
  bad.area_file_path = (dir + "/missing.ogt").c_str();
  EXPECT_EQ(room.camera.enablePositionalTracking(bad), ERROR_CODE::INVALID_AREA_FILE);
  cv::Mat view;
  EXPECT_EQ(trackingView(room.state(), view), ERROR_CODE::MODULE_NOT_ENABLED);
}

TEST(CameraTracking, FollowsAKnownPathLiveAndRefinedForTheSecondPass) {
  RoomCamera room(COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, UNIT::MILLIMETER);
  ASSERT_EQ(room.camera.enablePositionalTracking(), ERROR_CODE::SUCCESS);
  EXPECT_TRUE(room.camera.isPositionalTrackingEnabled());
  Trajectory live, truth;
  const Eigen::Matrix3f C = basisFromImage(COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP);
  Eigen::Isometry3d previous_world = Eigen::Isometry3d::Identity();
  for (int i = 0; i <= kFrames; ++i) {
    room.grab(i);
    Pose world, motion;
    const POSITIONAL_TRACKING_STATE st = room.camera.getPosition(world, REFERENCE_FRAME::WORLD);
    ASSERT_EQ(st, POSITIONAL_TRACKING_STATE::OK) << "frame " << i;
    EXPECT_TRUE(world.valid);
    EXPECT_EQ(world.timestamp_ns, uint64_t(i) * 33333333ull);
    room.camera.getPosition(motion, REFERENCE_FRAME::CAMERA);
    // The reported pose is the internal one in y-up axes and millimetres.
    const Eigen::Isometry3d user = fromTransform(world.pose_data);
    Eigen::Isometry3d image = Eigen::Isometry3d::Identity();
    image.linear() = (C.transpose() * user.linear().cast<float>() * C).cast<double>();
    image.translation() = (C.transpose() * user.translation().cast<float>()).cast<double>() / 1000.0;
    EXPECT_TRUE(image.matrix().isApprox(room.state().tracking.T_world_camera.cast<double>(), 1e-4));
    // CAMERA frame: the motion since the previous frame.
    if (i > 0) {
      const Eigen::Isometry3d step = previous_world.inverse() * user;
      EXPECT_LT((fromTransform(motion.pose_data).translation() - step.translation()).norm(), 0.5);  // mm
    }
    previous_world = user;
    live.push_back({i * 0.0333, image});
    truth.push_back({i * 0.0333, truthInWorld(i)});
  }
  TrajectoryErrors e;
  std::string error;
  ASSERT_TRUE(evaluateTrajectory(live, truth, e, error)) << error;
  std::printf("live: ate_rmse_m %.4f path_length_m %.3f ate_pct %.3f rpe_pct %.3f\n", e.ate_rmse_m, e.path_length_m,
              e.ate_pct, e.rpe_pct);
  EXPECT_LT(e.ate_pct, 1.0);
  // Frame 0 is the world origin.
  EXPECT_LT(live[0].T_world_camera.translation().norm(), 1e-6);

  // End of the first pass: the trajectory stays after disabling and is optimised once a second
  // pass asks for it.
  room.camera.disablePositionalTracking();
  EXPECT_FALSE(room.camera.isPositionalTrackingEnabled());
  ASSERT_NE(trajectoryStore(room.state()), nullptr);
  EXPECT_FALSE(trajectoryStore(room.state())->isFinal());
  const TrajectoryStore* store = finalTrajectory(room.state());
  ASSERT_NE(store, nullptr);
  EXPECT_TRUE(store->isFinal());
  EXPECT_EQ(store->size(), size_t(kFrames + 1));
  Trajectory refined;
  for (int i = 0; i <= kFrames; ++i) {
    Eigen::Isometry3d T;
    ASSERT_TRUE(store->refinedPose(i, T));
    refined.push_back({i * 0.0333, T});
  }
  TrajectoryErrors r;
  ASSERT_TRUE(evaluateTrajectory(refined, truth, r, error));
  std::printf("refined: ate_rmse_m %.4f ate_pct %.3f rpe_pct %.3f\n", r.ate_rmse_m, r.ate_pct, r.rpe_pct);
  EXPECT_LT(r.ate_pct, e.ate_pct);

  // Second pass with area memory off reports the refined poses.
  PositionalTrackingParameters second;
  second.enable_area_memory = false;
  ASSERT_EQ(room.camera.enablePositionalTracking(second), ERROR_CODE::SUCCESS);
  for (int i : {0, 57, 200}) {
    room.grab(i);
    Eigen::Isometry3d T;
    ASSERT_TRUE(trajectoryStore(room.state())->refinedPose(i, T));
    EXPECT_TRUE(room.state().tracking.T_world_camera.cast<double>().isApprox(T.matrix(), 1e-5));
  }
}

TEST(CameraTracking, SearchesWhenTheImageGoesBlankAndRecovers) {
  RoomCamera room;
  ASSERT_EQ(room.camera.enablePositionalTracking(), ERROR_CODE::SUCCESS);
  Pose pose;
  for (int i = 0; i < 60; ++i) room.grab(i);
  ASSERT_EQ(room.camera.getPosition(pose), POSITIONAL_TRACKING_STATE::OK);
  const Eigen::Isometry3d held = fromTransform(pose.pose_data);
  for (int i = 60; i < 66; ++i) {
    room.grab(i, true);
    EXPECT_EQ(room.camera.getPosition(pose), POSITIONAL_TRACKING_STATE::SEARCHING) << i;
    EXPECT_FALSE(pose.valid);
    EXPECT_TRUE(fromTransform(pose.pose_data).isApprox(held, 1e-6));  // the pose holds
  }
  int recovered = -1;
  for (int i = 66; i < 90 && recovered < 0; ++i) {
    room.grab(i);
    if (room.camera.getPosition(pose) == POSITIONAL_TRACKING_STATE::OK) recovered = i;
  }
  ASSERT_GE(recovered, 0);
  // Relocalised in the area memory within a few frames, before the fall-back restart.
  EXPECT_LE(recovered, 75);
  EXPECT_LT((fromTransform(pose.pose_data).translation() - truthInWorld(recovered).translation()).norm(), 0.02);

  // The TRACKING view marks the used points in green on the left image.
  cv::Mat view;
  ASSERT_EQ(trackingView(room.state(), view), ERROR_CODE::SUCCESS);
  ASSERT_EQ(view.type(), CV_8UC4);
  cv::Mat green;
  cv::inRange(view, cv::Scalar(0, 250, 0, 255), cv::Scalar(5, 255, 5, 255), green);
  EXPECT_GT(cv::countNonZero(green), 100);
  cv::imwrite(mapura::test::scratchDir("tracking_view") + "/tracking_view.png", view);
}

TEST(CameraTracking, RelocalisesFromASavedAreaFile) {
  const std::string path = mapura::test::scratchDir("tracking_area") + "/room.ogt";
  {
    RoomCamera first;
    ASSERT_EQ(first.camera.enablePositionalTracking(), ERROR_CODE::SUCCESS);
    for (int i = 0; i < 120; ++i) first.grab(i);
    ASSERT_EQ(first.camera.saveAreaMap(path.c_str()), ERROR_CODE::SUCCESS);
  }
  RoomCamera again;
  PositionalTrackingParameters p;
  p.area_file_path = path.c_str();
  ASSERT_EQ(again.camera.enablePositionalTracking(p), ERROR_CODE::SUCCESS);
  Pose pose;
  int first_ok = -1;
  // Start after the saved part, on the second round where the camera comes back into the area.
  for (int i = kFrames + 10; i < kFrames + 30 && first_ok < 0; ++i) {
    again.grab(i);
    if (again.camera.getPosition(pose) == POSITIONAL_TRACKING_STATE::OK) first_ok = i;
  }
  ASSERT_GE(first_ok, 0);
  EXPECT_EQ(first_ok, kFrames + 10);
  const double error_m = (fromTransform(pose.pose_data).translation() - truthInWorld(first_ok).translation()).norm();
  std::printf("relocalised at frame %d, %.2f mm from the true pose\n", first_ok, error_m * 1000);
  EXPECT_LT(error_m, 0.02);
}

// A live camera going round the same place again and again, as a long scan of one room does:
// the tracking map keeps the keyframes of the first round (those of the second add no viewpoint
// and go once they leave the window), no per-frame trajectory is kept for a live input, and
// tracking stays as accurate.
TEST(CameraTracking, GoingRoundTheSamePlaceAgainKeepsTheMapBounded) {
  RoomCamera room(COORDINATE_SYSTEM::IMAGE, UNIT::METER, true);
  ASSERT_EQ(room.camera.enablePositionalTracking(), ERROR_CODE::SUCCESS);
  const auto keyframes = [&] { return room.state().tracking_module->engine->map().keyframes.size(); };
  size_t after_first = 0;
  Trajectory live, truth;
  for (int i = 0; i <= 2 * kFrames; ++i) {
    room.grab(i);
    Pose pose;
    ASSERT_EQ(room.camera.getPosition(pose, REFERENCE_FRAME::WORLD), POSITIONAL_TRACKING_STATE::OK) << "frame " << i;
    live.push_back({i * 0.0333, Eigen::Isometry3d(room.state().tracking.T_world_camera.cast<double>())});
    truth.push_back({i * 0.0333, truthInWorld(i)});
    if (i == kFrames) after_first = keyframes();
  }
  std::printf("keyframes after one round %zu, after two %zu\n", after_first, keyframes());
  EXPECT_GT(after_first, 10u);
  EXPECT_LE(keyframes(), after_first + after_first / 4);
  EXPECT_EQ(trajectoryStore(room.state())->size(), 0u);
  TrajectoryErrors e;
  std::string error;
  ASSERT_TRUE(evaluateTrajectory(live, truth, e, error)) << error;
  std::printf("two rounds: ate_rmse_m %.4f ate_pct %.3f\n", e.ate_rmse_m, e.ate_pct);
  EXPECT_LT(e.ate_pct, 1.0);
}
