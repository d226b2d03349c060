// Depth through pv::Camera: the per-grab step with its thresholds and limits, retrieveMeasure in
// units and coordinate systems, and the depth views. The frame is put into the camera's state the
// way a grab leaves it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "core/internal/camera_state.h"
#include "depth/internal/depth_module.h"
#include "depth/internal/stereo_stages.h"
#include "pv/camera.h"
#include "stereo_scenes.h"

namespace pv::internal {
namespace {

const float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr double kFx = 400, kBaseline = 0.1;  // a 10-pixel disparity is 4 m

// A camera whose last grab saw `pair` (rectified), as Camera::grab leaves it before depth.
void putFrame(Camera& camera, const mapura::test::SyntheticPair& pair, InitParameters init = InitParameters()) {
  CameraState& s = *camera.state();
  s.opened = true;
  s.init_parameters = init;
  s.frame.left_gray = pair.left.clone();
  s.frame.right_gray = pair.right.clone();
  cv::cvtColor(pair.left, s.frame.left_bgr, cv::COLOR_GRAY2BGR);
  s.frame.left_bgr.at<cv::Vec3b>(50, 60) = cv::Vec3b(10, 20, 30);
  s.frame.valid = true;
  s.calibration.fx = s.calibration.fy = kFx;
  s.calibration.cx = pair.left.cols / 2.0;
  s.calibration.cy = pair.left.rows / 2.0;
  s.calibration.baseline_m = kBaseline;
  s.calibration.size = pair.left.size();
}

int validCount(const cv::Mat& m) { return cv::countNonZero(m == m); }

TEST(DepthCamera, DepthStepFollowsModeUnitsAndLimits) {
  const auto plane = mapura::test::renderStep(cv::Size(200, 120), 10.f, 10.f, cv::Rect());
  Camera camera;
  putFrame(camera, plane);
  ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  const DepthData& d = camera.state()->depth;
  ASSERT_TRUE(d.valid);
  ASSERT_EQ(d.depth_m.size(), plane.left.size());
  EXPECT_NEAR(d.depth_m.at<float>(60, 100), 4.0, 0.05);
  EXPECT_NEAR(d.disparity_px.at<float>(60, 100), 10.0, 0.15);
  EXPECT_GT(validCount(d.depth_m), 200 * 120 * 9 / 10);

  // Limits in the chosen unit: 3500 mm keeps nothing of a 4 m plane, 4500 mm keeps it.
  InitParameters init;
  init.coordinate_units = UNIT::MILLIMETER;
  init.depth_minimum_distance = 300;
  init.depth_maximum_distance = 3500;
  putFrame(camera, plane, init);
  ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  const int few = 200 * 120 / 100;  // stray matches at the borders
  EXPECT_LT(validCount(camera.state()->depth.depth_m), few);
  init.depth_maximum_distance = 4500;
  putFrame(camera, plane, init);
  ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  EXPECT_GT(validCount(camera.state()->depth.depth_m), 200 * 120 * 9 / 10);
  init.depth_minimum_distance = 4200;  // nearer than 4.2 m is dropped
  putFrame(camera, plane, init);
  ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  EXPECT_LT(validCount(camera.state()->depth.depth_m), few);

  // Disabled depth or mode NONE leave no depth; bad thresholds are refused.
  putFrame(camera, plane);
  EXPECT_EQ(depthStep(*camera.state(), RuntimeParameters(SENSING_MODE::STANDARD, false)), ERROR_CODE::SUCCESS);
  EXPECT_FALSE(camera.state()->depth.valid);
  EXPECT_EQ(depthStep(*camera.state(), RuntimeParameters(SENSING_MODE::STANDARD, true, 0)),
            ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
  init = InitParameters();
  init.depth_mode = DEPTH_MODE::NONE;
  putFrame(camera, plane, init);
  EXPECT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  EXPECT_FALSE(camera.state()->depth.valid);
  // A broken frame or calibration is a clear failure, not a crash.
  putFrame(camera, plane);
  camera.state()->calibration.baseline_m = 0;
  EXPECT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::INVALID_CALIBRATION_FILE);
  putFrame(camera, plane);
  camera.state()->frame.right_gray = cv::Mat();
  EXPECT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::CORRUPTED_FRAME);
}

TEST(DepthCamera, ThresholdsSaturationAndFillEachShow) {
  // A box in front of a plane; its right part is flat grey (no texture) and a white patch sits
  // on the plane.
  auto scene = mapura::test::renderStep(cv::Size(240, 160), 8.f, 20.f, cv::Rect(80, 50, 80, 60));
  cv::Mat flat = scene.left(cv::Rect(190, 20, 40, 120));
  flat.setTo(128);
  scene.right(cv::Rect(182, 20, 40, 120)).setTo(128);
  scene.left(cv::Rect(20, 20, 20, 20)).setTo(255);
  scene.right(cv::Rect(12, 20, 20, 20)).setTo(255);
  Camera camera;
  InitParameters init;
  init.depth_mode = DEPTH_MODE::QUALITY;
  putFrame(camera, scene, init);
  auto grab = [&](RuntimeParameters rt) {
    EXPECT_EQ(depthStep(*camera.state(), rt), ERROR_CODE::SUCCESS);
    return camera.state()->depth;
  };
  const DepthData all = grab(RuntimeParameters(SENSING_MODE::STANDARD, true, 100, 100, REFERENCE_FRAME::CAMERA, false));
  const DepthData sure = grab(RuntimeParameters(SENSING_MODE::STANDARD, true, 30, 100, REFERENCE_FRAME::CAMERA, false));
  const DepthData textured =
      grab(RuntimeParameters(SENSING_MODE::STANDARD, true, 100, 50, REFERENCE_FRAME::CAMERA, false));
  const DepthData unsaturated =
      grab(RuntimeParameters(SENSING_MODE::STANDARD, true, 100, 100, REFERENCE_FRAME::CAMERA, true));

  // Confidence: fewer pixels, the ones dropped far more often wrong than the ones kept, and mostly
  // where the right camera cannot see the plane (just left of the box, x 68..79).
  EXPECT_LT(validCount(sure.depth_m), validCount(all.depth_m));
  cv::Mat dropped, kept, wrong = cv::abs(all.disparity_px - scene.disparity_px) > 1.f;
  cv::bitwise_and(validMask(all.depth_m), invalidMask(sure.depth_m), dropped);
  kept = validMask(sure.depth_m);
  ASSERT_GT(cv::countNonZero(dropped), 0);
  const double wrong_dropped = double(cv::countNonZero(wrong & dropped)) / cv::countNonZero(dropped);
  const double wrong_kept = double(cv::countNonZero(wrong & kept)) / cv::countNonZero(kept);
  EXPECT_GT(wrong_dropped, 3 * wrong_kept) << wrong_dropped << " " << wrong_kept;
  const cv::Rect hidden(68, 55, 12, 50);
  EXPECT_GT(cv::countNonZero(dropped(hidden) | invalidMask(all.depth_m)(hidden)), hidden.area() / 2);
  // Inside the textured box and plane almost none go.
  const cv::Rect box_middle(95, 60, 50, 40), plane_part(10, 60, 55, 90);
  EXPECT_LT(cv::countNonZero(dropped(box_middle)), box_middle.area() / 50);
  EXPECT_LT(cv::countNonZero(dropped(plane_part)), plane_part.area() / 50);
  EXPECT_FALSE(std::isnan(sure.depth_m.at<float>(80, 120)));
  double worst = 0;
  cv::minMaxLoc(sure.confidence, nullptr, &worst, nullptr, nullptr, sure.confidence == sure.confidence);
  EXPECT_LE(worst, 30.0);
  // Texture: the flat part goes, the textured plane stays.
  EXPECT_EQ(validCount(textured.depth_m(cv::Rect(195, 25, 30, 110))), 0);
  EXPECT_FALSE(std::isnan(all.depth_m.at<float>(80, 210)));
  EXPECT_FALSE(std::isnan(textured.depth_m.at<float>(130, 100)));
  // Saturation: only with remove_saturated_areas.
  EXPECT_FALSE(std::isnan(all.depth_m.at<float>(30, 30)));
  EXPECT_TRUE(std::isnan(unsaturated.depth_m.at<float>(30, 30)));

  // FILL: the holes the thresholds left are filled, with the most doubtful confidence.
  const DepthData filled = grab(RuntimeParameters(SENSING_MODE::FILL, true, 30, 50, REFERENCE_FRAME::CAMERA, true));
  EXPECT_EQ(validCount(filled.depth_m), 240 * 160);
  EXPECT_FLOAT_EQ(filled.confidence.at<float>(30, 30), 100.f);
  EXPECT_NEAR(filled.depth_m.at<float>(80, 120), all.depth_m.at<float>(80, 120), 1e-4);
}

TEST(DepthCamera, FilterToDepthOrderAndValues) {
  // Disparities 20 (2 m at fx * B = 40) with one hole; limits, then fill from the farther side.
  StereoOutput stereo;
  stereo.disparity_px = cv::Mat(4, 6, CV_32F, cv::Scalar(20.f));
  stereo.disparity_px.at<float>(1, 1) = 80.f;  // 0.5 m
  stereo.disparity_px.at<float>(2, 4) = kNaN;
  stereo.confidence = cv::Mat(4, 6, CV_32F, cv::Scalar(10.f));
  stereo.texture_confidence = cv::Mat(4, 6, CV_32F, cv::Scalar(10.f));
  const cv::Mat gray(4, 6, CV_8U, cv::Scalar(100));
  DepthFilterParameters p;
  p.min_depth_m = 1.f;
  // A copy shares the pixels, which must then be left as they were; a moved output is filtered
  // in place.
  DepthData d = filterToDepth(StereoOutput(stereo), gray, 400, 0.1, p);
  EXPECT_FLOAT_EQ(d.depth_m.at<float>(0, 0), 2.f);
  EXPECT_TRUE(std::isnan(d.depth_m.at<float>(1, 1)));
  EXPECT_TRUE(std::isnan(d.disparity_px.at<float>(1, 1)));
  EXPECT_TRUE(std::isnan(d.depth_m.at<float>(2, 4)));
  EXPECT_TRUE(std::isnan(d.confidence.at<float>(2, 4)));
  EXPECT_FLOAT_EQ(stereo.disparity_px.at<float>(1, 1), 80.f);
  p.fill = true;
  const float* pixels = stereo.disparity_px.ptr<float>();
  d = filterToDepth(std::move(stereo), gray, 400, 0.1, p);
  EXPECT_EQ(d.disparity_px.ptr<float>(), pixels);
  EXPECT_FLOAT_EQ(d.depth_m.at<float>(1, 1), 2.f);
  EXPECT_FLOAT_EQ(d.depth_m.at<float>(2, 4), 2.f);
  EXPECT_FLOAT_EQ(d.confidence.at<float>(2, 4), 100.f);
  EXPECT_FLOAT_EQ(d.confidence.at<float>(0, 0), 10.f);
}

TEST(DepthCamera, AHalfSizeResultIsDoubledAsTheEngineDoublesIt) {
  auto pair = mapura::test::renderStep(cv::Size(240, 160), 8.f, 20.f, cv::Rect(80, 50, 80, 60));
  pair.left(cv::Rect(10, 10, 12, 12)).setTo(255);
  const auto stereo = [&](const cv::Mat& l, const cv::Mat& r, DEPTH_MODE mode, bool half) {
    StereoParameters params;
    params.mode = mode;
    params.max_disparity_px = 40;
    params.half_size_output = half;
    StereoOutput out;
    std::string error;
    EXPECT_TRUE(computeStereo(l, r, params, out, error)) << error;
    return out;
  };
  for (const bool fill : {false, true}) {
    DepthFilterParameters p;
    p.confidence_threshold = 60;
    p.fill = fill;
    StereoOutput half = stereo(pair.left, pair.right, DEPTH_MODE::PERFORMANCE, true);
    ASSERT_TRUE(half.disparity_px.empty());
    ASSERT_EQ(half.half_disparity_px.size(), cv::Size(120, 80));
    const DepthData doubled = filterToDepth(std::move(half), pair.left, kFx, kBaseline, p);
    const DepthData whole =
        filterToDepth(stereo(pair.left, pair.right, DEPTH_MODE::PERFORMANCE, false), pair.left, kFx, kBaseline, p);
    EXPECT_EQ(mapura::test::differingBytes(doubled.disparity_px, whole.disparity_px), 0) << fill;
    EXPECT_EQ(mapura::test::differingBytes(doubled.confidence, whole.confidence), 0) << fill;
    EXPECT_EQ(mapura::test::differingBytes(doubled.depth_m, whole.depth_m), 0) << fill;
    EXPECT_GT(validCount(whole.depth_m), 240 * 160 / 2);
    EXPECT_EQ(std::isnan(doubled.depth_m.at<float>(15, 15)), !fill);  // saturated, unless filled
  }
  // Where the last step is more than a doubling (QUALITY looks at depth edges at full size) or
  // the size is odd, the result comes whole.
  EXPECT_FALSE(stereo(pair.left, pair.right, DEPTH_MODE::QUALITY, true).disparity_px.empty());
  const cv::Rect odd(0, 0, 239, 159);
  const StereoOutput odd_out = stereo(pair.left(odd).clone(), pair.right(odd).clone(), DEPTH_MODE::PERFORMANCE, true);
  EXPECT_EQ(odd_out.disparity_px.size(), odd.size());
}

TEST(DepthCamera, MeasuresInUnitsAndCoordinateSystems) {
  const auto plane = mapura::test::renderStep(cv::Size(200, 120), 10.f, 10.f, cv::Rect());
  Camera camera;
  putFrame(camera, plane);
  ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  const float z_m = camera.state()->depth.depth_m.at<float>(50, 60);
  ASSERT_TRUE(std::isfinite(z_m));

  Mat depth;
  ASSERT_EQ(camera.retrieveMeasure(depth, MEASURE::DEPTH), ERROR_CODE::SUCCESS);
  EXPECT_EQ(depth.getDataType(), MAT_TYPE::F32_C1);
  EXPECT_EQ(depth.getWidth(), 200u);
  EXPECT_FLOAT_EQ(*depth.getPixel<float>(60, 50), z_m);
  Mat disparity, confidence;
  ASSERT_EQ(camera.retrieveMeasure(disparity, MEASURE::DISPARITY, MEM::CPU, Resolution(100, 60)), ERROR_CODE::SUCCESS);
  EXPECT_NEAR(*disparity.getPixel<float>(30, 25), 5.0, 0.1);  // half the pixels, half the disparity
  ASSERT_EQ(camera.retrieveMeasure(confidence, MEASURE::CONFIDENCE), ERROR_CODE::SUCCESS);
  const float c = *confidence.getPixel<float>(60, 50);
  EXPECT_TRUE(c >= 1.f && c <= 100.f);

  struct Case {
    COORDINATE_SYSTEM system;
    UNIT unit;
    float sx, sy, sz, scale;  // expected signs of (x, y, z) relative to IMAGE, and unit factor
  };
  const float x_m = static_cast<float>((60 - 100) / kFx) * z_m, y_m = static_cast<float>((50 - 60) / kFx) * z_m;
  for (const Case& k : {Case{COORDINATE_SYSTEM::IMAGE, UNIT::METER, 1, 1, 1, 1},
                        Case{COORDINATE_SYSTEM::IMAGE, UNIT::MILLIMETER, 1, 1, 1, 1000},
                        Case{COORDINATE_SYSTEM::LEFT_HANDED_Y_UP, UNIT::CENTIMETER, 1, -1, 1, 100},
                        Case{COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP, UNIT::METER, 1, -1, -1, 1}}) {
    InitParameters init;
    init.coordinate_system = k.system;
    init.coordinate_units = k.unit;
    init.depth_minimum_distance *= k.scale;
    init.depth_maximum_distance *= k.scale;
    putFrame(camera, plane, init);
    ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
    Mat xyz;
    ASSERT_EQ(camera.retrieveMeasure(xyz, MEASURE::XYZRGBA), ERROR_CODE::SUCCESS);
    ASSERT_EQ(xyz.getDataType(), MAT_TYPE::F32_C4);
    const float4 p = *xyz.getPixel<float4>(60, 50);
    EXPECT_NEAR(p.x, k.sx * x_m * k.scale, 1e-3 * k.scale);
    EXPECT_NEAR(p.y, k.sy * y_m * k.scale, 1e-3 * k.scale);
    EXPECT_NEAR(p.z, k.sz * z_m * k.scale, 1e-3 * k.scale);
    uint32_t packed;
    std::memcpy(&packed, &p.w, 4);
    EXPECT_EQ(packed, 0xff1e140au);  // alpha, red 30, green 20, blue 10
    Mat depth_unit;
    ASSERT_EQ(camera.retrieveMeasure(depth_unit, MEASURE::DEPTH), ERROR_CODE::SUCCESS);
    EXPECT_NEAR(*depth_unit.getPixel<float>(60, 50), z_m * k.scale, 1e-4 * k.scale);
  }
  // RIGHT_HANDED_Z_UP: forward is +y, up is +z.
  InitParameters init;
  init.coordinate_system = COORDINATE_SYSTEM::RIGHT_HANDED_Z_UP;
  putFrame(camera, plane, init);
  ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  Mat xyz;
  ASSERT_EQ(camera.retrieveMeasure(xyz, MEASURE::XYZRGBA), ERROR_CODE::SUCCESS);
  EXPECT_NEAR(xyz.getPixel<float4>(60, 50)->y, z_m, 1e-3);
  EXPECT_NEAR(xyz.getPixel<float4>(60, 50)->z, -y_m, 1e-3);
}

TEST(DepthCamera, MeasureMemoryReuseAndErrors) {
  const auto plane = mapura::test::renderStep(cv::Size(200, 120), 10.f, 10.f, cv::Rect());
  Camera camera;
  Mat m;
  EXPECT_EQ(camera.retrieveMeasure(m, MEASURE::DEPTH), ERROR_CODE::CAMERA_NOT_INITIALIZED);
  putFrame(camera, plane);
  EXPECT_EQ(camera.retrieveMeasure(m, MEASURE::DEPTH), ERROR_CODE::MODULE_NOT_ENABLED);  // no depth yet
  ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  EXPECT_EQ(camera.retrieveMeasure(m, MEASURE::LAST), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
  EXPECT_EQ(camera.retrieveMeasure(m, MEASURE::DEPTH, MEM::CPU, Resolution(400, 240)), ERROR_CODE::INVALID_RESOLUTION);
  EXPECT_EQ(camera.retrieveMeasure(m, MEASURE::DEPTH, MEM::CPU, Resolution(0, 240)), ERROR_CODE::INVALID_RESOLUTION);
  EXPECT_EQ(camera.retrieveMeasure(m, MEASURE::DEPTH, static_cast<MEM>(7)), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);

  // The caller's own buffer is written in place.
  std::vector<float> buffer(200 * 120, -1.f);
  Mat over(Resolution(200, 120), MAT_TYPE::F32_C1, reinterpret_cast<unsigned char*>(buffer.data()), 200 * 4, MEM::CPU);
  ASSERT_EQ(camera.retrieveMeasure(over, MEASURE::DEPTH), ERROR_CODE::SUCCESS);
  EXPECT_FALSE(over.isMemoryOwner());
  EXPECT_NEAR(buffer[60 * 200 + 100], 4.0, 0.05);
  // GPU memory works without a device too (host-backed), and BOTH fills both.
  Mat gpu;
  ASSERT_EQ(camera.retrieveMeasure(gpu, MEASURE::DEPTH, MEM::GPU), ERROR_CODE::SUCCESS);
  EXPECT_NE(gpu.getPtr<float>(MEM::GPU), nullptr);
  Mat both;
  ASSERT_EQ(camera.retrieveMeasure(both, MEASURE::DEPTH, MEM::BOTH), ERROR_CODE::SUCCESS);
  EXPECT_EQ(both.getMemoryType(), MEM::BOTH);
  ASSERT_EQ(both.updateGPUfromCPU(), ERROR_CODE::SUCCESS);
  // A Mat of another type is reallocated.
  Mat wrong(Resolution(10, 10), MAT_TYPE::U8_C4);
  ASSERT_EQ(camera.retrieveMeasure(wrong, MEASURE::DEPTH), ERROR_CODE::SUCCESS);
  EXPECT_EQ(wrong.getDataType(), MAT_TYPE::F32_C1);
  EXPECT_EQ(wrong.getWidth(), 200u);
}

TEST(DepthCamera, DepthViewsDrawNearBrightAndInvalidBlack) {
  // A box nearer than the plane, and a hole.
  const auto scene = mapura::test::renderStep(cv::Size(200, 120), 8.f, 20.f, cv::Rect(70, 30, 60, 60));
  Camera camera;
  putFrame(camera, scene);
  cv::Mat bgra;
  EXPECT_EQ(depthView(*camera.state(), VIEW::DEPTH, bgra), ERROR_CODE::MODULE_NOT_ENABLED);
  ASSERT_EQ(depthStep(*camera.state(), RuntimeParameters()), ERROR_CODE::SUCCESS);
  camera.state()->depth.depth_m(cv::Rect(0, 0, 10, 10)).setTo(kNaN);

  ASSERT_EQ(depthView(*camera.state(), VIEW::DEPTH, bgra), ERROR_CODE::SUCCESS);
  ASSERT_EQ(bgra.type(), CV_8UC4);
  ASSERT_EQ(bgra.size(), scene.left.size());
  const cv::Vec4b near_px = bgra.at<cv::Vec4b>(60, 100), far_px = bgra.at<cv::Vec4b>(100, 170);
  EXPECT_GT(near_px[0], far_px[0] + 100);
  EXPECT_EQ(near_px[0], near_px[2]);  // grey
  EXPECT_EQ(bgra.at<cv::Vec4b>(5, 5), cv::Vec4b(0, 0, 0, 255));

  ASSERT_EQ(depthView(*camera.state(), VIEW::DEPTH_COLOR, bgra), ERROR_CODE::SUCCESS);
  const cv::Vec4b near_c = bgra.at<cv::Vec4b>(60, 100), far_c = bgra.at<cv::Vec4b>(100, 170);
  EXPECT_GT(near_c[2], near_c[0]);  // near is warm (red over blue)
  EXPECT_GT(far_c[0], far_c[2]);    // far is cold
  EXPECT_EQ(bgra.at<cv::Vec4b>(5, 5), cv::Vec4b(0, 0, 0, 255));
  EXPECT_EQ(depthView(*camera.state(), VIEW::LEFT, bgra), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
}

}  // namespace
}  // namespace pv::internal
