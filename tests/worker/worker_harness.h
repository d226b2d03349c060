// Runs an InputThreadModul on its own thread for tests, with a stand-in for the 3D view's side of
// the map hand-shake and the controller's reaction to autoEnd.
#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QThread>
#include <QTimer>
#include <QVariant>
#include <functional>
#include <memory>

#include "InputThreadModul.h"

/// Plays the 3D view's part: when MAP_UPDATE_READY is set, reads the chunks under the map mutex,
/// clears the flag and allows the next request.
class ViewStandIn : public QObject {
  Q_OBJECT
 public:
  explicit ViewStandIn(InputThreadModul* worker);
  int uploads = 0;
  int updated_chunks = 0;
  size_t last_chunk_count = 0;
  bool chunk_count_shrank = false;

 private slots:
  void poll();

 private:
  InputThreadModul* worker_;
  QTimer timer_;
};

/// The arguments of each emission of one worker signal, in order (a pointer argument is recorded
/// as an empty value).
using Emissions = QList<QList<QVariant>>;

/// A worker with its thread, spies on every signal, and the controller's answers.
struct WorkerRun {
  std::unique_ptr<InputThreadModul> worker;
  std::unique_ptr<QThread> thread;
  std::unique_ptr<ViewStandIn> view;
  std::unique_ptr<Emissions> view_image, path, track, increment, auto_end, the_end, send_end, reset_needed, pre_process,
      pre_process_end;
  /// Lives on the test's thread: the worker's signals reach it queued, as they reach the
  /// application, so the emissions above are written and read by that thread only.
  std::unique_ptr<QObject> receiver;

  /// Opens the input (live or KTR_FILE_PATH); returns initPAVO's result.
  int open(bool live);
  /// init(), the view stand-in, the thread started on work(); autoEnd sets the end-of-scan state.
  /// `before_thread` runs after init() and before the thread starts (a scan started there begins
  /// with the worker's first step, before any preview grab can take a frame).
  void start(const std::function<void()>& before_thread = nullptr);
  /// Waits (processing events) until `done` returns true or `timeout_ms` passes.
  template <typename F>
  bool waitFor(F done, int timeout_ms);
  /// destruct(), quit and join the thread.
  void stop();
  ~WorkerRun();
};

/// Writes a synthesized recording with the pavo tool; empty on failure.
QString synthesizeRecording(const QString& name, const QString& scene, int frames, const QString& codec,
                            const QString& resolution = "VGA");

template <typename F>
bool WorkerRun::waitFor(F done, int timeout_ms) {
  QElapsedTimer t;
  t.start();
  while (!done()) {
    if (t.elapsed() > timeout_ms) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QThread::msleep(2);
  }
  return true;
}
