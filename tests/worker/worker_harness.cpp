#include "worker_harness.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

#include "ProgramStates.h"
#include "test_utils.h"

ViewStandIn::ViewStandIn(InputThreadModul* worker) : worker_(worker) {
  connect(&timer_, &QTimer::timeout, this, &ViewStandIn::poll);
  timer_.start(10);
}

void ViewStandIn::poll() {
  if (!ProgramStates::getBoolAttr(ProgramStates::MAP_UPDATE_READY)) return;
  const bool points = ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD);
  {
    std::lock_guard<std::mutex> lock(*worker_->mapMutex());
    size_t n = 0;
    if (points) {
      n = worker_->fusedPointCloud()->chunks.size();
      for (const auto& c : worker_->fusedPointCloud()->chunks) updated_chunks += c.has_been_updated;
    } else {
      n = worker_->mesh()->chunks.size();
      for (const auto& c : worker_->mesh()->chunks) updated_chunks += c.has_been_updated;
    }
    chunk_count_shrank |= n < last_chunk_count;
    last_chunk_count = n;
  }
  ++uploads;
  ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, false);
  ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, true);
}

WorkerSignals::WorkerSignals(InputThreadModul* w) {
  const auto queued = Qt::QueuedConnection;
  connect(w, &InputThreadModul::sendViewImage, this, &WorkerSignals::sendViewImage, queued);
  connect(w, &InputThreadModul::sendPath, this, &WorkerSignals::sendPath, queued);
  connect(w, &InputThreadModul::sendTrackStatus, this, &WorkerSignals::sendTrackStatus, queued);
  connect(w, &InputThreadModul::sendIncrementKTRPos, this, &WorkerSignals::sendIncrementKTRPos, queued);
  connect(w, &InputThreadModul::autoEnd, this, &WorkerSignals::autoEnd, queued);
  connect(w, &InputThreadModul::theEnd, this, &WorkerSignals::theEnd, queued);
  connect(w, &InputThreadModul::sendEnd, this, &WorkerSignals::sendEnd, queued);
  connect(w, &InputThreadModul::sendResetNeeded, this, &WorkerSignals::sendResetNeeded, queued);
  connect(w, &InputThreadModul::updatePreProcess, this, &WorkerSignals::updatePreProcess, queued);
  connect(w, &InputThreadModul::preprocessEnd, this, &WorkerSignals::preprocessEnd, queued);
}

int WorkerRun::open(bool live) {
  worker = std::make_unique<InputThreadModul>();
  relay = std::make_unique<WorkerSignals>(worker.get());
  WorkerSignals* w = relay.get();
  view_image = std::make_unique<QSignalSpy>(w, &WorkerSignals::sendViewImage);
  path = std::make_unique<QSignalSpy>(w, &WorkerSignals::sendPath);
  track = std::make_unique<QSignalSpy>(w, &WorkerSignals::sendTrackStatus);
  increment = std::make_unique<QSignalSpy>(w, &WorkerSignals::sendIncrementKTRPos);
  auto_end = std::make_unique<QSignalSpy>(w, &WorkerSignals::autoEnd);
  the_end = std::make_unique<QSignalSpy>(w, &WorkerSignals::theEnd);
  send_end = std::make_unique<QSignalSpy>(w, &WorkerSignals::sendEnd);
  reset_needed = std::make_unique<QSignalSpy>(w, &WorkerSignals::sendResetNeeded);
  pre_process = std::make_unique<QSignalSpy>(w, &WorkerSignals::updatePreProcess);
  pre_process_end = std::make_unique<QSignalSpy>(w, &WorkerSignals::preprocessEnd);
  return worker->initPAVO(live);
}

void WorkerRun::start(const std::function<void()>& before_thread) {
  worker->init();
  if (before_thread) before_thread();
  view = std::make_unique<ViewStandIn>(worker.get());
  thread = std::make_unique<QThread>();
  worker->moveToThread(thread.get());
  InputThreadModul* w = worker.get();
  // The controller answers autoEnd by asking for the end of the scan, as a press of "Stop" does.
  QObject::connect(w, &InputThreadModul::autoEnd, view.get(), [w] { w->state() = InputThreadModul::END_OF_SCAN; });
  QObject::connect(thread.get(), &QThread::started, w, &InputThreadModul::work);
  thread->start();
}

void WorkerRun::stop() {
  if (!worker) return;
  worker->destruct();
  if (thread) {
    thread->quit();
    thread->wait();
  }
}

WorkerRun::~WorkerRun() {
  stop();
  // As the controller does: the worker is deleted after its thread has finished.
  worker.reset();
}

QString synthesizeRecording(const QString& name, const QString& scene, int frames, const QString& codec,
                            const QString& resolution) {
  const QString dir = QString::fromStdString(mapura::test::scratchDir("worker-recordings-" + name.toStdString()));
  const QString file = dir + "/" + name + ".ktr";
  QProcess p;
  p.start(PAVO_TOOL, {"synth", scene, "-o", file, "--frames", QString::number(frames), "--resolution", resolution,
                      "--codec", codec, "--seed", "3"});
  if (!p.waitForFinished(600000) || p.exitCode() != 0) {
    qWarning("pavo synth failed: %s", p.readAllStandardError().constData());
    return QString();
  }
  return QFileInfo(file).exists() ? file : QString();
}
