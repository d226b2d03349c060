// End to end: the real Mapura window driven with clicks and keys, from the choice of input to the
// saved and shown map, with the message boxes and file dialogs answered as a user would.
//
// Each test function can run alone (`test_mapura_e2e liveScanToFiles`); ctest runs them one per
// process. Inputs that need SDK capabilities not present in this build (virtual camera, KTR
// playback, `pavo synth`) make the affected tests skip with the reason.
#include <QDirIterator>
#include <QFile>
#include <QFontMetrics>
#include <QMessageBox>
#include <QPointer>
#include <QProgressBar>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <cmath>
#include <memory>
#include <stdexcept>

#include "GUI.h"
#include "InputThreadModul.h"
#include "LogoScreen.h"
#include "MainProcess.h"
#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "ProgressWidget.h"
#include "e2e_support.h"
#include "test_utils.h"

namespace {

/// Longest wait for a step of the program (opening, scanning, processing).
constexpr int kStepTimeoutMs = 60000 * e2e::kSlowdown;
constexpr int kScanTimeoutMs = 240000 * e2e::kSlowdown;

QString documents() { return QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first(); }

/// Map files written under `dir` (recursively).
QStringList mapFiles(const QString& dir) {
  QStringList out;
  QDirIterator it(dir, {"*.ply", "*.obj"}, QDir::Files, QDirIterator::Subdirectories);
  while (it.hasNext()) out << it.next();
  return out;
}

}  // namespace

class MapuraEndToEnd : public QObject {
  Q_OBJECT

 public:
  explicit MapuraEndToEnd(MainProcess* app) : app_(app), gui_(app->window()) {}

 private slots:
  void init();
  void cleanup();

  void startsWithFoldersAndDefaults();
  void noCameraOffersOnlyKtrAndLiveReportsIt();
  void ktrDialogCancelledAndInvalidKtrFile();
  void loadMapOfValidFiles();
  void loadMapOfCorruptFileAndCancelledDialog();
  void cancelAndResetOverSeveralInstances();
  void endOfScanReportsAndShowsTheSavedMap();
  void failedMapBeginsAFreshInstance();
  void cameraSettingsWithoutCamera();
  void exceptionInAnEventHandlerIsLoggedAndDropped();
  void gainAndExposureWithAndWithoutAuto();
  void liveScanToFiles();
  void ktrScanOffLine();
  void saveFolderWrittenOnExit();

 private:
  void click(QAbstractButton* button) { QTest::mouseClick(button, Qt::LeftButton); }
  /// Input, then Live on a virtual camera playing `recording`; empty on success, else why not.
  QString openLive(const QString& recording) { return e2e::openLive(gui_, *answerer_, recording); }
  /// Input, then KTR with `file`; empty on success, else why not.
  QString openKtr(const QString& file) { return e2e::openKtr(gui_, *answerer_, file); }
  /// A VGA recording for the tests, or the reason there is none.
  QString recording(const QString& name, int frames, QString* why) { return e2e::synthesize(name, frames, "VGA", why); }
  /// Start, wait, Stop and wait for the result; checks the files and the view.
  void scanToResult(const QString& screenshotPrefix, int scanMs);
  int phase() const { return gui_->phase(); }

  MainProcess* app_;
  GUI* gui_;
  std::unique_ptr<e2e::DialogAnswerer> answerer_;
  QTemporaryDir scratch_;
};

void MapuraEndToEnd::init() {
  answerer_ = std::make_unique<e2e::DialogAnswerer>();
  qunsetenv("PAVO_VIRTUAL_CAMERA");
  qunsetenv("PAVO_VIRTUAL_CAMERA_OPTIONS");
}

void MapuraEndToEnd::cleanup() {
  if (app_->window()) app_->resetApp();
  answerer_.reset();
}

