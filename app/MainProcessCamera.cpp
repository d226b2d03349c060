// MainProcess: camera gain and exposure (automatic or by hand) and the KTR frame position shown
// before a scan.
#include "GUI.h"
#include "InputThreadModul.h"
#include "MainProcess.h"
#include "pv/camera.h"

namespace {

void applyAutomaticExposureGain(pv::Camera& camera, GUI* gui) {
  camera.setCameraSettings(pv::VIDEO_SETTINGS::EXPOSURE, -1);
  camera.setCameraSettings(pv::VIDEO_SETTINGS::GAIN, -1);
  gui->exposureSlider->setEnabled(false);
  gui->gainSlider->setEnabled(false);
}

}  // namespace

void MainProcess::switchAutoExposure(int state) {
  if (!inputThread || !inputThread->isCameraOpen()) return;
  pv::Camera& camera = inputThread->camera();
  if (state == Qt::Checked) {
    applyAutomaticExposureGain(camera, gui);
  } else if (state == Qt::Unchecked) {
    gui->exposureSlider->setEnabled(true);
    gui->gainSlider->setEnabled(true);
    const int exposure = camera.getCameraSettings(pv::VIDEO_SETTINGS::EXPOSURE);
    const int gain = camera.getCameraSettings(pv::VIDEO_SETTINGS::GAIN);
    if (exposure < 1) return;
    gui->exposureValueLabel->setText(QString::number(exposure));
    gui->gainValueLabel->setText(QString::number(gain));
    gui->exposureSlider->setValue(exposure);
    gui->gainSlider->setValue(gain);
  }
}

void MainProcess::HandleExposureGain(bool automatic) {
  if (!inputThread) return;
  pv::Camera& camera = inputThread->camera();
  if (automatic) {
    applyAutomaticExposureGain(camera, gui);
    return;
  }
  camera.setCameraSettings(pv::VIDEO_SETTINGS::EXPOSURE, gui->exposureValueLabel->text().toInt());
  camera.setCameraSettings(pv::VIDEO_SETTINGS::GAIN, gui->gainValueLabel->text().toInt());
  gui->exposureSlider->setEnabled(true);
  gui->gainSlider->setEnabled(true);
}

void MainProcess::changeCamSettings(int value) {
  if (!inputThread || !inputThread->isCameraOpen()) return;
  const QObject* slider = sender();
  if (!slider) return;
  bool ok = false;
  const int which = slider->objectName().toInt(&ok);
  if (!ok) return;
  if (which == 0) {
    gui->gainValueLabel->setText(QString::number(value));
    inputThread->camera().setCameraSettings(pv::VIDEO_SETTINGS::GAIN, value);
  } else if (which == 1) {
    gui->exposureValueLabel->setText(QString::number(value));
    inputThread->camera().setCameraSettings(pv::VIDEO_SETTINGS::EXPOSURE, value);
  }
}

void MainProcess::changeKTRframeLabelValue(int frame) {
  gui->ktrFrameLabel->setText("Frame " + QString::number(frame));
  if (inputThread) inputThread->askSetPosition(frame);
}
