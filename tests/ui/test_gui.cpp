// The main window: the map-type controls, the phase machine, the recording's name and the
// absolute layout.
#include <QSignalSpy>
#include <QtTest>

#include "GUI.h"
#include "LogoScreen.h"
#include "OGL2DWidget.h"
#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "ProgressWidget.h"
#include "Style.h"
#include "WaitingSpinnerWidget.h"

namespace {
int right(const QWidget* w) { return w->x() + w->width(); }
int bottom(const QWidget* w) { return w->y() + w->height(); }
}  // namespace

class TestGui : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<GUI> gui;
  // What MainProcess does before and after building the window.
  void freshWindow() {
    ProgramStates::resetStates();
    ProgramStates::qstringAttr(ProgramStates::APPLICATION_NAME) = "Mapura";
    gui = std::make_unique<GUI>();
    gui->show();
    QVERIFY(QTest::qWaitForWindowExposed(gui.get()));
    gui->resetState();
  }

 private slots:
  void init() { freshWindow(); }
  void cleanup() { gui.reset(); }

  void mapTypeGreysAndUnchecks();
  void phaseTableLive();
  void phaseTableOffline();
  void phaseOneShowsPointSizeForPointClouds();
  void resetStateRestoresPhaseZero();
  void showKtrShortAndElided();
  void geometryAfterResizes();
  void headerLogoIsDrawnInBlack();
  void windowEvents();
};

void TestGui::mapTypeGreysAndUnchecks() {
  ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, 2);
  gui->applyTextureCheck->setChecked(true);
  gui->saveRawMeshCheck->setChecked(true);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::APPLY_TEXTURE));
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::SAVE_RAW_MESH));

  gui->mapTypeBox->setCurrentIndex(1);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD));
  QCOMPARE(gui->filterBox->currentIndex(), 3);
  QCOMPARE(gui->filterIndex, 3);
  QVERIFY(!gui->applyTextureCheck->isChecked());
  QVERIFY(!gui->saveRawMeshCheck->isChecked());
  QVERIFY(!ProgramStates::getBoolAttr(ProgramStates::APPLY_TEXTURE));
  QVERIFY(!ProgramStates::getBoolAttr(ProgramStates::SAVE_RAW_MESH));
  QVERIFY(gui->pointsRadio->isChecked());
  // Checking the radio by program does not write the display key.
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::MESH_DISPLAY_MODE), 2);
  for (QWidget* w : std::initializer_list<QWidget*>{gui->filterBox, gui->applyTextureCheck, gui->saveRawMeshCheck,
                                                    gui->pointsRadio, gui->edgesRadio, gui->facesRadio})
    QVERIFY(!w->isEnabled());

  gui->mapTypeBox->setCurrentIndex(0);
  QVERIFY(!ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD));
  for (QWidget* w : std::initializer_list<QWidget*>{gui->filterBox, gui->applyTextureCheck, gui->saveRawMeshCheck,
                                                    gui->pointsRadio, gui->edgesRadio, gui->facesRadio})
    QVERIFY(w->isEnabled());
  // The filter stays at NONE and the boxes unchecked.
  QCOMPARE(gui->filterBox->currentIndex(), 3);
  QVERIFY(!gui->applyTextureCheck->isChecked());
}