void MapuraEndToEnd::scanToResult(const QString& prefix, int scanMs) {
  click(gui_->startButton);
  QCOMPARE(phase(), 3);
  QCOMPARE(gui_->startButton->text(), QString("Stop"));
  QVERIFY2(e2e::waitUntil([] { return ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT) == 1; }, kStepTimeoutMs),
           "the worker never began mapping");
  QTest::qWait(scanMs);
  // At least one frame scanned, however slow this build (a sanitizer's) runs.
  QVERIFY2(e2e::waitUntil([&] { return app_->worker()->frameCounter() > 0; }, kStepTimeoutMs), "no frame was scanned");
  e2e::screenshot(prefix + "-2-scanning");

  click(gui_->startButton);  // Stop
  QVERIFY2(e2e::waitUntil([&] { return phase() >= 4; }, kStepTimeoutMs),
           "the worker never reported the end of the scan");
  e2e::screenshot(prefix + "-3-processing");
  QVERIFY2(e2e::waitUntil([&] { return phase() == 5; }, kScanTimeoutMs), qPrintable(answerer_->describe()));
  QTest::qWait(300);
  e2e::screenshot(prefix + "-4-result");
  QCOMPARE(gui_->startButton->text(), QString("Reset"));

  const QString out = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR);
  QVERIFY(out.startsWith(app_->meshesDir().absolutePath()));
  const QStringList files = mapFiles(out);
  QVERIFY2(!files.isEmpty(), qPrintable("no map written into " + out));
  QVERIFY(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT) > 0);
  QVERIFY(gui_->spinnerLabel->isVisible());
  QVERIFY2(gui_->spinnerLabel->text().endsWith("faces") || gui_->spinnerLabel->text().endsWith("points"),
           qPrintable(gui_->spinnerLabel->text()));
  QVERIFY(gui_->view3D->getLoadedElementCount() > 0);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::SHOW_PATH));
}

void MapuraEndToEnd::startsWithFoldersAndDefaults() {
  QCOMPARE(app_->saveDir().path(), documents() + "/PAVO");
  QVERIFY(QDir(documents() + "/PAVO/Meshes").exists());
  QCOMPARE(app_->meshesDir().absolutePath(), QDir(documents() + "/PAVO/Meshes").absolutePath());
  QCOMPARE(gui_->windowTitle(), QString("Mapura"));
  // The depth mode the worker will use is the selector's index plus one.
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::DEPTH_MODE), gui_->depthModeBox->currentIndex() + 1);
  QCOMPARE(ProgramStates::qstringAttr(ProgramStates::MESHES_DIR).value(), app_->meshesDir().absolutePath());
  QVERIFY(app_->workerThread() == nullptr);
  QVERIFY(gui_->logoScreen->isVisible());
  // No neural model is optimised here: its depth mode is offered disabled, with the reason.
  const QModelIndex neural = gui_->depthModeBox->model()->index(3, 0);
  QVERIFY(!(gui_->depthModeBox->model()->flags(neural) & Qt::ItemIsEnabled));
  QCOMPARE(neural.data(Qt::ToolTipRole).toString(),
           QString("Neural Model should be optimized first.\nSee PAVO Diagnostic Tool."));
  e2e::screenshot("start-0-window");
}

void MapuraEndToEnd::noCameraOffersOnlyKtrAndLiveReportsIt() {
  click(gui_->inputButton);
  QVERIFY(gui_->liveButton->isVisible());
  QVERIFY(gui_->ktrButton->isVisible());
  QVERIFY(!gui_->inputButton->isVisible());
  QVERIFY(!gui_->liveButton->isEnabled());
  QVERIFY(gui_->ktrButton->isEnabled());
  // A second press on the window closes the choice again.
  QTest::mouseClick(gui_, Qt::LeftButton, {}, QPoint(gui_->width() / 2, 5));
  QVERIFY(gui_->inputButton->isVisible());
  QVERIFY(!gui_->liveButton->isVisible());

  // The camera vanished between the choice and the press: the Live slot reports it.
  QPointer<InputThreadModul> before = app_->worker();
  QMetaObject::invokeMethod(app_, "initLive");
  QCOMPARE(answerer_->boxes.size(), 1);
  QCOMPARE(answerer_->boxes[0].text, QString("ERROR"));
  QCOMPARE(answerer_->boxes[0].informative, QString("No PAVO connected."));
  QCOMPARE(answerer_->boxes[0].icon, int(QMessageBox::Critical));
  QCOMPARE(answerer_->boxes[0].buttons, QStringList{"Close"});
  QCOMPARE(phase(), 0);
  QVERIFY(!app_->isInstanceOpen());
  QVERIFY(before.isNull());
  QVERIFY(app_->worker() != nullptr);
  QVERIFY(!gui_->spinnerLabel->isVisible());
}

