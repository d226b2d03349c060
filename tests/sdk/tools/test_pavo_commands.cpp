// The `pavo` tool's command line: `pavo import` reads a published folder with --every and --first
// and refuses bad values, and `pavo version` shows the thread limit PAVO_THREADS sets.
#include <gtest/gtest.h>

#include <string>

#include "test_utils.h"

namespace {

using ToolRun = mapura::test::CommandRun;

ToolRun pavo(const std::string& args) { return mapura::test::runCommand(PAVO_TOOL, args); }

TEST(PavoCommands, ImportCutsAndThinsAPublishedFolder) {
  MAPURA_REQUIRE_SHARED(dir, "euroc_mh01_shake_10hz");
  const std::string out = mapura::test::scratchDir("pavo_import_cli") + "/mh.ktr";
  ToolRun r = pavo("import " + dir + " -o " + out + " --every 3 --first 4 --codec mjpeg");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("4 frames at 3.333 Hz, euroc"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("(4 poses)"), std::string::npos) << r.out;
  r = pavo("info " + out);
  EXPECT_NE(r.out.find("frames: 4"), std::string::npos) << r.out;
  for (const char* bad : {"--every 0", "--every 1.5", "--first 0", "--first x", "--every"}) {
    r = pavo("import " + dir + " -o " + out + " " + bad);
    EXPECT_EQ(r.status >> 8, 2) << bad << ": " << r.out;
  }
}

TEST(PavoCommands, VersionShowsTheThreadLimitTheEnvironmentSets) {
  const ToolRun three = mapura::test::runCommand(std::string("PAVO_THREADS=3 ") + PAVO_TOOL, "version");
  ASSERT_EQ(three.status, 0) << three.out;
  EXPECT_NE(three.out.find("threads: 3 for parallel loops (PAVO_THREADS=3)"), std::string::npos) << three.out;
  const ToolRun all = mapura::test::runCommand(std::string("env -u PAVO_THREADS ") + PAVO_TOOL, "version");
  EXPECT_NE(all.out.find("for parallel loops (all cores)"), std::string::npos) << all.out;
  for (const char* bad : {"0", "two", "4x", "100000"}) {
    const ToolRun r = mapura::test::runCommand(std::string("PAVO_THREADS=") + bad + " " + PAVO_TOOL, "version");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find(std::string("PAVO_THREADS=\"") + bad + "\" is not a whole number"), std::string::npos)
        << r.out;
  }
}

}  // namespace
