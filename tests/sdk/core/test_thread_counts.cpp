// Results do not depend on how many threads do the work: a synthesized recording scanned through
// pv::Camera on 1, 2, 3 and 8 threads gives the same depth in every mode, the same poses (live and
// refined) and the same map, bit for bit, as long as the depth matcher cuts its images into the
// same pieces. It cuts them into as many stripes and bands as OpenCV has threads (each stripe
// warms its path costs up over a few rows of its own), so under the thread limit alone depth moves
// slightly from one count to another: the second test bounds how much.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <opencv2/core/utility.hpp>
#include <vector>

#include "core/internal/camera_state.h"
#include "core/internal/thread_limit.h"
#include "pv/camera.h"
#include "synth/internal/synth.h"
#include "test_utils.h"
#include "tracking/internal/trajectory_store.h"

namespace {

using namespace pv;

/// Everything a scan produced that could depend on how the work was shared out.
struct Scan {
  std::vector<cv::Mat> depth_m;
  std::vector<Eigen::Matrix4f> live;
  std::vector<Eigen::Isometry3d> refined;
  std::vector<float3> vertices;
  std::vector<uint3> triangles;
};

bool sameBytes(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type()) return false;
  for (int y = 0; y < a.rows; ++y)
    if (std::memcmp(a.ptr(y), b.ptr(y), a.cols * a.elemSize()) != 0) return false;
  return true;
}