void MapuraEndToEnd::ktrDialogCancelledAndInvalidKtrFile() {
  click(gui_->inputButton);
  answerer_->files.enqueue(QString());
  click(gui_->ktrButton);
  QCOMPARE(answerer_->lastDialogTitle, QString("Select KTR"));
  QCOMPARE(answerer_->lastDialogDirectory, QDir(documents() + "/PAVO").absolutePath());
  QCOMPARE(phase(), 0);
  QVERIFY(!gui_->ktrButton->isChecked());
  QVERIFY(answerer_->boxes.isEmpty());

  const QString bad = scratch_.path() + "/broken.ktr";
  {
    QFile f(bad);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("this is not a recording\n");
  }
  QPointer<InputThreadModul> before = app_->worker();
  // After a cancelled dialog the choice stays open: KTR is pressed again directly.
  QVERIFY(gui_->ktrButton->isVisible());
  answerer_->files.enqueue(bad);
  click(gui_->ktrButton);
  QCOMPARE(answerer_->boxes.size(), 1);
  QCOMPARE(answerer_->boxes[0].text, QString("ERROR"));
  QVERIFY(!answerer_->boxes[0].informative.isEmpty());
  QVERIFY(!answerer_->boxes[0].informative.contains("Serial"));
  QCOMPARE(phase(), 0);
  QVERIFY(!app_->isInstanceOpen());
  QVERIFY(before.isNull());
  QVERIFY(app_->worker() != nullptr);
  // A file that failed to open does not move the dialogs' folder.
  QCOMPARE(app_->saveDir().path(), documents() + "/PAVO");
  QVERIFY(QFile::exists(bad));
}

void MapuraEndToEnd::loadMapOfValidFiles() {
  const std::string banana =
      mapura::test::sharedDataPath("meshes/ycb_banana_textured_obj/textured_simple_reoriented.obj");
  if (banana.empty()) QSKIP("shared data missing: meshes/ycb_banana_textured_obj");

  answerer_->files.enqueue(QString::fromStdString(banana));
  click(gui_->loadMapButton);
  QCOMPARE(answerer_->lastDialogTitle, QString("Select a Spatial Map"));
  QCOMPARE(answerer_->lastDialogDirectory, app_->meshesDir().absolutePath());
  QVERIFY2(answerer_->boxes.isEmpty(), qPrintable(answerer_->describe()));
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT), 2);
  QVERIFY(gui_->drawEdgesCheck->isVisible());
  QVERIFY(!ProgramStates::getBoolAttr(ProgramStates::SHOW_PATH));
  QVERIFY(!gui_->logoScreen->isVisible());
  QVERIFY(gui_->view3D->isReady());
  QVERIFY(app_->updateTimer()->isActive());
  QVERIFY(!gui_->loadMapButton->isChecked());
  const QString summary = gui_->spinnerLabel->text();
  QVERIFY2(summary.endsWith(QString::number(gui_->view3D->getLoadedElementCount()) + "faces"), qPrintable(summary));
  QVERIFY(gui_->view3D->getLoadedElementCount() > 1000);
  QTest::qWait(300);
  e2e::screenshot("loadmap-1-textured-obj");

  // A coloured point cloud written as PLY (points only).
  const QString cloud = scratch_.path() + "/cloud.ply";
  {
    QFile f(cloud);
    QVERIFY(f.open(QIODevice::WriteOnly));
    const int n = 2000;
    QByteArray text = "ply\nformat ascii 1.0\nelement vertex " + QByteArray::number(n) +
                      "\nproperty float x\nproperty float y\nproperty float z\n"
                      "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n";
    for (int i = 0; i < n; ++i) {
      const double a = i * 0.01;
      text += QByteArray::number(std::cos(a) * (1 + i * 1e-4)) + " " + QByteArray::number(std::sin(a)) + " " +
              QByteArray::number(-1.5 + i * 1e-4) + " " + QByteArray::number(i % 256) + " 120 200\n";
    }
    f.write(text);
  }
  answerer_->files.enqueue(cloud);
  click(gui_->loadMapButton);
  QVERIFY2(answerer_->boxes.isEmpty(), qPrintable(answerer_->describe()));
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT), 1);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD));
  QVERIFY(!gui_->drawEdgesCheck->isVisible());
  QVERIFY(gui_->ptSizeSlider->isVisible());
  QVERIFY(!gui_->pointsRadio->isVisible());
  QVERIFY2(gui_->spinnerLabel->text().endsWith("2000points"), qPrintable(gui_->spinnerLabel->text()));
  // A path that fits is shown bare while loading.
  QCOMPARE(ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT).value(), cloud);
  QTest::qWait(300);
  e2e::screenshot("loadmap-2-point-cloud");

  // A path wider than the status label: its tail after "Loading : ...", and "..." in the summary.
  const QString deep = scratch_.path() + "/" + QString("very_long_folder_name/").repeated(12);
  QVERIFY(QDir().mkpath(deep));
  QVERIFY(QFile::copy(cloud, deep + "/cloud.ply"));
  answerer_->files.enqueue(deep + "/cloud.ply");
  click(gui_->loadMapButton);
  const QString loading = ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT);
  QVERIFY2(loading.startsWith("Loading : ...") && loading.endsWith("/cloud.ply"), qPrintable(loading));
  QVERIFY(QFontMetrics(gui_->font()).horizontalAdvance(loading) <= gui_->spinnerLabel->width());
  QVERIFY2(gui_->spinnerLabel->text().startsWith("...") && gui_->spinnerLabel->text().endsWith("2000points"),
           qPrintable(gui_->spinnerLabel->text()));
}

