// Sub-commands of the `pavo` tool. Each lives in its own cmd_*.cpp and registers itself.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace pavo {

/// Parsed command line: positional words, `--name value` options and `--flag` switches.
class Args {
 public:
  /// `flags` names the options that take no value.
  Args(int argc, char** argv, const std::vector<std::string>& flags = {});
  const std::vector<std::string>& positional() const { return positional_; }
  bool has(const std::string& name) const { return options_.count(name) > 0; }
  std::string get(const std::string& name, const std::string& fallback = "") const;
  /// Numeric option; `ok` false when present but not a number.
  double getNumber(const std::string& name, double fallback, bool* ok = nullptr) const;
  /// Options given that are not in `known` (to reject typos).
  std::vector<std::string> unknown(const std::vector<std::string>& known) const;
  /// Text of the first parse problem (an option missing its value), empty when none.
  const std::string& error() const { return error_; }

 private:
  std::vector<std::string> positional_;
  std::map<std::string, std::string> options_;
  std::string error_;
};

struct Command {
  std::string name;                   ///< "info", or two words for a family: "eval depth"
  std::string usage;                  ///< arguments after the name
  std::string summary;                ///< one line
  int (*run)(int argc, char** argv);  ///< argv[0] is the first argument after the name
  std::string details;                ///< what `pavo <name> --help` prints after the usage (may be empty)
};

/// Adds a command to the tool; called from static initialisers.
bool registerCommand(const Command& command);
const std::map<std::string, Command>& commands();

/// Prints a command's usage, summary and details on stdout (`pavo <name> --help`).
void printCommandHelp(const Command& command);

/// Prints "pavo <name>: <message>" on stderr and returns 2 (bad usage) for `return usageError(...)`.
int usageError(const std::string& name, const std::string& message);
/// Prints "pavo <name>: <message>" on stderr and returns 1 (the command failed).
int failure(const std::string& name, const std::string& message);

}  // namespace pavo

#define PAVO_CONCAT_INNER(a, b) a##b
#define PAVO_CONCAT(a, b) PAVO_CONCAT_INNER(a, b)
/// PAVO_COMMAND("info", "FILE.ktr", "prints a recording's properties", runInfo);
#define PAVO_COMMAND(name, usage, summary, fn) \
  static const bool PAVO_CONCAT(pavo_registered_, __LINE__) = ::pavo::registerCommand({name, usage, summary, fn, ""})
/// The same with the option descriptions `pavo <name> --help` prints.
#define PAVO_COMMAND_WITH_HELP(name, usage, summary, details, fn) \
  static const bool PAVO_CONCAT(pavo_registered_, __LINE__) =     \
      ::pavo::registerCommand({name, usage, summary, fn, details})
