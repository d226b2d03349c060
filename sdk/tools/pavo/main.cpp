// pavo: the PAVO SDK's command-line tool. Sub-commands register themselves (cmd_*.cpp).
#include <iostream>
#include <string>

#include "command.h"

namespace {

void printHelp() {
  std::cout << "usage: pavo COMMAND [ARGS]\n\ncommands:\n";
  for (const auto& [name, cmd] : pavo::commands())
    std::cout << "  " << name << " " << cmd.usage << "\n      " << cmd.summary << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::string(argv[1]) == "--help" || std::string(argv[1]) == "help") {
    printHelp();
    return argc < 2 ? 2 : 0;
  }
  const auto& cmds = pavo::commands();
  if (argc >= 3) {
    auto two = cmds.find(std::string(argv[1]) + " " + argv[2]);
    if (two != cmds.end()) return two->second.run(argc - 3, argv + 3);
  }
  auto one = cmds.find(argv[1]);
  if (one == cmds.end()) {
    std::cerr << "pavo: unknown command '" << argv[1] << "' (pavo help lists them)\n";
    return 2;
  }
  return one->second.run(argc - 2, argv + 2);
}
