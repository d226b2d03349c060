// Drives the main window through its phases at a given size and saves a screen shot of each
// (the window's area of the screen, so that the GL views and the settings window are included).
//
//   ui_screenshots <out-dir> <width> <height>
#include <QApplication>
#include <QDir>
#include <QScreen>
#include <QTest>
#include <cstdio>

#include "GUI.h"
#include "LogoScreen.h"
#include "ProgramStates.h"
#include "WaitingSpinnerWidget.h"

static void shoot(const QWidget& window, const QString& dir, const QString& name) {
  QTest::qWait(400);
  const QRect area = window.frameGeometry();
  const QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(0, area.x(), area.y(), area.width(), area.height());
  const QString path = dir + "/" + name + ".png";
  if (!shot.save(path)) std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
  std::printf("%s %dx%d\n", qPrintable(path), shot.width(), shot.height());
}

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc < 4) {
    std::fprintf(stderr, "usage: ui_screenshots <out-dir> <width> <height>\n");
    return 2;
  }
  const QString dir = QString::fromLocal8Bit(argv[1]);
  QDir().mkpath(dir);
  const QSize size(std::atoi(argv[2]), std::atoi(argv[3]));
  const QString tag = QString::number(size.width()) + "x" + QString::number(size.height());

  ProgramStates::resetStates();
  ProgramStates::qstringAttr(ProgramStates::APPLICATION_NAME) = "Mapura";
  GUI gui;
  gui.show();
  gui.move(0, 0);
  gui.resize(size);
  if (!QTest::qWaitForWindowExposed(&gui)) std::fprintf(stderr, "the window was not exposed\n");

  // As the controller's reset does: logo screen over the map-only view, then phase 0.
  gui.logoScreen->show();
  gui.SwitchMeshView(true);
  gui.resetState();
  shoot(gui, dir, "phase0_" + tag);

  gui.openProp();
  shoot(gui, dir, "settings_" + tag);
  gui.settingsWindow->close();

  gui.logoScreen->hide();
  gui.ShowKTR("/home/user/Documents/PAVO/recordings/office_walkthrough_2026-11-20.ktr", 1800);
  gui.activeScan();
  shoot(gui, dir, "phase1_" + tag);

  gui.startButton->setChecked(true);
  gui.activeScan();
  gui.trackState(1);
  for (int i = 0; i < 37; ++i) gui.incrementKTRPos();
  shoot(gui, dir, "phase3_" + tag);

  ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = "Extracting mesh...";
  gui.activeScan();
  for (int i = 0; i < 12; ++i) gui.spinner->rotate();
  shoot(gui, dir, "phase4_" + tag);

  gui.activeScan();
  // As the controller's map import does once the saved, textured mesh is shown.
  gui.spinner->stop();
  gui.processing = false;
  gui.setViewerOptions(0);
  gui.spinnerLabel->setText("/home/user/Documents/PAVO/Meshes/KTR_office/mesh.obj - 182345faces");
  gui.spinnerLabel->show();
  shoot(gui, dir, "phase5_" + tag);
  return 0;
}
