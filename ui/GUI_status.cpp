// The window's phase machine, the tracking and KTR displays, the view-option slots, the settings
// window opener and the window-level events.
#include <QCloseEvent>
#include <QFontMetrics>
#include <QMouseEvent>

#include "GUI.h"
#include "OGL2DWidget.h"
#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "ProgressWidget.h"
#include "Style.h"
#include "WaitingSpinnerWidget.h"

void GUI::changeMeshDisplay(int id) { ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, id); }

void GUI::updatePtSize(int v) {
  const double size = static_cast<float>(v) * 0.1f;
  ptSizeValueLabel->setText(QString::number(size, 'g', 6));
  ProgramStates::setDoubleAttr(ProgramStates::POINT_SIZE, size);
}

void GUI::lockCam(bool checked) { ProgramStates::setBoolAttr(ProgramStates::LOCK_CAMERA, checked); }
void GUI::offLine(bool checked) { ProgramStates::setBoolAttr(ProgramStates::OFFLINE_MODE, checked); }
void GUI::showPath(bool checked) { ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, checked); }
void GUI::drawEdges(bool checked) { ProgramStates::setBoolAttr(ProgramStates::DRAW_EDGES, checked); }

void GUI::setViewerOptions(int mode) {
  if (mode < 0 || mode > 2) return;
  const bool radios = mode == 1;
  const bool pointSize = mode == 2;
  for (QWidget* widget : std::initializer_list<QWidget*>{pointsRadio, edgesRadio, facesRadio})
    widget->setVisible(radios);
  for (QWidget* widget : std::initializer_list<QWidget*>{ptSizeLabel, ptSizeSlider, ptSizeValueLabel})
    widget->setVisible(pointSize);
}

void GUI::trackState(int code) {
  const int light = std::min(code / 10, 2);
  const int state = code - 10 * light;
  QString text;
  QString colour;
  if (state == 0) {
    text = "SEARCHING";
    colour = "red";
    camLockCheck->setChecked(false);
  } else if (state == 1) {
    text = "OK";
    colour = "green";
  }
  QString html = "<font color=" + colour + ">" + text + "</font>";
  if (light == 1) html += "<font color=\"orange\">  LOW LIGHT</font>";
  if (light == 2) html += "<font color=\"orange\">  HIGH LIGHT</font>";
  trackingValueLabel->setText(html);
}

void GUI::ShowKTR(QString fileName, int frameCount) {
  const QFontMetrics metrics(style_->font_label);
  QString text = "KTR : " + fileName;
  if (metrics.horizontalAdvance(text) > ktrNameLabel->width()) {
    // Cut the path at its beginning so that the file name stays visible.
    QString rest = fileName;
    while (!rest.isEmpty() && metrics.horizontalAdvance("KTR : ..." + rest) > ktrNameLabel->width()) rest.remove(0, 1);
    text = "KTR : ..." + rest;
  }
  ktrNameLabel->setText(text);

  const int textW = metrics.horizontalAdvance(text);
  const int h = static_cast<int>(height() * 0.02);
  const int sliderX = ktrNameLabel->x() + textW + 24;
  const int sliderRight = width() - static_cast<int>(width() * 0.007) - 24 - textW - h - 1;
  ktrPosSlider->setGeometry(sliderX, ktrNameLabel->y(), sliderRight - sliderX, h);
  ktrFrameLabel->setGeometry(sliderRight + 13, ktrNameLabel->y(), metrics.horizontalAdvance("Frame : 00000"), h);
  ktrFrameLabel->setText("Frame : 0");

  ktrPosSlider->setEnabled(true);
  ktrPosSlider->setRange(0, frameCount - 1);
  ktrPosSlider->setValue(0);
  for (QWidget* widget : std::initializer_list<QWidget*>{ktrPosSlider, ktrFrameLabel, ktrNameLabel, offLineCheck})
    widget->show();
}

void GUI::incrementKTRPos() { ktrPosSlider->setValue(ktrPosSlider->value() + 1); }

