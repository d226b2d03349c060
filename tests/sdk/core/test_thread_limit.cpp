// The one setting that caps the SDK's threads: the limit reaches TBB's pool and OpenCV's loops,
// loops never run on more threads than it allows, and it goes back to every core.
#include <gtest/gtest.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>

#include <chrono>
#include <mutex>
#include <opencv2/core/utility.hpp>
#include <set>
#include <thread>

#include "core/internal/thread_limit.h"

namespace {

using namespace pv::internal;

struct ThreadsSeen {
  std::mutex mutex;
  std::set<std::thread::id> ids;
  void note() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      ids.insert(std::this_thread::get_id());
    }
    // Long enough for idle workers to wake and take part.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
};

size_t tbbThreads() {
  ThreadsSeen seen;
  tbb::parallel_for(0, 48, [&](int) { seen.note(); });
  return seen.ids.size();
}

size_t openCvThreads() {
  ThreadsSeen seen;
  cv::parallel_for_(cv::Range(0, 48), [&](const cv::Range& r) {
    for (int i = r.start; i < r.end; ++i) seen.note();
  });
  return seen.ids.size();
}

TEST(ThreadLimit, CapsBothPoolsAndGoesBackToEveryCore) {
  ASSERT_GE(availableCores(), 1);
  const int before = threadLimit();

  setThreadLimit(1);
  EXPECT_EQ(threadLimit(), 1);
  EXPECT_TRUE(serialGrab());
  EXPECT_EQ(cv::getNumThreads(), 1);
  EXPECT_EQ(tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism), 1u);
  EXPECT_EQ(tbbThreads(), 1u);
  EXPECT_EQ(openCvThreads(), 1u);
  EXPECT_EQ(threadLimitSource(), "set to 1");

  // More threads than cores may be asked for: OpenCV's loops then run on that many.
  setThreadLimit(3);
  EXPECT_EQ(threadLimit(), 3);
  EXPECT_FALSE(serialGrab());
  EXPECT_EQ(cv::getNumThreads(), 3);
  EXPECT_EQ(tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism), 3u);
  EXPECT_LE(tbbThreads(), 3u);
  const size_t opencv = openCvThreads();
  EXPECT_LE(opencv, 3u);
  EXPECT_GE(opencv, 2u);

  setThreadLimit(0);
  EXPECT_EQ(threadLimit(), availableCores());
  EXPECT_EQ(threadLimitSource(), "all cores");
  EXPECT_EQ(cv::getNumThreads(), availableCores());
  EXPECT_LE(tbbThreads(), size_t(availableCores()));

  setThreadLimit(kMaxThreadLimit + 10);
  EXPECT_EQ(threadLimit(), kMaxThreadLimit);
  setThreadLimit(before == availableCores() ? 0 : before);
}

}  // namespace
