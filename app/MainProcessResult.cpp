// MainProcess: the end of a scan (why it stopped, the saved map shown, a failed map) and the
// import of a saved map into the 3D view.
#include <QFileDialog>
#include <QFontMetrics>
#include <QMessageBox>
#include <QTimer>

#include "GUI.h"
#include "LogoScreen.h"
#include "MainProcess.h"
#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "WaitingSpinnerWidget.h"

namespace {

/// `prefix` + the tail of `text`: characters are removed from the front of `text` until the
/// whole fits in `width` pixels (or nothing of `text` is left).
QString elideFront(const QFontMetrics& metrics, const QString& prefix, QString text, int width) {
  while (!text.isEmpty() && metrics.horizontalAdvance(prefix + text) > width) text.remove(0, 1);
  return prefix + text;
}

}  // namespace

void MainProcess::endOfScan(int code) {
  gui->activeScan();
  QString title;
  QString text;
  switch (code) {
    case 1:
      title = tr("End of KTR");
      text = tr("The entire KTR file has been processed.");
      break;
    case 2:
      title = tr("Spatial Mapping memory insufficient");
      text = tr("Maximum Spatial Mapping memory reached. Mapping will be stopped.");
      break;
    case 3:
      title = tr("PAVO Disconnection");
      text = tr("The PAVO has been disconnected. Mapping will be stopped.");
      break;
    default: return;
  }
  QMessageBox::information(nullptr, title, text, QMessageBox::Ok, QMessageBox::NoButton);
}

void MainProcess::endOfMPP(bool textured) {
  gui->activeScan();
  const bool fused = ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD);
  const QString file = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR) +
                       (fused ? "fused_point_cloud" : "mesh") + (textured ? ".obj" : ".ply");
  openMesh(file);
}

void MainProcess::endMappingWrong() {
  showCritical("Invalid mesh", "Mesh does not contain enough vertices.");
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 0);
  gui->view3D->reset();
  gui->view3D->resetCamPos();
  gui->showPathCheck->hide();
  gui->spinnerLabel->setText(" ");
  gui->spinnerLabel->hide();
  gui->logoScreen->show();
  gui->resetState();
  instanceOpen = false;
  restart();
}

void MainProcess::openMesh(QString path) {
  const bool fromDialog = path.isEmpty();
  if (fromDialog) {
    path = QFileDialog::getOpenFileName(nullptr, "Select a Spatial Map", meshesFolder.path(), tr("Map (*.ply *.obj)"));
    gui->loadMapButton->setChecked(false);
    if (path.isEmpty()) return;
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 0);
    gui->view3D->reset();
    gui->view3D->resetCamPos();
    gui->showPathCheck->hide();
    gui->logoScreen->hide();
    timer->start(kUpdateIntervalMs);
  }

  gui->processing = true;
  gui->spinner->start();

  const QFontMetrics metrics(gui->font());
  const int labelWidth = gui->spinnerLabel->width();
  const QString loading = "Loading : ...";
  // A path that fits is shown bare, without the prefix.
  const QString status =
      metrics.horizontalAdvance(loading + path) <= labelWidth ? path : elideFront(metrics, loading, path, labelWidth);

  gui->setViewerOptions(0);
  ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, !fromDialog);
  gui->SwitchMeshView(true);
  ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = status;

  const bool ok = gui->view3D->OpenMesh(path);
  gui->spinner->stop();
  gui->processing = false;

  if (!ok) {
    gui->spinnerLabel->setText(" ");
    gui->spinnerLabel->hide();
    showCritical("Invalid mesh file", "Imported mesh has not been created with Mapura or is corrupted.");
    gui->logoScreen->show();
    return;
  }

  gui->view3D->setReady(false);
  if (gui->view3D->loadTexture()) {
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 2);
    gui->drawEdgesCheck->show();
    gui->setViewerOptions(0);
  } else {
    const bool isMesh = gui->view3D->pushMesh();
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
    gui->drawEdgesCheck->hide();
    ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, !isMesh);
    gui->setViewerOptions(isMesh ? 1 : 2);
  }
  gui->view3D->setReady(true);

  const bool fused = ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD);
  const QString summary =
      path + " - " + QString::number(gui->view3D->getLoadedElementCount()) + (fused ? "points" : "faces");
  gui->spinnerLabel->setText(
      metrics.horizontalAdvance(summary) <= labelWidth ? summary : elideFront(metrics, "...", summary, labelWidth));
  gui->spinnerLabel->show();
}