void MapuraEndToEnd::loadMapOfCorruptFileAndCancelledDialog() {
  answerer_->files.enqueue(QString());
  click(gui_->loadMapButton);
  QVERIFY(answerer_->boxes.isEmpty());
  QVERIFY(!gui_->loadMapButton->isChecked());
  QVERIFY(gui_->logoScreen->isVisible());
  QVERIFY(!app_->updateTimer()->isActive());

  const QString corrupt = scratch_.path() + "/corrupt.ply";
  {
    QFile f(corrupt);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("ply\nformat binary_little_endian 1.0\nelement vertex 1000\nproperty float x\nend_header\n\x01\x02");
  }
  QPointer<InputThreadModul> before = app_->worker();
  answerer_->files.enqueue(corrupt);
  click(gui_->loadMapButton);
  QCOMPARE(answerer_->boxes.size(), 1);
  QCOMPARE(answerer_->boxes[0].text, QString("Invalid mesh file"));
  QCOMPARE(answerer_->boxes[0].informative, QString("Imported mesh has not been created with Mapura or is corrupted."));
  QCOMPARE(answerer_->boxes[0].buttons, QStringList{"Close"});
  QVERIFY(gui_->logoScreen->isVisible());
  QVERIFY(!gui_->spinnerLabel->isVisible());
  QCOMPARE(gui_->spinnerLabel->text(), QString(" "));
  QVERIFY(!gui_->processing);
  // The instance is not reset by a rejected file.
  QCOMPARE(app_->worker(), before.data());
}

void MapuraEndToEnd::cancelAndResetOverSeveralInstances() {
  // Cancel with nothing open still begins a fresh instance each time.
  for (int i = 0; i < 3; ++i) {
    gui_->depthModeBox->setCurrentIndex(i % 2);
    ProgramStates::setBoolAttr(ProgramStates::OFFLINE_MODE, true);
    QPointer<InputThreadModul> before = app_->worker();
    app_->resetApp();  // the Cancel button is hidden without an input; its slot runs the same
    QCOMPARE(phase(), 0);
    QVERIFY(before.isNull());
    QVERIFY(app_->worker() != nullptr);
    QCOMPARE(ProgramStates::getIntAttr(ProgramStates::DEPTH_MODE), i % 2 + 1);
    QVERIFY(!ProgramStates::getBoolAttr(ProgramStates::OFFLINE_MODE));
    QVERIFY(ProgramStates::getBoolAttr(ProgramStates::SHOW_PATH));
  }

  QString why;
  const QString file = recording("cancel", 60, &why);
  SKIP_IF(why);
  for (int i = 0; i < 2; ++i) {
    SKIP_IF(openKtr(file));
    QVERIFY(gui_->cancelButton->isVisible());
    QVERIFY(app_->isInstanceOpen());
    QVERIFY(app_->workerThread()->isRunning());
    // Live or KTR while an instance is open do nothing.
    QMetaObject::invokeMethod(app_, "initLive");
    QVERIFY(answerer_->boxes.isEmpty());
    click(gui_->cancelButton);
    QCOMPARE(phase(), 0);
    QVERIFY(!app_->isInstanceOpen());
    QVERIFY(app_->workerThread() == nullptr);
    QVERIFY(gui_->logoScreen->isVisible());
  }
  // One scan to its result, then Reset.
  SKIP_IF(e2e::scanningUnavailable(file));
  SKIP_IF(openKtr(file));
  scanToResult("reset", 500);
  click(gui_->startButton);  // Reset
  QCOMPARE(phase(), 0);
  QVERIFY(gui_->logoScreen->isVisible());
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT), 0);
}