void GUI::activeScan() {
  switch (phase_) {
    case 0:
      SwitchMeshView(false);
      cancelButton->show();
      cancelButton->setEnabled(true);
      startButton->setEnabled(true);
      startButton->setCheckable(true);
      startButton->setText("Start");
      startButton->show();
      depthModeBox->setEnabled(false);
      camLockCheck->setChecked(true);
      for (QWidget* widget : std::initializer_list<QWidget*>{inputButton, liveButton, ktrButton}) widget->hide();
      loadMapButton->setEnabled(false);
      loadMapButton->hide();
      setViewerOptions(0);
      phase_ = 1;
      break;
    case 1:
      startButton->setText("Stop");
      cancelButton->hide();
      cancelButton->setEnabled(false);
      for (QWidget* widget : std::initializer_list<QWidget*>{camLockCheck, trackingValueLabel, trackingTitleLabel})
        widget->show();
      for (QWidget* widget : std::initializer_list<QWidget*>{settingsButton, offLineCheck, filterBox, ktrPosSlider})
        widget->setEnabled(false);
      setViewerOptions(ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD) + 1);
      if (offLineCheck->isChecked()) {
        progressWidget->show();
        view3D->hide();
        trackingBar->hide();
        phase_ = 2;
      } else {
        phase_ = 3;
      }
      break;
    case 2:
      progressWidget->hide();
      view3D->show();
      trackingBar->show();
      phase_ = 3;
      break;
    case 3:
      SwitchMeshView(true);
      spinner->start();
      processing = true;
      camLockCheck->setChecked(false);
      camLockCheck->hide();
      showPathCheck->setChecked(true);
      startButton->setText("Processing");
      startButton->setEnabled(false);
      trackingValueLabel->hide();
      trackingTitleLabel->hide();
      repaint();
      phase_ = 4;
      break;
    case 4:
      showPathCheck->setChecked(true);
      showPathCheck->show();
      startButton->setText("Reset");
      startButton->setEnabled(true);
      drawEdgesCheck->show();
      repaint();
      phase_ = 5;
      break;
    default: break;
  }
}

void GUI::resetState() {
  for (QToolButton* button : {liveButton, ktrButton, inputButton}) button->setChecked(false);
  spinner->stop();
  processing = false;
  phase_ = 0;
  startButton->setChecked(false);
  startButton->setText("Start");
  startButton->setEnabled(false);
  startButton->hide();
  depthModeBox->setEnabled(true);
  for (QToolButton* button : {inputButton, liveButton, ktrButton}) button->setEnabled(true);
  inputButton->show();
  filterBox->setEnabled(true);
  loadMapButton->setEnabled(true);
  loadMapButton->show();
  for (QWidget* widget : std::initializer_list<QWidget*>{cancelButton, camLockCheck, progressWidget}) widget->hide();
  for (QCheckBox* check : {showPathCheck, drawEdgesCheck}) {
    check->setChecked(false);
    check->hide();
  }
  for (QWidget* widget : std::initializer_list<QWidget*>{trackingValueLabel, trackingTitleLabel, ktrNameLabel})
    widget->hide();
  offLineCheck->setEnabled(true);
  offLineCheck->setChecked(false);
  offLineCheck->hide();
  ktrPosSlider->hide();
  ktrFrameLabel->hide();
  settingsButton->setEnabled(true);
  settingsTabs->setTabEnabled(1, false);
  applyTextureCheck->setChecked(false);
  saveRawMeshCheck->setChecked(false);
  mapTypeBox->setCurrentIndex(0);
  setViewerOptions(0);
  edgesRadio->setChecked(true);
  ptSizeSlider->setValue(10);
}

void GUI::openProp() {
  if (settingsWindow->isVisible()) return;
  settingsWindow->move(x() + width() / 2 - settingsWindow->width() / 2,
                       y() + height() / 2 - settingsWindow->height() / 2);
  settingsWindow->hide();
  settingsWindow->show();
}

void GUI::mousePressEvent(QMouseEvent* event) {
  QMainWindow::mousePressEvent(event);
  if (phase_ != 0) return;
  liveButton->hide();
  ktrButton->hide();
  inputButton->show();
  for (QToolButton* button : {inputButton, liveButton, ktrButton}) button->setChecked(false);
}

void GUI::mouseDoubleClickEvent(QMouseEvent* event) {
  QMainWindow::mouseDoubleClickEvent(event);
  setWindowState(isFullScreen() ? Qt::WindowMaximized : Qt::WindowFullScreen);
}

void GUI::closeEvent(QCloseEvent* event) {
  emit quitSignal();
  event->accept();
}
