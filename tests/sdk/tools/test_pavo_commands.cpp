// The `pavo` tool's command line: every command answers --help with its usage, `pavo import`
// reads a published folder with --every and --first and refuses bad values, and `pavo version`
// shows the thread limit PAVO_THREADS sets.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "test_utils.h"

namespace {

using ToolRun = mapura::test::CommandRun;

ToolRun pavo(const std::string& args) { return mapura::test::runCommand(PAVO_TOOL, args); }

TEST(PavoCommands, EveryCommandPrintsItsUsageForHelp) {
  const ToolRun list = pavo("help");
  ASSERT_EQ(list.status, 0) << list.out;
  std::istringstream lines(list.out);
  int commands = 0;
  for (std::string line; std::getline(lines, line);) {
    // "  name USAGE..." lines; the summary lines below them are indented further.
    if (line.size() < 3 || line[0] != ' ' || line[1] != ' ' || line[2] == ' ') continue;
    std::istringstream words(line);
    std::string first, second;
    words >> first >> second;
    for (const char* flag : {"--help", "-h"}) {
      if (commands > 0 && std::string(flag) == "-h") continue;  // the short form once
      const ToolRun help = pavo(first + " " + second + " " + flag);
      EXPECT_EQ(help.status, 0) << first << " " << flag << ": " << help.out;
      const bool usage = help.out.rfind("usage: pavo " + first + " ", 0) == 0;
      EXPECT_TRUE(usage) << first << ": " << help.out;
      EXPECT_EQ(help.out.find("needs a value"), std::string::npos) << help.out;
    }
    ++commands;
  }
  EXPECT_GE(commands, 10) << list.out;
  const ToolRun import = pavo("help import");
  EXPECT_EQ(import.status, 0);
  EXPECT_NE(import.out.find("--every N"), std::string::npos) << import.out;
  EXPECT_NE(pavo("no-such-command --help").status, 0);
}

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
