#include "test_utils.h"

#include <cstdlib>
#include <filesystem>

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

std::string scratchDir(const std::string& name) {
  const fs::path p = fs::path(MAPURA_TEST_BINARY_DIR) / "test-scratch" / name;
  std::error_code ec;
  fs::remove_all(p, ec);
  fs::create_directories(p, ec);
  return p.string();
}

}  // namespace mapura::test
