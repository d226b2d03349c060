#include <gtest/gtest.h>

#include <csignal>

namespace {

// The handler linked into this test prints a symbolised trace naming the faulting function, then
// lets the signal end the process.
[[gnu::noinline]] void crashInAKnownFunction() { std::raise(SIGSEGV); }

TEST(CrashHandlerDeathTest, FatalSignalsPrintAStackTrace) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(crashInAKnownFunction(), "Stack trace");
  EXPECT_DEATH(std::raise(SIGABRT), "Stack trace");
  EXPECT_DEATH(std::raise(SIGFPE), "Stack trace");
}

}  // namespace