void TestGui::phaseTableLive() {
  gui->activeScan();
  QCOMPARE(gui->phase(), 1);
  QVERIFY(!gui->mapOnly());
  QVERIFY(gui->liveFrame->isVisible());
  QVERIFY(gui->cancelButton->isVisible() && gui->cancelButton->isEnabled());
  QVERIFY(gui->startButton->isVisible() && gui->startButton->isEnabled() && gui->startButton->isCheckable());
  QCOMPARE(gui->startButton->text(), QString("Start"));
  QVERIFY(!gui->depthModeBox->isEnabled());
  QVERIFY(gui->camLockCheck->isChecked());
  QVERIFY(!gui->inputButton->isVisible() && !gui->liveButton->isVisible() && !gui->ktrButton->isVisible());
  QVERIFY(!gui->loadMapButton->isVisible() && !gui->loadMapButton->isEnabled());
  QVERIFY(!gui->pointsRadio->isVisible() && !gui->ptSizeSlider->isVisible());

  gui->startButton->click();  // checked, as the user's press leaves it
  gui->activeScan();
  QCOMPARE(gui->phase(), 3);
  QCOMPARE(gui->startButton->text(), QString("Stop"));
  QVERIFY(!gui->cancelButton->isVisible() && !gui->cancelButton->isEnabled());
  QVERIFY(gui->camLockCheck->isVisible());
  QVERIFY(gui->trackingValueLabel->isVisible() && gui->trackingTitleLabel->isVisible());
  for (QWidget* w :
       std::initializer_list<QWidget*>{gui->settingsButton, gui->offLineCheck, gui->filterBox, gui->ktrPosSlider})
    QVERIFY(!w->isEnabled());
  QVERIFY(gui->pointsRadio->isVisible() && gui->facesRadio->isVisible());
  QVERIFY(!gui->ptSizeSlider->isVisible());
  QVERIFY(!gui->progressWidget->isVisible());
  QVERIFY(gui->trackingBar->isVisible());
  // Tracking lost: the view no longer follows the camera.
  gui->trackState(0);
  QVERIFY(!gui->camLockCheck->isChecked());
  gui->camLockCheck->setChecked(true);

  gui->activeScan();
  QCOMPARE(gui->phase(), 4);
  QVERIFY(gui->mapOnly());
  QVERIFY(!gui->liveFrame->isVisible());
  QVERIFY(gui->spinner->isSpinning());
  QVERIFY(gui->processing);
  QVERIFY(!gui->camLockCheck->isChecked() && !gui->camLockCheck->isVisible());
  QVERIFY(gui->showPathCheck->isChecked());
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::SHOW_PATH));
  QCOMPARE(gui->startButton->text(), QString("Processing"));
  QVERIFY(!gui->startButton->isEnabled());
  QVERIFY(!gui->trackingValueLabel->isVisible() && !gui->trackingTitleLabel->isVisible());

  gui->activeScan();
  QCOMPARE(gui->phase(), 5);
  QVERIFY(gui->showPathCheck->isChecked() && gui->showPathCheck->isVisible());
  QCOMPARE(gui->startButton->text(), QString("Reset"));
  QVERIFY(gui->startButton->isEnabled());
  QVERIFY(gui->drawEdgesCheck->isVisible());

  // Phase 5 is final until resetState.
  gui->activeScan();
  QCOMPARE(gui->phase(), 5);
  QCOMPARE(gui->startButton->text(), QString("Reset"));
  QVERIFY(gui->processing);
}

void TestGui::phaseTableOffline() {
  gui->ShowKTR("/data/rec.ktr", 10);
  gui->offLineCheck->setChecked(true);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::OFFLINE_MODE));
  gui->activeScan();
  gui->activeScan();
  QCOMPARE(gui->phase(), 2);
  QVERIFY(gui->progressWidget->isVisible());
  QVERIFY(!gui->view3D->isVisible());
  QVERIFY(!gui->trackingBar->isVisible());
  QCOMPARE(gui->startButton->text(), QString("Stop"));
  QVERIFY(!gui->ktrPosSlider->isEnabled());
  gui->activeScan();
  QCOMPARE(gui->phase(), 3);
  QVERIFY(!gui->progressWidget->isVisible());
  QVERIFY(gui->view3D->isVisible());
  QVERIFY(gui->trackingBar->isVisible());
}

void TestGui::phaseOneShowsPointSizeForPointClouds() {
  gui->mapTypeBox->setCurrentIndex(1);
  gui->activeScan();
  gui->activeScan();
  QCOMPARE(gui->phase(), 3);
  QVERIFY(gui->ptSizeSlider->isVisible() && gui->ptSizeLabel->isVisible() && gui->ptSizeValueLabel->isVisible());
  QVERIFY(!gui->pointsRadio->isVisible() && !gui->edgesRadio->isVisible());
  gui->setViewerOptions(7);  // unknown mode: no change
  QVERIFY(gui->ptSizeSlider->isVisible());
  gui->setViewerOptions(0);
  QVERIFY(!gui->ptSizeSlider->isVisible() && !gui->pointsRadio->isVisible());
}

