#include "ProgramStates.h"

#include <cassert>

std::atomic<bool> ProgramStates::bool_attributes[ProgramStates::kBoolCount];
std::atomic<int> ProgramStates::int_attributes[ProgramStates::kIntCount];
double ProgramStates::double_attributes[ProgramStates::kDoubleCount];
QString ProgramStates::qstring_attributes[ProgramStates::kStringCount];
std::mutex ProgramStates::qstring_mutex;

void ProgramStates::resetStates() {
  for (auto& b : bool_attributes) b = false;
  for (auto& i : int_attributes) i = 0;
  for (double& d : double_attributes) d = 0.0;
  std::lock_guard<std::mutex> lock(qstring_mutex);
  for (QString& s : qstring_attributes) s = QString();
}

void ProgramStates::setBoolAttr(int key, bool value) {
  assert(key >= 0 && key < kBoolCount);
  bool_attributes[key] = value;
}

bool ProgramStates::getBoolAttr(int key) {
  assert(key >= 0 && key < kBoolCount);
  return bool_attributes[key];
}

void ProgramStates::switchBoolAttr(int key) {
  assert(key >= 0 && key < kBoolCount);
  bool_attributes[key] = !bool_attributes[key].load();
}

void ProgramStates::setIntAttr(int key, int value) {
  assert(key >= 0 && key < kIntCount);
  int_attributes[key] = value;
}

int ProgramStates::getIntAttr(int key) {
  assert(key >= 0 && key < kIntCount);
  return int_attributes[key];
}

std::atomic<int>& ProgramStates::intAttr(int key) {
  assert(key >= 0 && key < kIntCount);
  return int_attributes[key];
}

void ProgramStates::setDoubleAttr(int key, double value) {
  assert(key >= 0 && key < kDoubleCount);
  double_attributes[key] = value;
}

double ProgramStates::getDoubleAttr(int key) {
  assert(key >= 0 && key < kDoubleCount);
  return double_attributes[key];
}

double& ProgramStates::doubleAttr(int key) {
  assert(key >= 0 && key < kDoubleCount);
  return double_attributes[key];
}

ProgramStates::StringAttr ProgramStates::qstringAttr(int key) {
  assert(key >= 0 && key < kStringCount);
  return StringAttr(key);
}

ProgramStates::StringAttr& ProgramStates::StringAttr::operator=(const QString& value) {
  // Swapped in, and the old value released here after the lock: no string is freed under the
  // lock, and the release is code ThreadSanitizer sees (Qt's assignment does it inside the
  // library, where the reference count the readers share is invisible to it).
  QString swapped = value;
  {
    std::lock_guard<std::mutex> lock(qstring_mutex);
    qstring_attributes[key_].swap(swapped);
  }
  return *this;
}

QString ProgramStates::StringAttr::value() const {
  std::lock_guard<std::mutex> lock(qstring_mutex);
  return qstring_attributes[key_];
}
