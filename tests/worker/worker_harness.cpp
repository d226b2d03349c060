#include "worker_harness.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <type_traits>

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

namespace {

template <typename T>
QVariant recorded(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return QVariant();
  } else {
    return QVariant::fromValue(value);
  }
}

/// Records each emission of `signal` of `worker` through a queued connection to `receiver`.
template <typename... Args>
std::unique_ptr<Emissions> record(InputThreadModul* worker, void (InputThreadModul::*signal)(Args...),
                                  QObject* receiver) {
  auto emissions = std::make_unique<Emissions>();
  Emissions* into = emissions.get();
  QObject::connect(
      worker, signal, receiver, [into](Args... args) { into->append(QList<QVariant>{recorded(args)...}); },
      Qt::QueuedConnection);
  return emissions;
}

}  // namespace

int WorkerRun::open(bool live) {
  worker = std::make_unique<InputThreadModul>();
  receiver = std::make_unique<QObject>();
  InputThreadModul* w = worker.get();
  QObject* r = receiver.get();
  view_image = record(w, &InputThreadModul::sendViewImage, r);
  path = record(w, &InputThreadModul::sendPath, r);
  track = record(w, &InputThreadModul::sendTrackStatus, r);
  increment = record(w, &InputThreadModul::sendIncrementKTRPos, r);
  auto_end = record(w, &InputThreadModul::autoEnd, r);
  the_end = record(w, &InputThreadModul::theEnd, r);
  send_end = record(w, &InputThreadModul::sendEnd, r);
  reset_needed = record(w, &InputThreadModul::sendResetNeeded, r);
  pre_process = record(w, &InputThreadModul::updatePreProcess, r);
  pre_process_end = record(w, &InputThreadModul::preprocessEnd, r);
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
