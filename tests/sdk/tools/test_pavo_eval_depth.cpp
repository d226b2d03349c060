// `pavo eval depth` on a synthesized recording with its true depth: the figures of our mode and of
// the SGBM baseline, the DEPTH_COLOR views written into a folder it makes, and clear refusals.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

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
  EXPECT_GT(figure(r.out, "mode=performance", "valid_pct"), 90.0) << r.out;
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

}  // namespace
