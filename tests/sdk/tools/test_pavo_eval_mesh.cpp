// `pavo eval mesh` judging a map against the truth of its recording: completeness over what the
// recording's true depth shows, figures that react when the map is worse, and clear refusals.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "test_utils.h"

namespace {

using ToolRun = mapura::test::CommandRun;

ToolRun pavo(const std::string& args) { return mapura::test::runCommand(PAVO_TOOL, args); }

// The "N of M truth samples seen" count of the last line.
long seenSamples(const std::string& output) {
  const size_t at = output.find(" of ", output.find("map points; "));
  if (at == std::string::npos) return -1;
  const size_t start = output.rfind(' ', at - 1);
  return std::stol(output.substr(start + 1, at - start - 1));
}

double figure(const std::string& output, const std::string& name) {
  std::istringstream in(output);
  std::string key;
  double value = -1;
  while (in >> key) {
    if (key == name && (in >> value)) return value;
  }
  return -1;
}

TEST(PavoEvalMesh, CompletenessCountsWhatTheRecordingShowsWithinTheRange) {
  const std::string dir = mapura::test::scratchDir("pavo_eval_mesh");
  const std::string ktr = dir + "/room.ktr";
  ToolRun r = pavo("synth room -o " + ktr + " --frames 24 --resolution VGA --gt-depth");
  ASSERT_EQ(r.status, 0) << r.out;
  r = pavo("map " + ktr + " -o " + dir + "/map --resolution 0.05 --range 3 --gt-poses");
  ASSERT_EQ(r.status, 0) << r.out;
  const std::string mesh = dir + "/map/mesh.ply", truth = dir + "/room.gt.ply";

  // Against the truth the frames show within the map's range, the map is nearly complete; the
  // same truth judged by nearness to the map alone counts places the camera never looked at.
  const ToolRun seen = pavo("eval mesh " + mesh + " " + truth + " --threshold 0.05 --recording " + ktr + " --range 3");
  ASSERT_EQ(seen.status, 0) << seen.out;
  const double complete = figure(seen.out, "completeness_pct");
  EXPECT_GT(complete, 90.0) << seen.out;
  EXPECT_LT(figure(seen.out, "accuracy_mean_m"), 0.025) << seen.out;
  const ToolRun near = pavo("eval mesh " + mesh + " " + truth + " --threshold 0.05");
  ASSERT_EQ(near.status, 0) << near.out;
  EXPECT_LT(figure(near.out, "completeness_pct"), complete) << near.out;

  // A shorter range sees less truth: what lies beyond it no longer counts.
  const ToolRun short_range =
      pavo("eval mesh " + mesh + " " + truth + " --threshold 0.05 --recording " + ktr + " --range 2");
  ASSERT_EQ(short_range.status, 0) << short_range.out;
  EXPECT_GT(seenSamples(short_range.out), 0) << short_range.out;
  EXPECT_LT(seenSamples(short_range.out), seenSamples(seen.out)) << short_range.out;

  // Refusals: --range without --recording, a recording without its true depth folder.
  EXPECT_NE(pavo("eval mesh " + mesh + " " + truth + " --range 2").status, 0);
  const std::string bare = dir + "/bare.ktr";
  std::ifstream src(ktr, std::ios::binary);
  std::ofstream(bare, std::ios::binary) << src.rdbuf();
  std::ifstream gt(dir + "/room.gt.txt");
  std::ofstream(dir + "/bare.gt.txt") << gt.rdbuf();
  const ToolRun missing = pavo("eval mesh " + mesh + " " + truth + " --recording " + bare);
  EXPECT_NE(missing.status, 0);
  EXPECT_NE(missing.out.find("true depth"), std::string::npos) << missing.out;
}

}  // namespace
