#include <gtest/gtest.h>

#include "pv/camera.h"
#include "pv/pavo.h"

namespace {

template <typename E>
int v(E e) {
  return static_cast<int>(e);
}

TEST(Defines, ToStringGivesUpperCaseWords) {
  EXPECT_STREQ(pv::toString(pv::ERROR_CODE::END_OF_KTR_FILE_REACHED).c_str(), "END OF KTR FILE REACHED");
  // Every error code has its own text, upper case, no underscores.
  for (int i = 0; i < v(pv::ERROR_CODE::LAST); ++i) {
    const std::string s = pv::toString(static_cast<pv::ERROR_CODE>(i)).str();
    EXPECT_EQ(s.find("UNKNOWN"), std::string::npos) << i;
    for (char c : s) EXPECT_TRUE((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ') << s;
  }
  EXPECT_STREQ(pv::toString(static_cast<pv::ERROR_CODE>(99)).c_str(), "UNKNOWN 99");
}

TEST(Defines, NeuralModelIsNeverReportedAvailable) {
  const pv::AI_Model_status s = pv::Camera::checkAIModelStatus(pv::AI_MODELS::NEURAL_DEPTH, 0);
  EXPECT_FALSE(s.downloaded);
  EXPECT_FALSE(s.optimized);
  // The flag the application tests is the second byte of the status.
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&s);
  EXPECT_EQ(bytes[1], 0);
  pv::Camera cam;
  pv::InitParameters init;
  init.depth_mode = pv::DEPTH_MODE::NEURAL;
  init.input.setFromKTRFile("whatever.ktr");
  EXPECT_EQ(cam.open(init), pv::ERROR_CODE::AI_MODEL_NOT_AVAILABLE);
  EXPECT_FALSE(cam.isOpened());
  EXPECT_NE(std::string(pv::lastErrorDetail().c_str()), "");
}

}  // namespace