void TestGui::resetStateRestoresPhaseZero() {
  gui->ShowKTR("/data/rec.ktr", 10);
  gui->offLineCheck->setChecked(true);
  gui->applyTextureCheck->setChecked(true);
  gui->settingsTabs->setTabEnabled(1, true);
  gui->ptSizeSlider->setValue(33);
  for (int i = 0; i < 5; ++i) gui->activeScan();
  QCOMPARE(gui->phase(), 5);
  gui->mapTypeBox->setCurrentIndex(1);
  ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, 3);

  gui->resetState();
  // Checking "Edges" by program leaves the display key alone.
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::MESH_DISPLAY_MODE), 3);
  QCOMPARE(gui->phase(), 0);
  QVERIFY(!gui->spinner->isSpinning());
  QVERIFY(!gui->processing);
  QVERIFY(!gui->startButton->isChecked() && !gui->startButton->isEnabled() && !gui->startButton->isVisible());
  QCOMPARE(gui->startButton->text(), QString("Start"));
  QVERIFY(gui->depthModeBox->isEnabled());
  QVERIFY(gui->inputButton->isVisible() && gui->inputButton->isEnabled());
  QVERIFY(gui->liveButton->isEnabled() && gui->ktrButton->isEnabled());
  QVERIFY(gui->filterBox->isEnabled());
  QVERIFY(gui->loadMapButton->isVisible() && gui->loadMapButton->isEnabled());
  for (QWidget* w :
       std::initializer_list<QWidget*>{gui->cancelButton, gui->camLockCheck, gui->progressWidget, gui->showPathCheck,
                                       gui->drawEdgesCheck, gui->trackingValueLabel, gui->trackingTitleLabel,
                                       gui->ktrNameLabel, gui->offLineCheck, gui->ktrPosSlider, gui->ktrFrameLabel})
    QVERIFY2(!w->isVisible(), qPrintable(w->objectName()));
  QVERIFY(!gui->showPathCheck->isChecked() && !gui->drawEdgesCheck->isChecked());
  QVERIFY(gui->offLineCheck->isEnabled() && !gui->offLineCheck->isChecked());
  QVERIFY(gui->settingsButton->isEnabled());
  QVERIFY(!gui->settingsTabs->isTabEnabled(1));
  QVERIFY(!gui->applyTextureCheck->isChecked());
  QCOMPARE(gui->mapTypeBox->currentIndex(), 0);
  QVERIFY(gui->edgesRadio->isChecked());
  QVERIFY(!gui->edgesRadio->isVisible());
  QCOMPARE(ProgramStates::getDoubleAttr(ProgramStates::POINT_SIZE), static_cast<double>(10 * 0.1f));
  QCOMPARE(gui->ptSizeValueLabel->text(), QString("1"));
}

void TestGui::showKtrShortAndElided() {
  QFontMetrics metrics(gui->uiStyle()->font_label);
  gui->ShowKTR("a.ktr", 120);
  QCOMPARE(gui->ktrNameLabel->text(), QString("KTR : a.ktr"));
  QVERIFY(gui->ktrNameLabel->isVisible() && gui->ktrPosSlider->isVisible() && gui->ktrFrameLabel->isVisible());
  QVERIFY(gui->offLineCheck->isVisible());
  QVERIFY(gui->ktrPosSlider->isEnabled());
  QCOMPARE(gui->ktrPosSlider->maximum(), 119);
  QCOMPARE(gui->ktrFrameLabel->text(), QString("Frame : 0"));
  // The slider sits between the name and the frame label.
  QVERIFY(gui->ktrPosSlider->x() >= gui->ktrNameLabel->x() + metrics.horizontalAdvance("KTR : a.ktr"));
  QVERIFY(right(gui->ktrPosSlider) < gui->ktrFrameLabel->x());

  QString path = "/home/user/recordings";
  while (metrics.horizontalAdvance(path) < 3 * gui->ktrNameLabel->width()) path += "/very_long_folder_name";
  path += "/scan_0042.ktr";
  gui->ShowKTR(path, 5);
  const QString shown = gui->ktrNameLabel->text();
  QVERIFY(shown.startsWith("KTR : ..."));
  const QString tail = shown.mid(9);
  QVERIFY(path.endsWith(tail));
  QVERIFY(tail.endsWith("scan_0042.ktr"));
  QVERIFY(metrics.horizontalAdvance(shown) <= gui->ktrNameLabel->width());
  // As long as fits: one more character of the path would not.
  const QString longer = "KTR : ..." + path.right(tail.size() + 1);
  QVERIFY(metrics.horizontalAdvance(longer) > gui->ktrNameLabel->width());
  QCOMPARE(gui->ktrPosSlider->maximum(), 4);
}

