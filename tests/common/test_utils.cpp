#include "test_utils.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

namespace mapura::test {

namespace fs = std::filesystem;

std::string sharedDataDir() {
  if (const char* env = std::getenv("MAPURA_SHARED_DATA")) return env;
  return MAPURA_DEFAULT_SHARED_DATA;
}

std::string sharedDataPath(const std::string& relative) {
  const fs::path p = fs::path(sharedDataDir()) / relative;
  std::error_code ec;
  return fs::exists(p, ec) ? p.string() : std::string();
}

namespace {

// Folders made by this process, removed when it exits. Test cases of one executable run as
// separate processes in parallel, so each process has its own folders.
std::vector<fs::path>& madeFolders() {
  static std::vector<fs::path> folders;
  return folders;
}

void removeMadeFolders() {
  if (std::getenv("MAPURA_KEEP_SCRATCH")) return;  // kept for a look at what a test wrote
  std::error_code ec;
  for (const fs::path& p : madeFolders()) fs::remove_all(p, ec);
}

}  // namespace

std::string scratchDir(const std::string& name) {
  static std::once_flag once;
  // The list exists before the handler is registered, so that it is destroyed after the handler
  // ran (exit runs handlers and static destructors in the reverse order of their registration).
  std::call_once(once, [] {
    madeFolders();
    std::atexit(removeMadeFolders);
  });
  const fs::path p = fs::path(MAPURA_TEST_BINARY_DIR) / "test-scratch" / (name + "-" + std::to_string(::getpid()));
  std::error_code ec;
  fs::remove_all(p, ec);
  fs::create_directories(p, ec);
  madeFolders().push_back(p);
  return p.string();
}

CommandRun runCommand(const std::string& program, const std::string& arguments) {
  CommandRun r;
  FILE* pipe = popen((program + " " + arguments + " 2>&1").c_str(), "r");
  if (!pipe) return r;
  char buffer[4096];
  size_t n = 0;
  while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) r.out.append(buffer, n);
  r.status = pclose(pipe);
  return r;
}

std::string readFileBytes(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), {});
}

void writeFileBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

}  // namespace mapura::test
