#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ProgramStates.h"

namespace {

TEST(ProgramStates, ResetClearsEverySlotIncludingZero) {
  for (int k = 0; k < ProgramStates::kBoolCount; ++k) ProgramStates::setBoolAttr(k, true);
  for (int k = 0; k < ProgramStates::kIntCount; ++k) ProgramStates::setIntAttr(k, 42);
  for (int k = 0; k < ProgramStates::kDoubleCount; ++k) ProgramStates::setDoubleAttr(k, 4.2);
  for (int k = 0; k < ProgramStates::kStringCount; ++k) ProgramStates::qstringAttr(k) = "x";
  ProgramStates::resetStates();
  for (int k = 0; k < ProgramStates::kBoolCount; ++k) EXPECT_FALSE(ProgramStates::getBoolAttr(k)) << k;
  for (int k = 0; k < ProgramStates::kIntCount; ++k) EXPECT_EQ(ProgramStates::getIntAttr(k), 0) << k;
  for (int k = 0; k < ProgramStates::kDoubleCount; ++k) EXPECT_EQ(ProgramStates::getDoubleAttr(k), 0.0) << k;
  for (int k = 0; k < ProgramStates::kStringCount; ++k)
    EXPECT_TRUE(ProgramStates::qstringAttr(k).value().isEmpty()) << k;
}

// The worker sets the status text while the spinner copies it on every frame. Each text is a new
// string, so an unguarded store frees what a reader may be copying (a ThreadSanitizer build
// reports the race; a plain build may crash).
TEST(ProgramStates, StatusTextWrittenWhileRead) {
  ProgramStates::resetStates();
  constexpr int kWrites = 20000;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    for (int i = 0; i < kWrites; ++i) ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = QString::number(i);
    done = true;
  });
  int last = -1;
  bool ordered = true;
  while (!done) {
    const QString text = ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT);
    if (text.isEmpty()) continue;
    const int value = text.toInt();
    ordered &= value >= last && value < kWrites;
    last = value;
  }
  worker.join();
  EXPECT_TRUE(ordered);
  EXPECT_EQ(ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT).value(), QString::number(kWrites - 1));
}

TEST(ProgramStates, MapHandShakeAcrossThreads) {
  ProgramStates::resetStates();
  ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
  // The hand-shake between the worker and the view, polled from two threads.
  ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, false);
  std::thread view([] {
    while (!ProgramStates::getBoolAttr(ProgramStates::MAP_UPDATE_READY)) std::this_thread::yield();
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, false);
    ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, true);
  });
  while (!ProgramStates::getBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED)) std::this_thread::yield();
  view.join();
  EXPECT_FALSE(ProgramStates::getBoolAttr(ProgramStates::MAP_UPDATE_READY));
}

}  // namespace
