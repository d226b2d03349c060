// `pavo eval depth` on a synthesized recording with its true depth: the figures of our mode and of
// the SGBM baseline, the DEPTH_COLOR views written into a folder it makes, and clear refusals.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "stereo_scenes.h"
#include "test_utils.h"

namespace {

using ToolRun = mapura::test::CommandRun;

ToolRun pavo(const std::string& args) { return mapura::test::runCommand(PAVO_TOOL, args); }

// The value after "name=" on the line that starts with `line_start`, or -1.
double figure(const std::string& output, const std::string& line_start, const std::string& name) {
  const size_t line = output.find(line_start);
  if (line == std::string::npos) return -1;
  const size_t at = output.find(name + "=", line);
  if (at == std::string::npos || at > output.find('\n', line)) return -1;
  return std::stod(output.substr(at + name.size() + 1));
}

TEST(PavoEvalDepth, RecordingAgainstItsTrueDepthWithViews) {
  const std::string dir = mapura::test::scratchDir("pavo_eval_depth");
  const std::string ktr = dir + "/room.ktr";
  ToolRun r = pavo("synth room -o " + ktr + " --frames 8 --resolution VGA --gt-depth");
  ASSERT_EQ(r.status, 0) << r.out;

  const std::string views = dir + "/views/new";  // neither folder exists yet
  r = pavo("eval depth " + ktr + " --gt-depth " + dir + "/room.gt-depth --mode performance --frames 2 --views " +
           views);
  ASSERT_EQ(r.status, 0) << r.out;
  const double bad2 = figure(r.out, "mode=performance", "bad2_pct");
  EXPECT_GE(bad2, 0.0) << r.out;
  EXPECT_LT(bad2, 5.0) << r.out;
  EXPECT_GT(figure(r.out, "mode=performance", "density_pct"), 90.0) << r.out;
  EXPECT_GE(figure(r.out, "mode=performance", "bad2_at_baseline_density_pct"), 0.0) << r.out;
  EXPECT_GE(figure(r.out, "baseline=sgbm", "bad2_returned_pct"), 0.0) << r.out;
  EXPECT_GE(figure(r.out, "baseline=sgbm", "bad2_pct"), 0.0) << r.out;
  EXPECT_TRUE(std::filesystem::exists(views + "/000000_performance.png")) << r.out;
  EXPECT_TRUE(std::filesystem::exists(views + "/000004_performance.png")) << r.out;

  // Refusals: no true depth folder, and one without the recording's frames.
  ToolRun missing = pavo("eval depth " + ktr + " --mode performance");
  EXPECT_NE(missing.status, 0) << missing.out;
  std::filesystem::create_directories(dir + "/empty");
  missing = pavo("eval depth " + ktr + " --gt-depth " + dir + "/empty --mode performance --frames 2");
  EXPECT_NE(missing.status, 0);
  EXPECT_NE(missing.out.find("ground truth"), std::string::npos) << missing.out;
}

TEST(PavoEvalDepth, FolderOfScenesGivesALinePerSceneAndModeAndTheMeans) {
  // Two scenes in the Middlebury 2005 layout (ground truth as a PNG scaled by info.txt's first
  // number), one folder holding both, and a folder holding neither.
  const std::string dir = mapura::test::scratchDir("pavo_eval_depth_scenes");
  int n = 0;
  for (const char* name : {"boxA", "boxB"}) {
    const std::string scene = dir + "/all/" + name;
    std::filesystem::create_directories(scene);
    const auto pair = mapura::test::renderStep(cv::Size(160, 96), 6.f, 14.f, cv::Rect(50 + 10 * n, 25, 50, 40), 3 + n);
    cv::imwrite(scene + "/imL.png", pair.left);
    cv::imwrite(scene + "/imR.png", pair.right);
    cv::Mat truth;
    pair.disparity_px.convertTo(truth, CV_8U, 4.0);
    cv::imwrite(scene + "/disp0.png", truth);
    std::ofstream(scene + "/info.txt") << "4 24\n";
    ++n;
  }
  ToolRun r = pavo("eval depth " + dir + "/all --mode all --repeat 1");
  ASSERT_EQ(r.status, 0) << r.out;
  for (const std::string scene : {"boxA ", "boxB ", "mean "}) {
    for (const std::string mode : {"mode=performance", "mode=quality", "mode=ultra"}) {
      const std::string line = scene + std::string(12 - scene.size() + 1, ' ') + mode;
      EXPECT_GE(figure(r.out, line, "density_pct"), 50.0) << line << "\n" << r.out;
      const double confident = figure(r.out, line, "bad2_at_baseline_density_pct");
      EXPECT_GE(confident, 0.0) << line;
      EXPECT_LE(confident, figure(r.out, line, "bad2_returned_pct") + 1e-9) << line;
      EXPECT_GE(figure(r.out, line, "bad2_pct"), 0.0) << line;
      EXPECT_GE(figure(r.out, line, "bad1_pct"), figure(r.out, line, "bad2_pct")) << line;
    }
    const std::string base = scene + std::string(12 - scene.size() + 1, ' ') + "baseline=sgbm";
    EXPECT_GT(figure(r.out, base, "density_pct"), 0.0) << base << "\n" << r.out;
    EXPECT_GE(figure(r.out, base, "bad2_returned_pct"), 0.0) << base;
  }
  EXPECT_NE(r.out.find("mean over 2 scenes"), std::string::npos) << r.out;

  // A scene named directly gives its own lines and no mean.
  r = pavo("eval depth " + dir + "/all/boxA --mode performance --repeat 1");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out.find("mean"), std::string::npos) << r.out;
  // A folder without pairs is refused.
  std::filesystem::create_directories(dir + "/nothing/inside");
  r = pavo("eval depth " + dir + "/nothing --mode all");
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.out.find("holds no stereo pair"), std::string::npos) << r.out;
}

}  // namespace
