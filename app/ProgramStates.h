// The program-wide store of typed attributes shared by the window, the controller, the mapping
// worker, the 3D view and the busy spinner. Class-wide values; no behaviour beyond storing.
//
// Threads: read and written from the GUI thread and the worker thread. Bools and ints are atomics;
// strings are copied in and out under one lock (the worker writes STATUS_TEXT while the spinner
// reads it), so either thread may assign while the other reads.
#pragma once

#include <QString>
#include <atomic>
#include <mutex>

class ProgramStates {
 public:
  enum BoolKey {
    APPLY_TEXTURE = 1,
    SAVE_RAW_MESH = 2,
    SHOW_PATH = 3,
    DRAW_EDGES = 4,
    LOCK_CAMERA = 5,
    FUSED_POINT_CLOUD = 6,
    MAP_UPDATE_READY = 7,
    MAP_REQUEST_ALLOWED = 8,
    OFFLINE_MODE = 9
  };
  enum IntKey { MESH_DISPLAY_MODE = 1, VIEW_CONTENT = 2, DEPTH_MODE = 3 };
  enum DoubleKey { POINT_SIZE = 1 };
  enum StringKey { KTR_FILE_PATH = 1, SCAN_OUTPUT_DIR = 2, STATUS_TEXT = 3, APPLICATION_NAME = 4, MESHES_DIR = 5 };

  static constexpr int kBoolCount = 10;
  static constexpr int kIntCount = 4;
  static constexpr int kDoubleCount = 2;
  static constexpr int kStringCount = 6;

  /// One stored string, as qstringAttr hands it out: assigning stores a copy, reading returns a
  /// copy, both under the store's lock. Thread safe.
  class StringAttr {
   public:
    StringAttr& operator=(const QString& value);
    operator QString() const { return value(); }
    QString value() const;

   private:
    friend class ProgramStates;
    explicit StringAttr(int key) : key_(key) {}
    int key_;
  };

  ProgramStates() = default;
  ~ProgramStates() = default;

  /// Every bool false, every int 0, every double 0.0, every string empty (slot 0 included).
  static void resetStates();

  static void setBoolAttr(int key, bool value);
  static bool getBoolAttr(int key);
  /// Inverts the stored bool.
  static void switchBoolAttr(int key);

  static void setIntAttr(int key, int value);
  static int getIntAttr(int key);
  /// The stored int, for reading and writing in place.
  static std::atomic<int>& intAttr(int key);

  static void setDoubleAttr(int key, double value);
  static double getDoubleAttr(int key);
  /// The stored double, for reading and writing in place.
  static double& doubleAttr(int key);

  /// The stored string; the only access to strings: assign through it or copy from it.
  static StringAttr qstringAttr(int key);

 private:
  static std::atomic<bool> bool_attributes[kBoolCount];
  static std::atomic<int> int_attributes[kIntCount];
  static double double_attributes[kDoubleCount];
  static QString qstring_attributes[kStringCount];
  static std::mutex qstring_mutex;
};
