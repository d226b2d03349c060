#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <opencv2/core.hpp>

#include "io/internal/ktr_metadata.h"
#include "test_utils.h"

namespace pv::internal {
namespace {

KtrMetadata sample() {
  KtrMetadata m;
  m.serial_number = 4000123456u;
  m.width = 1280;
  m.height = 720;
  m.fps = 60;
  m.time_origin_ns = 1700000000123456789LL;
  m.calibration.width = 1280;
  m.calibration.height = 720;
  m.calibration.left = {700.5, 701.25, 640.1, 359.9, {-0.05, 0.01, 0.001, -0.002, 0.0003}};
  m.calibration.right = {699.5, 700.25, 639.1, 360.9, {-0.04, 0.02, 0.0, 0.0, 0.0}};
  m.calibration.T = {-0.12, 0.001, -0.002};
  return m;
}

TEST(KtrMetadata, RoundTripKeepsEveryValue) {
  const KtrMetadata m = sample();
  KtrMetadata back;
  ASSERT_EQ(parseKtrMetadata(writeKtrMetadata(m), back), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(back.serial_number, m.serial_number);
  EXPECT_EQ(back.width, 1280);
  EXPECT_EQ(back.height, 720);
  EXPECT_DOUBLE_EQ(back.fps, 60);
  EXPECT_EQ(back.time_origin_ns, m.time_origin_ns);
  EXPECT_DOUBLE_EQ(back.calibration.left.fy, 701.25);
  EXPECT_DOUBLE_EQ(back.calibration.left.disto[4], 0.0003);
  EXPECT_DOUBLE_EQ(back.calibration.right.cx, 639.1);
  EXPECT_DOUBLE_EQ(back.calibration.T[0], -0.12);
}

TEST(KtrMetadata, MalformedDocumentsGiveTheirOwnCodes) {
  KtrMetadata out;
  for (const char* text : {"", "garbage", "[1,2,3]", "{", "{\"format_version\": 1}", "{\"format_version\": 7}",
                           "\x00\xff{", "{\"format_version\": 1, \"width\": -5, \"height\": 720, \"fps\": 30}"})
    EXPECT_EQ(parseKtrMetadata(text, out), ERROR_CODE::INVALID_KTR_FILE) << text;
  // A valid document whose calibration is missing or impossible.
  std::string text = writeKtrMetadata(sample());
  std::string no_fx = text;
  no_fx.replace(no_fx.find("\"fx\""), 4, "\"fq\"");
  EXPECT_EQ(parseKtrMetadata(no_fx, out), ERROR_CODE::INVALID_CALIBRATION_FILE);
  KtrMetadata zero_baseline = sample();
  zero_baseline.calibration.T = {0, 0, 0};
  EXPECT_EQ(parseKtrMetadata(writeKtrMetadata(zero_baseline), out), ERROR_CODE::INVALID_CALIBRATION_FILE);
  KtrMetadata not_a_rotation = sample();
  not_a_rotation.calibration.R[0] = 3;
  EXPECT_EQ(parseKtrMetadata(writeKtrMetadata(not_a_rotation), out), ERROR_CODE::INVALID_CALIBRATION_FILE);
  EXPECT_FALSE(lastErrorDetail().empty());
}

TEST(CalibrationYaml, RoundTripAndBadFiles) {
  const std::string dir = mapura::test::scratchDir("calibration_yaml");
  const StereoCalibration c = sample().calibration;
  ASSERT_EQ(writeCalibrationYaml(dir + "/SN1.yml", c), ERROR_CODE::SUCCESS);
  StereoCalibration back;
  ASSERT_EQ(readCalibrationYaml(dir + "/SN1.yml", back), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_DOUBLE_EQ(back.left.fx, c.left.fx);
  EXPECT_DOUBLE_EQ(back.right.disto[1], c.right.disto[1]);
  EXPECT_DOUBLE_EQ(back.T[2], c.T[2]);
  EXPECT_EQ(back.width, 1280);

  EXPECT_EQ(readCalibrationYaml(dir + "/missing.yml", back), ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE);
  std::ofstream(dir + "/bad.yml") << "%YAML:1.0\nimage_width: 1280\nimage_height: 720\nK_left: [1, 2]\n";
  EXPECT_EQ(readCalibrationYaml(dir + "/bad.yml", back), ERROR_CODE::INVALID_CALIBRATION_FILE);
  std::ofstream(dir + "/junk.yml") << "\x01\x02 not yaml {{{";
  const ERROR_CODE junk = readCalibrationYaml(dir + "/junk.yml", back);
  EXPECT_TRUE(junk == ERROR_CODE::INVALID_CALIBRATION_FILE || junk == ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE);
}

}  // namespace
}  // namespace pv::internal

namespace pv::internal {
namespace {

// The same property the fuzz target checks, on mutations of a valid document.
TEST(KtrMetadata, MutatedDocumentsNeverCrashTheParser) {
  const std::string valid = writeKtrMetadata(sample());
  cv::RNG rng(12);
  int accepted = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string text = valid;
    const int edits = 1 + int(rng.uniform(0, 4));
    for (int e = 0; e < edits; ++e) {
      const size_t at = size_t(rng.uniform(0, int(text.size())));
      switch (rng.uniform(0, 3)) {
        case 0: text[at] = char(rng.uniform(0, 256)); break;
        case 1: text.erase(at, size_t(rng.uniform(1, 20))); break;
        default: text.insert(at, 1, "{}[]\",:0e-"[rng.uniform(0, 10)]);
      }
    }
    KtrMetadata out;
    const ERROR_CODE err = parseKtrMetadata(text, out);
    ASSERT_TRUE(err == ERROR_CODE::SUCCESS || err == ERROR_CODE::INVALID_KTR_FILE ||
                err == ERROR_CODE::INVALID_CALIBRATION_FILE);
    if (err == ERROR_CODE::SUCCESS) {
      ++accepted;
      EXPECT_TRUE(out.calibration.plausible());
    }
  }
  EXPECT_GT(accepted, 0);
}

}  // namespace
}  // namespace pv::internal