void MapuraEndToEnd::endOfScanReportsAndShowsTheSavedMap() {
  // The worker's reports, in the order a KTR scan that ran to the end of its file sends them.
  const QString out = app_->meshesDir().absolutePath() + "/KTR_test_scan/";
  QVERIFY(QDir().mkpath(out));
  {
    QFile f(out + "mesh.ply");
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(
        "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
        "element face 2\nproperty list uchar int vertex_indices\nend_header\n"
        "0 0 -1\n1 0 -1\n1 1 -1\n0 1 -1\n3 0 1 2\n3 0 2 3\n");
  }
  const QStringList texts = {"", "The entire KTR file has been processed.",
                             "Maximum Spatial Mapping memory reached. Mapping will be stopped.",
                             "The PAVO has been disconnected. Mapping will be stopped."};
  const QStringList titles = {"", "End of KTR", "Spatial Mapping memory insufficient", "PAVO Disconnection"};
  for (int code = 4; code >= 0; --code) {
    app_->resetApp();
    gui_->activeScan();  // as an opened input does
    gui_->startButton->setChecked(true);
    gui_->activeScan();  // as Start does
    QCOMPARE(phase(), 3);
    gui_->startButton->setChecked(false);  // as Stop does
    answerer_->boxes.clear();
    emit app_->worker()->theEnd(code);
    QCOMPARE(phase(), 4);
    if (code >= 1 && code <= 3) {
      QCOMPARE(answerer_->boxes.size(), 1);
      QCOMPARE(answerer_->boxes[0].title, titles[code]);
      QCOMPARE(answerer_->boxes[0].text, texts[code]);
      QCOMPARE(answerer_->boxes[0].icon, int(QMessageBox::Information));
      QCOMPARE(answerer_->boxes[0].buttons, QStringList{"OK"});
    } else {
      QVERIFY2(answerer_->boxes.isEmpty(), qPrintable(answerer_->describe()));
    }
  }
  InputThreadModul* worker = app_->worker();

  ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR) = out;
  ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, false);
  emit worker->sendEnd(false);
  QCOMPARE(phase(), 5);
  QCOMPARE(gui_->startButton->text(), QString("Reset"));
  QVERIFY2(answerer_->boxes.isEmpty(), qPrintable(answerer_->describe()));
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT), 1);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::SHOW_PATH));
  QCOMPARE(gui_->spinnerLabel->text(), out + "mesh.ply - 2faces");
  QVERIFY(gui_->pointsRadio->isVisible());

  // "Reset" ends the instance and begins the next; the files stay.
  QPointer<InputThreadModul> before = worker;
  click(gui_->startButton);
  QCOMPARE(phase(), 0);
  QVERIFY(before.isNull());
  QVERIFY(gui_->logoScreen->isVisible());
  QVERIFY(QFile::exists(out + "mesh.ply"));

  // A textured result is reopened from mesh.obj: a missing one is reported as an invalid file.
  gui_->activeScan();
  gui_->startButton->setChecked(true);
  gui_->activeScan();
  emit app_->worker()->theEnd(0);
  ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR) = out;
  emit app_->worker()->sendEnd(true);
  QCOMPARE(answerer_->count("Invalid mesh file"), 1);
  QCOMPARE(phase(), 5);
}

void MapuraEndToEnd::failedMapBeginsAFreshInstance() {
  gui_->activeScan();
  gui_->startButton->setChecked(true);
  gui_->activeScan();
  QPointer<InputThreadModul> before = app_->worker();
  emit app_->worker()->theEnd(0);
  emit app_->worker()->sendResetNeeded();
  QCOMPARE(answerer_->boxes.size(), 1);
  QCOMPARE(answerer_->boxes[0].text, QString("Invalid mesh"));
  QCOMPARE(answerer_->boxes[0].informative, QString("Mesh does not contain enough vertices."));
  QCOMPARE(answerer_->boxes[0].icon, int(QMessageBox::Critical));
  QCOMPARE(phase(), 0);
  QVERIFY(before.isNull());
  QVERIFY(app_->worker() != nullptr);
  QVERIFY(gui_->logoScreen->isVisible());
  QVERIFY(!gui_->spinnerLabel->isVisible());
  QVERIFY(!gui_->showPathCheck->isVisible());
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT), 0);
}

