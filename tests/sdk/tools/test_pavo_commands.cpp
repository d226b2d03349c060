// The `pavo` tool's command line: every command answers --help with its usage.
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
  const ToolRun traj = pavo("help eval traj");
  EXPECT_EQ(traj.status, 0);
  EXPECT_EQ(traj.out.rfind("usage: pavo eval traj", 0), 0u) << traj.out;
  EXPECT_NE(pavo("no-such-command --help").status, 0);
}

}  // namespace
