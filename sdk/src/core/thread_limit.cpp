#include "core/internal/thread_limit.h"

#include <tbb/global_control.h>
#include <tbb/info.h>

#include <algorithm>
#include <cstdlib>
#include <opencv2/core/utility.hpp>

namespace pv::internal {

namespace {

struct Limit {
  int threads = 0;  ///< 0: every core
  std::string source = "all cores";
  // Held for the life of the process (or until the next setThreadLimit). Never destroyed at exit:
  // TBB may already be shutting down then.
  tbb::global_control* control = nullptr;
};

Limit& limit() {
  static Limit* l = new Limit;
  return *l;
}

void apply(int threads) {
  Limit& l = limit();
  delete l.control;
  l.control = nullptr;
  l.threads = threads;
  if (threads > 0) l.control = new tbb::global_control(tbb::global_control::max_allowed_parallelism, size_t(threads));
  // OpenCV keeps an arena of its own for parallel_for_; a negative count returns it to its default.
  cv::setNumThreads(threads > 0 ? threads : -1);
}

/// PAVO_THREADS as a limit (0 when it is not set or not valid), with what to say about it.
int fromEnvironment(std::string& source) {
  const char* text = std::getenv("PAVO_THREADS");
  source = "all cores";
  if (!text || !*text) return 0;
  char* end = nullptr;
  const long n = std::strtol(text, &end, 10);
  if (*end != '\0' || n < 1 || n > kMaxThreadLimit) {
    source = "all cores: PAVO_THREADS=\"" + std::string(text) + "\" is not a whole number from 1 to " +
             std::to_string(kMaxThreadLimit);
    return 0;
  }
  source = "PAVO_THREADS=" + std::to_string(n);
  return int(n);
}

/// The limit the environment asks for, applied when the library loads so that every way into the
/// SDK (the camera, the tools, the tests) runs under it.
[[maybe_unused]] const bool kApplied = [] {
  std::string source;
  const int threads = fromEnvironment(source);
  if (threads > 0) apply(threads);
  limit().source = source;
  return true;
}();

}  // namespace

int availableCores() { return std::max(1, tbb::info::default_concurrency()); }

int threadLimit() { return limit().threads > 0 ? limit().threads : availableCores(); }

std::string threadLimitSource() { return limit().source; }

void setThreadLimit(int threads) {
  apply(std::max(0, std::min(threads, kMaxThreadLimit)));
  limit().source = threads > 0 ? "set to " + std::to_string(limit().threads) : "all cores";
}

}  // namespace pv::internal
