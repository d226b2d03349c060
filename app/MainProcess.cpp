// MainProcess: start-up, the instance lifecycle (prepare, reset, restart), shutdown, the frame
// timer and the exception guard of the event loop.
#include "MainProcess.h"

#include <QDebug>
#include <QKeySequence>
#include <QSettings>
#include <QShortcut>
#include <QStandardItemModel>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>
#include <exception>

#include "GUI.h"
#include "InputThreadModul.h"
#include "LogoScreen.h"
#include "OGL2DWidget.h"
#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "ProgressWidget.h"
#include "WaitingSpinnerWidget.h"
#include "pv/camera.h"

namespace {

constexpr int kNeuralDepthModeIndex = 3;

/// The first documents location followed by "/PAVO".
QString pavoDocumentsPath() {
  return QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first() + "/PAVO";
}

/// Creates one folder level when missing; a failure is not reported (the scan later says so).
void makeFolderLevel(const QDir& dir) {
  if (!dir.exists()) QDir().mkdir(dir.absolutePath());
}

}  // namespace

MainProcess::MainProcess(int& argc, char** argv)
    : QApplication(argc, argv), saveFolder(QString()), meshesFolder(QString()) {
  ProgramStates::resetStates();
}

MainProcess::~MainProcess() {
  // destruct() hands the window to the event loop for deletion; run what is still pending.
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

int MainProcess::Construct() {
  ProgramStates::qstringAttr(ProgramStates::APPLICATION_NAME) = "Mapura";

  gui = new GUI();
  gui->show();

  timer = new QTimer(this);
  connect(timer, &QTimer::timeout, this, &MainProcess::appUpdate);
  connect(gui->inputButton, SIGNAL(released()), this, SLOT(selectInput()));
  connect(gui->liveButton, &QToolButton::released, this, &MainProcess::initLive);
  connect(gui->ktrButton, &QToolButton::released, this, &MainProcess::initKTR);
  connect(gui->loadMapButton, SIGNAL(released()), this, SLOT(openMesh()));
  connect(gui->cancelButton, &QToolButton::clicked, this, &MainProcess::resetApp);
  connect(gui->gainSlider, &QSlider::valueChanged, this, &MainProcess::changeCamSettings);
  connect(gui->exposureSlider, &QSlider::valueChanged, this, &MainProcess::changeCamSettings);
  connect(gui->autoExposureCheck, &QCheckBox::stateChanged, this, &MainProcess::switchAutoExposure);
  connect(gui, &GUI::quitSignal, this, &MainProcess::destruct);

  spaceShortcut = new QShortcut(QKeySequence("space"), gui->view3D, nullptr, nullptr, Qt::WindowShortcut);
  connect(spaceShortcut, &QShortcut::activated, gui->startButton, &QToolButton::click);

  QSettings settings("Aldermoor", ProgramStates::qstringAttr(ProgramStates::APPLICATION_NAME));
  settings.beginGroup("dir");
  saveFolder = QDir(settings.value("save", pavoDocumentsPath()).toString());
  settings.endGroup();

  const QDir pavo(pavoDocumentsPath());
  makeFolderLevel(pavo);
  meshesFolder = QDir(pavo.path() + "/Meshes");
  makeFolderLevel(meshesFolder);

  if (!pv::Camera::checkAIModelStatus(pv::AI_MODELS::NEURAL_DEPTH, 0).optimized) {
    if (auto* model = qobject_cast<QStandardItemModel*>(gui->depthModeBox->model())) {
      if (QStandardItem* item = model->item(kNeuralDepthModeIndex)) {
        item->setFlags(item->flags() & ~Qt::ItemIsEnabled);
        item->setToolTip("Neural Model should be optimized first.\nSee PAVO Diagnostic Tool.");
      }
    }
  }

  restart();
  gui->showMaximized();
  return 1;
}

void MainProcess::prepareNewInstance() {
  ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, 2);
  ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, true);
  ProgramStates::setBoolAttr(ProgramStates::APPLY_TEXTURE, false);
  ProgramStates::setDoubleAttr(ProgramStates::POINT_SIZE, 1.0);
  ProgramStates::setIntAttr(ProgramStates::DEPTH_MODE, gui->depthModeBox->currentIndex() + 1);
  ProgramStates::qstringAttr(ProgramStates::APPLICATION_NAME) = "Mapura";
  ProgramStates::qstringAttr(ProgramStates::MESHES_DIR) = meshesFolder.absolutePath();

  delete inputThread;
  inputThread = new InputThreadModul();

  // One more Start connection per instance: startScan() acts on the window's scan state, so
  // later deliveries of one press find nothing left to do.
  connect(gui->startButton, &QToolButton::released, this, &MainProcess::startScan);
  connect(inputThread, &InputThreadModul::sendEnd, this, &MainProcess::endOfMPP);
  connect(inputThread, &InputThreadModul::sendResetNeeded, this, &MainProcess::endMappingWrong);
  connect(inputThread, &InputThreadModul::sendViewImage, gui->view2D, &OGL2DWidget::DrawBuffer);
  connect(inputThread, &InputThreadModul::sendPath, gui->view3D, &OGL3DWidget::setCameraPose);
  connect(inputThread, &InputThreadModul::sendTrackStatus, gui, &GUI::trackState);
  connect(inputThread, &InputThreadModul::autoEnd, this, &MainProcess::callbackAutoEnd);
  connect(gui->ktrPosSlider, &QSlider::valueChanged, this, &MainProcess::changeKTRframeLabelValue);
  connect(inputThread, &InputThreadModul::sendIncrementKTRPos, gui, &GUI::incrementKTRPos);
  connect(inputThread, &InputThreadModul::theEnd, this, &MainProcess::endOfScan);
  connect(inputThread, &InputThreadModul::preprocessEnd, this, &MainProcess::endOfPreprocess);
  connect(inputThread, &InputThreadModul::updatePreProcess, gui->progressWidget,
          QOverload<int>::of(&ProgressWidget::update));
}

