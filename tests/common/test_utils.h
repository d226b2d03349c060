// Helpers shared by the tests: where the shared data sets are, scratch folders, file bytes.
#pragma once

#include <string>

namespace mapura::test {

/// Folder of the shared data sets ($MAPURA_SHARED_DATA, else ../shared/data beside the checkout).
std::string sharedDataDir();

/// `sharedDataDir() + "/" + relative`, or an empty string when it does not exist.
std::string sharedDataPath(const std::string& relative);

/// A fresh, empty folder under the build tree, private to this process (test cases run as
/// parallel processes); emptied again at the next call with the same name, removed at exit
/// unless MAPURA_KEEP_SCRATCH is set.
std::string scratchDir(const std::string& name);

/// The bytes of a file (empty when it cannot be read).
std::string readFileBytes(const std::string& path);

/// Writes `bytes` as the whole of the file at `path`.
void writeFileBytes(const std::string& path, const std::string& bytes);

/// What a command-line program printed (stdout and stderr) and its exit status.
struct CommandRun {
  int status = -1;  ///< as pclose returns it: 0 for success
  std::string out;
};

/// Runs `program` with `arguments` (one shell word list, quoted as needed) and waits for it.
CommandRun runCommand(const std::string& program, const std::string& arguments);

}  // namespace mapura::test

/// Skips the current GoogleTest test when a shared data path is missing.
#define MAPURA_REQUIRE_SHARED(var, relative)                        \
  const std::string var = ::mapura::test::sharedDataPath(relative); \
  if (var.empty()) GTEST_SKIP() << "shared data missing: " << (relative)