template <class T>
bool sameBytes(const std::vector<T>& a, const std::vector<T>& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

constexpr int kFrames = 12;

/// A recording of the synthesized room, made once for both tests.
const std::string& recording() {
  static const std::string path = [] {
    internal::synth::SynthOptions o;
    o.frames = kFrames;
    o.fps = 8;  // a few keyframes within the short recording
    o.resolution = RESOLUTION::VGA;
    o.codec = KTR_COMPRESSION_MODE::MJPEG;  // the quickest to decode, for the many scans
    const std::string p = mapura::test::scratchDir("thread_counts") + "/room.ktr";
    EXPECT_EQ(internal::synth::synthesize(o, p), ERROR_CODE::SUCCESS);
    return p;
  }();
  return path;
}

/// The recording scanned in depth mode `mode`; with `track_and_map` also tracked, mapped and
/// refined.
Scan scan(DEPTH_MODE mode, bool track_and_map) {
  Scan s;
  Camera camera;
  InitParameters init;
  init.input.setFromKTRFile(String(recording().c_str()));
  init.depth_mode = mode;
  EXPECT_EQ(camera.open(init), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  if (track_and_map) {
    EXPECT_EQ(camera.enablePositionalTracking(), ERROR_CODE::SUCCESS);
    SpatialMappingParameters p;
    p.resolution_meter = 0.05f;
    p.range_meter = 5.f;
    EXPECT_EQ(camera.enableSpatialMapping(p), ERROR_CODE::SUCCESS);
  }
  while (camera.grab() == ERROR_CODE::SUCCESS) {
    s.depth_m.push_back(camera.state()->depth.depth_m.clone());
    s.live.push_back(camera.state()->tracking.T_world_camera);
  }
  if (!track_and_map) return s;
  Mesh mesh;
  EXPECT_EQ(camera.extractWholeSpatialMap(mesh), ERROR_CODE::SUCCESS);
  s.vertices = mesh.vertices;
  s.triangles = mesh.triangles;
  camera.disablePositionalTracking();
  const internal::TrajectoryStore* store = internal::finalTrajectory(*camera.state());  // the final optimisation
  EXPECT_TRUE(store && store->isFinal());
  for (int i = 0; store && i < int(s.live.size()); ++i) {
    Eigen::Isometry3d T = Eigen::Isometry3d::Identity();
    if (store->refinedPose(i, T)) s.refined.push_back(T);
  }
  return s;
}

/// Puts the thread limit back as it was when it goes.
struct RestoreLimit {
  const int before = pv::internal::threadLimit();
  ~RestoreLimit() { pv::internal::setThreadLimit(before == pv::internal::availableCores() ? 0 : before); }
};

TEST(ThreadCounts, DepthPosesAndMapAreTheSameOnAnyNumberOfThreads) {
  const RestoreLimit restore;
  const int pieces = 8;  // OpenCV's count, which the depth matcher cuts its images by
  for (const DEPTH_MODE mode : {DEPTH_MODE::PERFORMANCE, DEPTH_MODE::QUALITY, DEPTH_MODE::ULTRA}) {
    Scan one;
    for (const int threads : {1, 2, 3, 8}) {
      internal::setThreadLimit(threads);  // TBB's pool: the threads that really run
      cv::setNumThreads(pieces);
      const std::string what = std::string(toString(mode).c_str()) + ", " + std::to_string(threads) + " threads";
      // Tracking and mapping take the same course whatever the depth mode: one mode is enough.
      Scan many = scan(mode, mode == DEPTH_MODE::PERFORMANCE);
      if (threads == 1) {
        ASSERT_EQ(many.depth_m.size(), size_t(kFrames)) << what;
        if (mode == DEPTH_MODE::PERFORMANCE) {
          EXPECT_GT(many.refined.size(), size_t(kFrames / 2)) << what;
          EXPECT_GT(many.triangles.size(), 1000u) << what;
        }
        one = std::move(many);
        continue;
      }
      ASSERT_EQ(many.depth_m.size(), one.depth_m.size()) << what;
      ASSERT_EQ(many.refined.size(), one.refined.size()) << what;
      // The first frame where each differs, or -1.
      int depth = -1, live = -1, refined = -1;
      for (int i = int(one.depth_m.size()) - 1; i >= 0; --i) {
        if (!sameBytes(many.depth_m[size_t(i)], one.depth_m[size_t(i)])) depth = i;
        if (many.live[size_t(i)] != one.live[size_t(i)]) live = i;
        if (size_t(i) < one.refined.size() && many.refined[size_t(i)].matrix() != one.refined[size_t(i)].matrix())
          refined = i;
      }
      EXPECT_EQ(depth, -1) << what << ": the first frame whose depth differs";
      EXPECT_EQ(live, -1) << what << ": the first frame whose live pose differs";
      EXPECT_EQ(refined, -1) << what << ": the first frame whose refined pose differs";
      EXPECT_TRUE(sameBytes(many.vertices, one.vertices)) << what << ": map vertices";
      EXPECT_TRUE(sameBytes(many.triangles, one.triangles)) << what << ": map triangles";
    }
  }
}

TEST(ThreadCounts, DepthCutIntoMoreStripesMovesOnlyAFewPixels) {
  const RestoreLimit restore;
  for (const DEPTH_MODE mode : {DEPTH_MODE::PERFORMANCE, DEPTH_MODE::QUALITY, DEPTH_MODE::ULTRA}) {
    internal::setThreadLimit(1);
    const Scan one = scan(mode, false);
    internal::setThreadLimit(8);
    const Scan eight = scan(mode, false);
    ASSERT_EQ(one.depth_m.size(), eight.depth_m.size());
    long valid = 0, flipped = 0, moved = 0;  // valid in either; valid in one only; off by over 1 %
    for (size_t i = 0; i < one.depth_m.size(); ++i) {
      const cv::Mat& a = one.depth_m[i];
      const cv::Mat& b = eight.depth_m[i];
      for (int y = 0; y < a.rows; ++y)
        for (int x = 0; x < a.cols; ++x) {
          const float u = a.at<float>(y, x), v = b.at<float>(y, x);
          if (std::isnan(u) && std::isnan(v)) continue;
          ++valid;
          if (std::isnan(u) != std::isnan(v))
            ++flipped;
          else if (std::abs(u - v) > 0.01f * u)
            ++moved;
        }
    }
    std::printf("%s, 1 vs 8 stripes: of %ld depth pixels %.3f %% valid in one only, %.3f %% off by over 1 %%\n",
                toString(mode).c_str(), valid, 100.0 * flipped / valid, 100.0 * moved / valid);
    EXPECT_GT(valid, long(one.depth_m.size() * one.depth_m[0].total()) / 4) << toString(mode).c_str();
    EXPECT_LT(flipped, valid / 200) << toString(mode).c_str();
    EXPECT_LT(moved, valid / 200) << toString(mode).c_str();
  }
}

}  // namespace