void MainProcess::reset() {
  instanceOpen = false;
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 0);
  timer->stop();

  // MainProcess emits no signals, so these remove nothing; the worker's connections go with the
  // worker, and the Start button keeps its connections.
  QObject::disconnect(this, nullptr, this, SLOT(startScan()));
  QObject::disconnect(this, nullptr, this, SLOT(endOfScan(int)));
  QObject::disconnect(this, nullptr, this, SLOT(endOfPreprocess()));

  if (inputThread) inputThread->destruct();
  // destruct() only asks the loop to stop; a grab in progress still writes into the frame buffer.
  // Let the loop leave before the live view drops the last share of that buffer.
  if (workerThreadHandle) {
    workerThreadHandle->quit();
    workerThreadHandle->wait();
  }
  gui->view2D->reset();
  gui->view3D->reset();

  gui->settingsWindow->close();
  gui->logoScreen->show();
  gui->repaint();
  gui->SwitchMeshView(true);
  gui->logoScreen->repaint();
  gui->view3D->repaint();
  gui->repaint();

  if (workerThreadHandle) {
    workerThreadHandle->quit();
    workerThreadHandle->wait();
    delete workerThreadHandle;
    workerThreadHandle = nullptr;
  }
  delete inputThread;
  inputThread = nullptr;
  ProgramStates::resetStates();
}

void MainProcess::restart() {
  reset();
  gui->repaint();
  gui->resetState();
  prepareNewInstance();
}

void MainProcess::resetApp() {
  resetting = true;
  restart();
  resetting = false;
}

void MainProcess::destruct() {
  if (!gui) return;
  {
    QSettings settings("Aldermoor", ProgramStates::qstringAttr(ProgramStates::APPLICATION_NAME));
    settings.beginGroup("dir");
    settings.setValue("save", saveFolder.path());
    settings.endGroup();
  }
  reset();
  gui->close();
  delete timer;
  timer = nullptr;
  // The window is inside its own closeEvent here (quitSignal); it is deleted once that returns.
  gui->deleteLater();
  gui = nullptr;
}

void MainProcess::appUpdate() {
  if (!gui) return;
  gui->view3D->update();
  gui->view2D->update();
  if (gui->processing) gui->spinner->rotate();
}

bool MainProcess::notify(QObject* receiver, QEvent* event) {
  try {
    return QApplication::notify(receiver, event);
  } catch (const std::exception& e) {
    qDebug() << "Exception thrown:" << e.what();
  }
  return false;
}