// The absolute layout at several sizes: every control inside the window, the header above the
// views, the two views side by side without overlap, or the map alone across the width.
void TestGui::geometryAfterResizes() {
  for (const QSize requested : {QSize(1920, 1080), QSize(1280, 720), QSize(800, 500)}) {
    gui->resize(requested);
    const QSize expected = requested.expandedTo(gui->minimumSize());
    QTRY_COMPARE(gui->size(), expected);
    const QRect window(QPoint(0, 0), expected);
    for (QWidget* w : std::initializer_list<QWidget*>{gui->depthModeBox, gui->inputButton, gui->loadMapButton,
                                                      gui->offLineCheck, gui->ktrNameLabel, gui->settingsButton})
      QVERIFY2(window.contains(w->geometry()) && bottom(w) <= gui->liveFrame->y(), qPrintable(w->objectName()));
    QVERIFY(gui->inputButton->x() >= int(gui->logoRect().right()));
    QVERIFY(right(gui->loadMapButton) <= gui->offLineCheck->x());

    gui->SwitchMeshView(false);
    QVERIFY(window.contains(gui->liveFrame->geometry()) && window.contains(gui->mapFrame->geometry()));
    QVERIFY(right(gui->liveFrame) < gui->mapFrame->x());
    QCOMPARE(gui->mapFrame->y(), gui->liveFrame->y());
    QCOMPARE(gui->view2D->size(), gui->liveFrame->size());
    QCOMPARE(gui->view3D->size(), gui->mapFrame->size());
    QCOMPARE(bottom(gui->trackingBar), gui->mapFrame->height());
    QCOMPARE(gui->trackingBar->width(), gui->mapFrame->width());
    QVERIFY(right(gui->ptSizeValueLabel) <= gui->trackingBar->width());

    gui->SwitchMeshView(true);
    QVERIFY(!gui->liveFrame->isVisible());
    QCOMPARE(gui->mapFrame->x(), gui->liveFrame->x());
    QVERIFY(right(gui->mapFrame) > right(gui->liveFrame) + gui->liveFrame->width() / 2);
    QCOMPARE(gui->trackingBar->width(), gui->mapFrame->width());
    gui->SwitchMeshView(false);
  }
}

void TestGui::headerLogoIsDrawnInBlack() {
  gui->resize(1600, 900);
  QTRY_COMPARE(gui->size(), QSize(1600, 900));
  const QRectF logo = gui->logoRect();
  QVERIFY(logo.width() > 5 * logo.height());
  const QImage image = gui->grab(logo.toAlignedRect().adjusted(-4, -4, 4, 4)).toImage();
  int black = 0;
  int edge = 0;
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) {
      const QColor c = image.pixelColor(x, y);
      const bool dark = c.red() < 30 && c.green() < 30 && c.blue() < 30;
      const bool inside = x >= 4 && y >= 4 && x < image.width() - 4 && y < image.height() - 4;
      if (dark && inside) ++black;
      if (dark && !inside) ++edge;
    }
  // The recoloured paths cover a good part of the logo box and nothing is drawn around it.
  QVERIFY2(black > logo.width() * logo.height() / 6, qPrintable(QString::number(black)));
  QCOMPARE(edge, 0);
}

void TestGui::windowEvents() {
  // A click on the window in phase 0 closes the input choice.
  gui->inputButton->hide();
  gui->liveButton->show();
  gui->ktrButton->show();
  gui->ktrButton->setChecked(true);
  const QPoint empty(2, gui->height() - 2);
  QTest::mouseClick(gui.get(), Qt::LeftButton, {}, empty);
  QVERIFY(gui->inputButton->isVisible());
  QVERIFY(!gui->liveButton->isVisible() && !gui->ktrButton->isVisible());
  QVERIFY(!gui->ktrButton->isChecked());

  // Outside phase 0 a click changes nothing.
  gui->activeScan();
  gui->liveButton->show();
  QTest::mouseClick(gui.get(), Qt::LeftButton, {}, empty);
  QVERIFY(gui->liveButton->isVisible());
  QVERIFY(!gui->inputButton->isVisible());

  QTest::mouseDClick(gui.get(), Qt::LeftButton, {}, empty);
  QTRY_VERIFY(gui->windowState() & Qt::WindowFullScreen);
  QTest::mouseDClick(gui.get(), Qt::LeftButton, {}, QPoint(2, 2));
  QTRY_VERIFY(!(gui->windowState() & Qt::WindowFullScreen));

  QSignalSpy quit(gui.get(), &GUI::quitSignal);
  gui->close();
  QCOMPARE(quit.count(), 1);
}

QTEST_MAIN(TestGui)
#include "test_gui.moc"
