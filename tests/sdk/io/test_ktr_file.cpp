#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>

#include "io/internal/ktr_file.h"
#include "test_utils.h"

namespace pv::internal {
namespace {

constexpr int kWidth = 64, kHeight = 48;

KtrMetadata smallMetadata() {
  KtrMetadata m;
  m.serial_number = 77;
  m.width = kWidth;
  m.height = kHeight;
  m.fps = 25;
  m.time_origin_ns = 1000000000000LL;
  m.calibration.width = kWidth;
  m.calibration.height = kHeight;
  m.calibration.left = {50, 50, 32, 24, {}};
  m.calibration.right = {50, 50, 32, 24, {}};
  m.calibration.T = {-0.12, 0, 0};
  return m;
}

// Frame i: smooth random texture plus a bright bar whose position encodes i.
cv::Mat makeFrame(int i) {
  cv::Mat small(6, 16, CV_8UC3), frame;
  cv::RNG rng(uint64_t(i) + 1);
  rng.fill(small, cv::RNG::UNIFORM, 0, 255);
  cv::resize(small, frame, cv::Size(2 * kWidth, kHeight), 0, 0, cv::INTER_LINEAR);
  frame(cv::Rect(2 * (i % 60), 0, 4, kHeight)).setTo(cv::Scalar(255, 255, 255));
  return frame;
}

std::string writeRecording(const std::string& name, KTR_COMPRESSION_MODE mode, int frames) {
  const std::string path = mapura::test::scratchDir(name) + "/rec.ktr";
  KtrWriter writer;
  EXPECT_EQ(writer.open(path, smallMetadata(), mode), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  for (int i = 0; i < frames; ++i)
    EXPECT_EQ(writer.write(makeFrame(i), smallMetadata().time_origin_ns + int64_t(i) * 40000000), ERROR_CODE::SUCCESS);
  EXPECT_EQ(writer.close(), ERROR_CODE::SUCCESS);
  return path;
}

using mapura::test::readFileBytes;
using mapura::test::writeFileBytes;

TEST(KtrFile, LosslessRoundTripKeepsFramesTimestampsAndMetadata) {
  const std::string path = writeRecording("ktr_lossless", KTR_COMPRESSION_MODE::LOSSLESS, 12);
  KtrReader reader;
  ASSERT_EQ(reader.open(path), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(reader.frameCount(), 12);
  EXPECT_EQ(reader.taggedFrameCount(), 12);
  EXPECT_EQ(reader.codecName(), "ffv1");
  EXPECT_EQ(reader.metadata().serial_number, 77u);
  cv::Mat frame;
  int64_t ts = 0;
  int index = -1;
  for (int i = 0; i < 12; ++i) {
    ASSERT_EQ(reader.read(frame, ts, index), ERROR_CODE::SUCCESS);
    EXPECT_EQ(index, i);
    EXPECT_EQ(ts, smallMetadata().time_origin_ns + int64_t(i) * 40000000);
    EXPECT_EQ(cv::norm(frame, makeFrame(i), cv::NORM_INF), 0) << "frame " << i;
  }
  EXPECT_EQ(reader.read(frame, ts, index), ERROR_CODE::END_OF_KTR_FILE_REACHED);
  EXPECT_EQ(reader.read(frame, ts, index), ERROR_CODE::END_OF_KTR_FILE_REACHED);
}

TEST(KtrFile, SeekingReturnsExactlyTheFrameAskedForInEveryCodec) {
  for (KTR_COMPRESSION_MODE mode :
       {KTR_COMPRESSION_MODE::H264, KTR_COMPRESSION_MODE::LOSSLESS, KTR_COMPRESSION_MODE::MJPEG}) {
    SCOPED_TRACE(ktrCodecName(mode));
    const std::string path = writeRecording(std::string("ktr_seek_") + ktrCodecName(mode), mode, 70);
    KtrReader reader;
    ASSERT_EQ(reader.open(path), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
    ASSERT_EQ(reader.frameCount(), 70);
    std::vector<cv::Mat> sequential(70);
    int64_t ts = 0;
    int index = -1;
    for (int i = 0; i < 70; ++i) ASSERT_EQ(reader.read(sequential[size_t(i)], ts, index), ERROR_CODE::SUCCESS);
    // Backwards, forwards across key frames, to the same frame twice, to the end and back.
    for (int target : {65, 3, 31, 30, 30, 0, 69, 44, 12}) {
      reader.seek(target);
      EXPECT_EQ(reader.position(), target);
      cv::Mat frame;
      ASSERT_EQ(reader.read(frame, ts, index), ERROR_CODE::SUCCESS);
      EXPECT_EQ(index, target);
      EXPECT_EQ(ts, smallMetadata().time_origin_ns + int64_t(target) * 40000000);
      EXPECT_EQ(cv::norm(frame, sequential[size_t(target)], cv::NORM_INF), 0) << "frame " << target;
      if (mode != KTR_COMPRESSION_MODE::LOSSLESS) {
        EXPECT_LT(cv::norm(frame, makeFrame(target), cv::NORM_L1) / double(3 * frame.total()),
                  8.0);  // 4:2:0 chroma on saturated colours
      }
    }
    reader.seek(1000);
    cv::Mat frame;
    EXPECT_EQ(reader.read(frame, ts, index), ERROR_CODE::END_OF_KTR_FILE_REACHED);
  }
}

TEST(KtrFile, TruncatedRecordingKeepsEveryCompleteFrame) {
  const std::string path = writeRecording("ktr_truncated", KTR_COMPRESSION_MODE::LOSSLESS, 40);
  const std::string bytes = readFileBytes(path);
  const std::string cut = path + ".cut.ktr";
  writeFileBytes(cut, bytes.substr(0, bytes.size() * 6 / 10));
  KtrReader reader;
  ASSERT_EQ(reader.open(cut), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_GT(reader.frameCount(), 10);
  EXPECT_LT(reader.frameCount(), 40);
  EXPECT_EQ(reader.taggedFrameCount(), 40);  // the tag tells that frames are missing
  cv::Mat frame;
  int64_t ts = 0;
  int index = -1;
  for (int i = 0; i < reader.frameCount(); ++i) {
    ASSERT_EQ(reader.read(frame, ts, index), ERROR_CODE::SUCCESS) << "frame " << i;
    EXPECT_EQ(cv::norm(frame, makeFrame(i), cv::NORM_INF), 0) << "frame " << i;
  }
  EXPECT_EQ(reader.read(frame, ts, index), ERROR_CODE::END_OF_KTR_FILE_REACHED);

  // A recording stopped by a crash never had its count written: the tag still says so.
  std::string crashed = bytes.substr(0, bytes.size() * 6 / 10);
  const size_t tag = crashed.find("0000000040");
  ASSERT_NE(tag, std::string::npos);
  crashed.replace(tag, 10, "unfinished");
  writeFileBytes(path + ".crashed.ktr", crashed);
  ASSERT_EQ(reader.open(path + ".crashed.ktr"), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
  EXPECT_EQ(reader.taggedFrameCount(), -1);
  EXPECT_GT(reader.frameCount(), 10);
}

TEST(KtrFile, BadFilesGiveTheirOwnCodes) {
  const std::string path = writeRecording("ktr_bad", KTR_COMPRESSION_MODE::LOSSLESS, 5);
  const std::string dir = std::filesystem::path(path).parent_path().string();
  const std::string good = readFileBytes(path);
  KtrReader reader;

  EXPECT_EQ(reader.open(dir + "/missing.ktr"), ERROR_CODE::INVALID_KTR_FILE);
  std::mt19937 gen(3);
  std::string noise(100000, '\0');
  for (char& c : noise) c = char(gen());
  writeFileBytes(dir + "/noise.ktr", noise);
  EXPECT_EQ(reader.open(dir + "/noise.ktr"), ERROR_CODE::INVALID_KTR_FILE);
  writeFileBytes(dir + "/empty.ktr", "");
  EXPECT_EQ(reader.open(dir + "/empty.ktr"), ERROR_CODE::INVALID_KTR_FILE);
  writeFileBytes(dir + "/header_only.ktr", good.substr(0, 200));
  EXPECT_EQ(reader.open(dir + "/header_only.ktr"), ERROR_CODE::INVALID_KTR_FILE);

  // A Matroska file without the pavo.json attachment is not a recording.
  std::string renamed = good;
  const size_t name = renamed.find("pavo.json");
  ASSERT_NE(name, std::string::npos);
  renamed.replace(name, 9, "note.json");
  writeFileBytes(dir + "/no_json.ktr", renamed);
  EXPECT_EQ(reader.open(dir + "/no_json.ktr"), ERROR_CODE::INVALID_KTR_FILE);
  EXPECT_NE(std::string(lastErrorDetail().c_str()).find("pavo.json"), std::string::npos);

  // A recording whose calibration is unusable.
  std::string bad_calibration = good;
  const size_t fx = bad_calibration.find("\"fx\"");
  ASSERT_NE(fx, std::string::npos);
  bad_calibration.replace(fx, 4, "\"fq\"");
  writeFileBytes(dir + "/bad_calibration.ktr", bad_calibration);
  EXPECT_EQ(reader.open(dir + "/bad_calibration.ktr"), ERROR_CODE::INVALID_CALIBRATION_FILE);

  EXPECT_FALSE(reader.isOpen());
}

TEST(KtrFile, DamagedFramesAreReportedAndReadingGoesOn) {
  const std::string path = writeRecording("ktr_damaged", KTR_COMPRESSION_MODE::LOSSLESS, 30);
  std::string bytes = readFileBytes(path);
  std::mt19937 gen(11);
  for (size_t i = bytes.size() / 2; i < bytes.size() / 2 + 2000; ++i) bytes[i] = char(gen());
  const std::string damaged = path + ".damaged.ktr";
  writeFileBytes(damaged, bytes);
  KtrReader reader;
  if (reader.open(damaged) != ERROR_CODE::SUCCESS) GTEST_SKIP() << "the damage hit the file structure";
  cv::Mat frame;
  int64_t ts = 0;
  int index = -1, good = 0, corrupted = 0;
  for (int i = 0; i < reader.frameCount() + 1; ++i) {
    const ERROR_CODE err = reader.read(frame, ts, index);
    if (err == ERROR_CODE::END_OF_KTR_FILE_REACHED) break;
    ASSERT_TRUE(err == ERROR_CODE::SUCCESS || err == ERROR_CODE::CORRUPTED_FRAME) << int(err);
    (err == ERROR_CODE::SUCCESS ? good : corrupted)++;
  }
  EXPECT_GT(good, 10);
  EXPECT_TRUE(corrupted > 0 || reader.frameCount() < 30);
  EXPECT_EQ(reader.read(frame, ts, index), ERROR_CODE::END_OF_KTR_FILE_REACHED);
}

// Odd sizes are padded for the codecs and handed back as they were: each eye in its place (a
// shifted eye would move the bright column or the bottom row), exactly for the lossless codec.
TEST(KtrFile, OddSizesComeBackWithoutCropOrShift) {
  const int w = 63, h = 37;
  KtrMetadata m = smallMetadata();
  m.width = m.calibration.width = w;
  m.height = m.calibration.height = h;
  cv::Mat frames[2];
  for (int i = 0; i < 2; ++i) {
    cv::resize(makeFrame(i), frames[i], cv::Size(2 * w, h), 0, 0, cv::INTER_AREA);
    frames[i].col(w - 1).setTo(cv::Scalar(255, 255, 255));  // the left eye's last column
    frames[i].col(w).setTo(cv::Scalar(0, 0, 0));            // the right eye's first column
    frames[i].row(h - 1).setTo(cv::Scalar(0, 0, 255));      // both eyes' last row
  }
  for (KTR_COMPRESSION_MODE mode :
       {KTR_COMPRESSION_MODE::LOSSLESS, KTR_COMPRESSION_MODE::H264, KTR_COMPRESSION_MODE::MJPEG}) {
    SCOPED_TRACE(ktrCodecName(mode));
    const std::string path = mapura::test::scratchDir("ktr_odd") + "/" + ktrCodecName(mode) + ".ktr";
    KtrWriter writer;
    ASSERT_EQ(writer.open(path, m, mode), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
    for (int i = 0; i < 2; ++i)
      ASSERT_EQ(writer.write(frames[i], m.time_origin_ns + i * 40000000), ERROR_CODE::SUCCESS);
    ASSERT_EQ(writer.close(), ERROR_CODE::SUCCESS);
    KtrReader reader;
    ASSERT_EQ(reader.open(path), ERROR_CODE::SUCCESS) << lastErrorDetail().c_str();
    EXPECT_EQ(reader.metadata().width, w);
    EXPECT_EQ(reader.metadata().height, h);
    for (bool bgra : {false, true}) {
      reader.setBgraOutput(bgra);
      reader.seek(1);
      cv::Mat frame, bgr;
      int64_t ts = 0;
      int index = -1;
      ASSERT_EQ(reader.read(frame, ts, index), ERROR_CODE::SUCCESS);
      ASSERT_EQ(frame.size(), cv::Size(2 * w, h));
      if (bgra)
        cv::cvtColor(frame, bgr, cv::COLOR_BGRA2BGR);
      else
        bgr = frame;
      cv::Mat diff;
      cv::absdiff(bgr, frames[1], diff);
      if (mode == KTR_COMPRESSION_MODE::LOSSLESS) {
        EXPECT_EQ(cv::norm(diff, cv::NORM_INF), 0);
      }
      EXPECT_LT(cv::mean(diff)[1], 8.0);  // coding noise on saturated colours
      EXPECT_GT(cv::mean(bgr.col(w - 1))[1], 200);
      EXPECT_LT(cv::mean(bgr.col(w))[1], 50);
      EXPECT_GT(cv::mean(bgr.row(h - 1))[2], 180);
    }
  }
}

TEST(KtrFile, WriterRefusesBadFramesAndPaths) {
  KtrWriter writer;
  KtrMetadata tiny = smallMetadata();
  tiny.width = 15;
  EXPECT_EQ(writer.open(mapura::test::scratchDir("ktr_writer") + "/x.ktr", tiny),
            ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
  EXPECT_NE(writer.open("/nonexistent-dir/x.ktr", smallMetadata()), ERROR_CODE::SUCCESS);
  // A full disk: the header or the frames cannot be written; no crash, an error code.
  if (writer.open("/dev/full", smallMetadata()) == ERROR_CODE::SUCCESS) {
    ERROR_CODE err = ERROR_CODE::SUCCESS;
    for (int i = 0; i < 50 && err == ERROR_CODE::SUCCESS; ++i) err = writer.write(makeFrame(i), int64_t(i) * 40000000);
    if (err == ERROR_CODE::SUCCESS) err = writer.close();
    EXPECT_NE(err, ERROR_CODE::SUCCESS);
    writer.close();
  }
  ASSERT_EQ(writer.open(mapura::test::scratchDir("ktr_writer") + "/y.ktr", smallMetadata()), ERROR_CODE::SUCCESS);
  EXPECT_EQ(writer.write(cv::Mat(10, 10, CV_8UC3), 0), ERROR_CODE::INVALID_FUNCTION_PARAMETERS);
  EXPECT_EQ(writer.close(), ERROR_CODE::SUCCESS);
}

}  // namespace
}  // namespace pv::internal
