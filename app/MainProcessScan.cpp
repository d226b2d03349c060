// MainProcess: input selection (live camera or KTR file), opening it with the worker, and the
// one "Start" button that starts, skips pre-processing, stops and resets a scan.
#include <QFileDialog>
#include <QMessageBox>
#include <QThread>
#include <QTimer>

#include "GUI.h"
#include "InputThreadModul.h"
#include "LogoScreen.h"
#include "MainProcess.h"
#include "OGL2DWidget.h"
#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "pv/camera.h"

namespace {

constexpr int kAutomaticRangePreset = 3;
constexpr int kCameraTab = 1;

/// Results of InputThreadModul::init().
enum InitResult { INIT_OK = 0, INIT_BAD_RESOLUTION = 1, INIT_BAD_CALIBRATION = 2 };

QString sdkErrorText(int code) { return QString::fromStdString(pv::toString(static_cast<pv::ERROR_CODE>(code)).str()); }

}  // namespace

void MainProcess::showCritical(const QString& text, const QString& informative) {
  QMessageBox box;
  box.setIcon(QMessageBox::Critical);
  box.setText(text);
  box.setInformativeText(informative);
  box.setStandardButtons(QMessageBox::Close);
  box.exec();
}

void MainProcess::abortInput() {
  gui->spinnerLabel->hide();
  resetApp();
  gui->setCursor(Qt::ArrowCursor);
}

void MainProcess::selectInput(bool show) {
  if (!show && gui->liveButton->isVisible()) {
    gui->liveButton->hide();
    gui->ktrButton->hide();
    gui->inputButton->show();
    return;
  }
  if (resetting || instanceOpen) return;
  gui->inputButton->hide();
  gui->liveButton->setEnabled(!pv::Camera::getDeviceList().empty());
  gui->liveButton->show();
  gui->ktrButton->show();
}

void MainProcess::initLive() {
  if (resetting || instanceOpen) return;
  gui->setCursor(Qt::WaitCursor);
  const int r = inputThread->initPAVO(true);
  if (r != 0) {
    const QString why =
        r == -1 ? QString("No PAVO connected.")
                : sdkErrorText(r) + "\nPAVO Serial Number : " + QString::number(inputThread->serialNumber());
    showCritical("ERROR", why);
    abortInput();
    return;
  }
  gui->autoExposureCheck->setEnabled(true);
  gui->settingsTabs->setTabEnabled(kCameraTab, true);
  initProcess();
  HandleExposureGain(gui->autoExposureCheck->isChecked());
}

void MainProcess::initKTR() {
  if (resetting || instanceOpen) return;
  const QString path = QFileDialog::getOpenFileName(nullptr, "Select KTR", saveFolder.path(), "*.ktr");
  if (path.isEmpty()) {
    gui->ktrButton->setChecked(false);
    return;
  }
  gui->setCursor(Qt::WaitCursor);
  ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH) = path;
  const int r = inputThread->initPAVO(false);
  if (r != 0) {
    showCritical("ERROR", sdkErrorText(r));
    abortInput();
    return;
  }
  gui->ShowKTR(path, inputThread->ktrFrameCount());
  initProcess();
}

void MainProcess::initProcess() {
  gui->view3D->reset();
  gui->drawEdgesCheck->hide();
  gui->spinnerLabel->hide();

  const int r = inputThread->init();
  if (r == INIT_OK) {
    if (inputThread->isKTR()) {
      const QString& file = ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH);
      saveFolder = QDir(file.left(file.lastIndexOf('/')));
    }
    gui->setCursor(Qt::ArrowCursor);
    gui->logoScreen->hide();
    gui->view2D->InitGLProcess(inputThread->cudaContext(), inputThread->frameBuffer());
    gui->view3D->setMapSources(inputThread->mapMutex(), inputThread->mesh(), inputThread->fusedPointCloud(),
                               inputThread->poseMutex());

    workerThreadHandle = new QThread(this);
    inputThread->moveToThread(workerThreadHandle);
    connect(workerThreadHandle, &QThread::started, inputThread, &InputThreadModul::work);
    workerThreadHandle->start(QThread::InheritPriority);

    timer->start(kUpdateIntervalMs);
    instanceOpen = true;
    gui->activeScan();
    return;
  }
  if (r == INIT_BAD_RESOLUTION) {
    showCritical("Invalid resolution", "Mapura requires KTR recorded in HD720.");
  } else if (r == INIT_BAD_CALIBRATION) {
    showCritical("Invalid calibration", "Your PAVO (SN" + QString::number(inputThread->serialNumber()) +
                                            ") is not properly calibrated.\nYou must recalibrate it with PAVO "
                                            "Calibration tool.");
  }
  abortInput();
}

void MainProcess::startScan() {
  gui->settingsWindow->close();
  const bool checked = gui->startButton->isChecked();
  switch (gui->phase()) {
    case 1: {
      gui->activeScan();
      const bool automaticRange =
          gui->rangePresetBox->currentIndex() == kAutomaticRangePreset && gui->autoRangeCheck->isChecked();
      const float range = automaticRange ? -1.f : gui->rangeSlider->value() / 10.f;
      const float resolution = gui->resolutionSlider->value() / 100.f;
      inputThread->startScan(range, resolution, gui->filterIndex,
                             ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD), gui->memorySlider->value());
      break;
    }
    case 2:
      if (!checked) inputThread->state() = InputThreadModul::RESTART_AFTER_PREPROCESSING;
      break;
    case 3:
      if (!checked) {
        const bool preprocessing = inputThread->state() == InputThreadModul::OFFLINE_PREPROCESSING;
        inputThread->state() =
            preprocessing ? InputThreadModul::RESTART_AFTER_PREPROCESSING : InputThreadModul::END_OF_SCAN;
      }
      break;
    case 5:
      if (checked) resetApp();
      break;
    default: break;
  }
}

void MainProcess::callbackAutoEnd() { gui->startButton->click(); }

void MainProcess::endOfPreprocess() { gui->activeScan(); }
