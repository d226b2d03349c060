// pavo: the PAVO SDK's command-line tool. Sub-commands register themselves (cmd_*.cpp).
#include <iostream>
#include <string>
#include <vector>

#include "command.h"

namespace {

void printHelp() {
  std::cout << "usage: pavo COMMAND [ARGS]   (pavo COMMAND --help: that command's options)\n\ncommands:\n";
  for (const auto& [name, cmd] : pavo::commands())
    std::cout << "  " << name << " " << cmd.usage << "\n      " << cmd.summary << "\n";
}

bool isHelp(const std::string& arg) { return arg == "--help" || arg == "-h"; }

// Commands of a family named alone ("pavo eval"); false when `word` names no family.
bool printFamily(const std::string& word) {
  bool family = false;
  for (const auto& [name, cmd] : pavo::commands())
    if (name.rfind(word + " ", 0) == 0) {
      if (!family) std::cout << "pavo " << word << " commands:\n";
      family = true;
      std::cout << "  " << name << " " << cmd.usage << "\n      " << cmd.summary << "\n";
    }
  return family;
}

// args[0] is the command's first word; `help` asks for its usage whatever follows.
int dispatch(const std::vector<char*>& args, bool help) {
  const auto& cmds = pavo::commands();
  const pavo::Command* command = nullptr;
  size_t first = 1;  // the command's first argument
  if (args.size() >= 2 && cmds.count(std::string(args[0]) + " " + args[1])) {
    command = &cmds.at(std::string(args[0]) + " " + args[1]);
    first = 2;
  } else if (cmds.count(args[0])) {
    command = &cmds.at(args[0]);
  }
  if (!command) {
    if (printFamily(args[0])) return help || (args.size() >= 2 && isHelp(args[1])) ? 0 : 2;
    std::cerr << "pavo: unknown command '" << args[0] << "' (pavo help lists them)\n";
    return 2;
  }
  for (size_t i = first; i < args.size() && !help; ++i) help = isHelp(args[i]);
  if (help) {
    pavo::printCommandHelp(*command);
    return 0;
  }
  std::vector<char*> rest(args.begin() + long(first), args.end());
  rest.push_back(nullptr);
  return command->run(int(rest.size()) - 1, rest.data());
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<char*> args(argv + 1, argv + argc);
  if (args.empty() || isHelp(args[0]) || std::string(args[0]) == "help") {
    // pavo help import, pavo help eval traj: as pavo import --help.
    if (args.size() >= 2) return dispatch(std::vector<char*>(args.begin() + 1, args.end()), true);
    printHelp();
    return args.empty() ? 2 : 0;
  }
  return dispatch(args, false);
}
