#include <gtest/gtest.h>

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
  for (int k = 0; k < ProgramStates::kStringCount; ++k) EXPECT_TRUE(ProgramStates::qstringAttr(k).isEmpty()) << k;
}

TEST(ProgramStates, KeysAreDistinctStoresWithTheDocumentedNumbers) {
  EXPECT_EQ(ProgramStates::OFFLINE_MODE, 9);
  EXPECT_EQ(ProgramStates::MAP_REQUEST_ALLOWED, 8);
  EXPECT_EQ(ProgramStates::DEPTH_MODE, 3);
  EXPECT_EQ(ProgramStates::MESHES_DIR, 5);
  ProgramStates::resetStates();
  ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
  EXPECT_FALSE(ProgramStates::getBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED));
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 2);
  EXPECT_EQ(ProgramStates::getIntAttr(ProgramStates::MESH_DISPLAY_MODE), 0);
  // The same key number in another type is another value.
  EXPECT_FALSE(ProgramStates::getBoolAttr(2));
}

TEST(ProgramStates, SwitchAndInPlaceAccess) {
  ProgramStates::resetStates();
  ProgramStates::switchBoolAttr(ProgramStates::DRAW_EDGES);
  EXPECT_TRUE(ProgramStates::getBoolAttr(ProgramStates::DRAW_EDGES));
  ProgramStates::switchBoolAttr(ProgramStates::DRAW_EDGES);
  ProgramStates::switchBoolAttr(ProgramStates::DRAW_EDGES);
  ProgramStates::switchBoolAttr(ProgramStates::DRAW_EDGES);
  EXPECT_FALSE(ProgramStates::getBoolAttr(ProgramStates::DRAW_EDGES));

  ProgramStates::intAttr(ProgramStates::MESH_DISPLAY_MODE) = 3;
  EXPECT_EQ(ProgramStates::getIntAttr(ProgramStates::MESH_DISPLAY_MODE), 3);
  ProgramStates::intAttr(ProgramStates::MESH_DISPLAY_MODE)++;
  EXPECT_EQ(ProgramStates::getIntAttr(ProgramStates::MESH_DISPLAY_MODE), 4);
  ProgramStates::doubleAttr(ProgramStates::POINT_SIZE) = 1.5;
  EXPECT_EQ(ProgramStates::getDoubleAttr(ProgramStates::POINT_SIZE), 1.5);
}

TEST(ProgramStates, WritesOnOneThreadAreSeenOnTheOther) {
  ProgramStates::resetStates();
  std::thread worker([] {
    ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = "Extracting mesh...";
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
  });
  worker.join();
  EXPECT_EQ(ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT), QString("Extracting mesh..."));
  EXPECT_TRUE(ProgramStates::getBoolAttr(ProgramStates::MAP_UPDATE_READY));

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