void MapuraEndToEnd::cameraSettingsWithoutCamera() {
  const QString gain = gui_->gainValueLabel->text();
  const QString exposure = gui_->exposureValueLabel->text();
  gui_->gainSlider->setValue(gui_->gainSlider->value() == 10 ? 20 : 10);
  gui_->exposureSlider->setValue(gui_->exposureSlider->value() == 10 ? 20 : 10);
  QCOMPARE(gui_->gainValueLabel->text(), gain);
  QCOMPARE(gui_->exposureValueLabel->text(), exposure);
  gui_->autoExposureCheck->setChecked(!gui_->autoExposureCheck->isChecked());
  QCOMPARE(gui_->gainValueLabel->text(), gain);
}

namespace {
/// Throws from its event handler, as a faulty slot would.
class Thrower : public QObject {
 public:
  int events = 0;
  bool event(QEvent* e) override {
    if (e->type() != QEvent::User) return QObject::event(e);
    ++events;
    throw std::runtime_error("thrown on purpose");
  }
};
}  // namespace

void MapuraEndToEnd::exceptionInAnEventHandlerIsLoggedAndDropped() {
  Thrower thrower;
  QTest::ignoreMessage(QtDebugMsg, "Exception thrown: thrown on purpose");
  QTest::ignoreMessage(QtDebugMsg, "Exception thrown: thrown on purpose");
  QCoreApplication::postEvent(&thrower, new QEvent(QEvent::User));
  QCoreApplication::postEvent(&thrower, new QEvent(QEvent::User));
  QVERIFY(e2e::waitUntil([&] { return thrower.events == 2; }, 2000));
  // The event loop goes on: the window still answers.
  click(gui_->inputButton);
  QVERIFY(gui_->ktrButton->isVisible());
}

void MapuraEndToEnd::gainAndExposureWithAndWithoutAuto() {
  QString why;
  const QString file = recording("live", 150, &why);
  SKIP_IF(why);
  gui_->autoExposureCheck->setChecked(false);
  gui_->gainValueLabel->setText("40");
  gui_->exposureValueLabel->setText("60");
  SKIP_IF(openLive(file));
  pv::Camera& camera = app_->worker()->camera();
  // Opening with "auto." unchecked re-applies the two labels.
  QCOMPARE(camera.getCameraSettings(pv::VIDEO_SETTINGS::GAIN), 40);
  QCOMPARE(camera.getCameraSettings(pv::VIDEO_SETTINGS::EXPOSURE), 60);
  QVERIFY(gui_->gainSlider->isEnabled());
  QVERIFY(gui_->settingsTabs->isTabEnabled(1));

  gui_->gainSlider->setValue(25);
  QCOMPARE(gui_->gainValueLabel->text(), QString("25"));
  QCOMPARE(camera.getCameraSettings(pv::VIDEO_SETTINGS::GAIN), 25);
  gui_->exposureSlider->setValue(70);
  QCOMPARE(gui_->exposureValueLabel->text(), QString("70"));
  QCOMPARE(camera.getCameraSettings(pv::VIDEO_SETTINGS::EXPOSURE), 70);

  gui_->openProp();
  gui_->settingsTabs->setCurrentIndex(1);
  QTest::qWait(300);
  e2e::screenshot("camera-1-manual");
  gui_->autoExposureCheck->click();
  QVERIFY(gui_->autoExposureCheck->isChecked());
  QVERIFY(!gui_->gainSlider->isEnabled());
  QVERIFY(!gui_->exposureSlider->isEnabled());
  QTest::qWait(300);
  e2e::screenshot("camera-2-auto");

  gui_->autoExposureCheck->click();
  QVERIFY(gui_->gainSlider->isEnabled());
  const int exposure = camera.getCameraSettings(pv::VIDEO_SETTINGS::EXPOSURE);
  if (exposure >= 1) {
    QCOMPARE(gui_->exposureValueLabel->text(), QString::number(exposure));
    QCOMPARE(gui_->exposureSlider->value(), exposure);
    QCOMPARE(gui_->gainValueLabel->text(), QString::number(camera.getCameraSettings(pv::VIDEO_SETTINGS::GAIN)));
  }
}

void MapuraEndToEnd::liveScanToFiles() {
  QString why;
  const QString file = recording("live", 150, &why);
  SKIP_IF(why);
  e2e::screenshot("live-0-idle");
  SKIP_IF(openLive(file));
  QVERIFY(app_->updateTimer()->isActive());
  QCOMPARE(app_->updateTimer()->interval(), 30);
  QVERIFY(!gui_->logoScreen->isVisible());
  // Counted on this thread: the worker's signal reaches the counter queued, as it reaches the view.
  QObject counter;
  int images = 0;
  connect(app_->worker(), &InputThreadModul::sendViewImage, &counter, [&images] { ++images; });
  QVERIFY2(e2e::waitUntil([&] { return images > 3; }, kStepTimeoutMs), "no camera image reached the live view");
  QTest::qWait(1500);
  e2e::screenshot("live-1-ready");
  SKIP_IF(e2e::scanningUnavailable(file));
  scanToResult("live", 10000);
  QVERIFY(QDir(ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR)).dirName().startsWith("Live_"));
  // A scan stopped by the user shows no message box.
  QVERIFY2(answerer_->boxes.isEmpty(), qPrintable(answerer_->describe()));
}

void MapuraEndToEnd::ktrScanOffLine() {
  QString why;
  const QString file = recording("ktr", 90, &why);
  SKIP_IF(why);
  SKIP_IF(openKtr(file));
  QCOMPARE(app_->saveDir().path(), QFileInfo(file).absolutePath());
  QVERIFY(gui_->offLineCheck->isVisible());
  QCOMPARE(gui_->ktrPosSlider->maximum(), app_->worker()->ktrFrameCount() - 1);
  gui_->ktrPosSlider->setValue(5);
  QCOMPARE(gui_->ktrFrameLabel->text(), QString("Frame 5"));
  gui_->ktrPosSlider->setValue(0);
  gui_->offLineCheck->click();
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::OFFLINE_MODE));
  QTest::qWait(1000);
  e2e::screenshot("ktr-1-ready");

  SKIP_IF(e2e::scanningUnavailable(file));
  // Start with the space key on the 3D view, as a mouse click would.
  gui_->activateWindow();
  if (QTest::qWaitForWindowActive(gui_)) {
    QTest::keyClick(gui_->view3D, Qt::Key_Space);
  } else {
    click(gui_->startButton);
  }
  QCOMPARE(phase(), 2);
  QVERIFY(gui_->progressWidget->isVisible());
  int highest = 0;
  bool pictured = false;
  QVERIFY(e2e::waitUntil(
      [&] {
        if (phase() != 2) return true;
        highest = std::max(highest, gui_->progressWidget->bar()->value());
        if (!pictured && highest >= 20) {
          e2e::screenshot("ktr-2-preprocessing");
          pictured = true;
        }
        return false;
      },
      kScanTimeoutMs));
  QVERIFY2(highest > 0, "the progress widget never moved");
  QCOMPARE(gui_->progressWidget->bar()->value(), 100);  // every frame of the recording pre-processed
  QVERIFY(phase() >= 3);
  e2e::screenshot("ktr-3-mapping");
  QVERIFY2(e2e::waitUntil([&] { return phase() == 5; }, kScanTimeoutMs), qPrintable(answerer_->describe()));
  QTest::qWait(300);
  e2e::screenshot("ktr-4-result");
  QCOMPARE(answerer_->count("The entire KTR file has been processed."), 1);
  for (const e2e::Box& b : answerer_->boxes) {
    if (b.title == "End of KTR") QCOMPARE(b.buttons, QStringList{"OK"});
  }
  QVERIFY(!mapFiles(ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR)).isEmpty());
  QVERIFY(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT) > 0);
}

void MapuraEndToEnd::saveFolderWrittenOnExit() {
  QString expected = documents() + "/PAVO";
  QString why;
  const QString file = recording("ktr", 90, &why);
  if (why.isEmpty() && openKtr(file).isEmpty()) expected = QFileInfo(file).absolutePath();
  gui_->close();
  QVERIFY(app_->window() == nullptr);
  QVERIFY(app_->worker() == nullptr);
  QSettings settings("Aldermoor", "Mapura");
  QCOMPARE(settings.value("dir/save").toString(), expected);
}

int main(int argc, char** argv) { return e2e::runWindowTest<MapuraEndToEnd>(argc, argv); }

#include "test_mapura_e2e.moc"
