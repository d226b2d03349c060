// The main window: start-up state, mapping-parameter controls, phase machine, status displays,
// view options and the absolute layout.
#include <pv/types.h>

#include <QSignalSpy>
#include <QtTest>
#include <cmath>

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

  void startUpState();
  void sliderBoundsAndLabels();
  void rangeAutoAndManual();
  void memorySteps();
  void mapTypeGreysAndUnchecks();
  void depthModeAndCheckBoxesWriteStore();
  void phaseTableLive();
  void phaseTableOffline();
  void phaseOneShowsPointSizeForPointClouds();
  void resetStateRestoresPhaseZero();
  void trackStateTextsAndColours();
  void showKtrShortAndElided();
  void incrementKtrStopsAtMaximum();
  void viewOptionsWriteStore();
  void geometryAfterResizes();
  void headerLogoIsDrawnInBlack();
  void openPropCentresOnce();
  void windowEvents();
};

void TestGui::startUpState() {
  QCOMPARE(gui->windowTitle(), QString("Mapura"));
  QCOMPARE(gui->minimumSize(), QSize(1000, 600));
  QCOMPARE(gui->phase(), 0);
  QVERIFY(!gui->processing);
  QCOMPARE(gui->depthModeBox->currentIndex(), 1);
  QCOMPARE(gui->depthModeBox->currentText(), QString("QUALITY"));
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::DEPTH_MODE), 2);
  QCOMPARE(gui->resolutionPresetBox->currentIndex(), 1);
  QCOMPARE(gui->rangePresetBox->currentIndex(), 0);
  QCOMPARE(gui->filterIndex, 1);
  QCOMPARE(gui->filterBox->currentIndex(), 1);
  QCOMPARE(gui->memorySlider->value(), 2048);
  QCOMPARE(gui->memoryValueLabel->text(), QString("2048Mo"));
  QCOMPARE(gui->mapTypeBox->currentText(), QString("MESH"));
  QVERIFY(gui->autoRangeCheck->isChecked());
  QVERIFY(gui->autoResolutionCheck->isChecked());
  QVERIFY(gui->resolutionSlider->isHidden());
  QVERIFY(gui->rangeSlider->isHidden());
  QVERIFY(!gui->resolutionPresetBox->isHidden());
  QVERIFY(!gui->rangePresetBox->isHidden());
  // Preset texts come from the SDK.
  QCOMPARE(gui->resolutionPresetBox->count(), 3);
  QCOMPARE(gui->rangePresetBox->count(), 4);
  QCOMPARE(gui->rangePresetBox->itemText(3), QString("AUTO"));
  QCOMPARE(gui->filterBox->count(), 4);
  QCOMPARE(gui->filterBox->itemText(3), QString("NONE"));
  QCOMPARE(gui->depthModeBox->count(), 4);
  QCOMPARE(gui->depthModeBox->itemText(3), QString("NEURAL"));
  // Resolution slider follows the preset box (MEDIUM), range slider the first range preset.
  const float medium = pv::SpatialMappingParameters::get(pv::MAPPING_RESOLUTION::MEDIUM);
  QCOMPARE(gui->resolutionSlider->value(), static_cast<int>(std::ceil(medium * 100.f)));
  QCOMPARE(gui->rangeSlider->value(), 35);
  QCOMPARE(gui->rangeValueLabel->text(), QString("Value: 3.5 M"));
  QCOMPARE(gui->resolutionValueLabel->text(), QString("Value: 0.05 M"));
  QVERIFY(!gui->startButton->isEnabled());
  QVERIFY(gui->logoScreen->isHidden());
  // Settings window and its two tabs.
  QCOMPARE(gui->settingsWindow->windowTitle(), QString("Settings"));
  QVERIFY(gui->settingsWindow->isWindow());
  QCOMPARE(gui->settingsWindow->minimumSize(), gui->settingsWindow->maximumSize());
  QCOMPARE(gui->settingsTabs->geometry(), QRect(5, 8, 600, 269));
  QCOMPARE(gui->settingsTabs->tabText(0), QString("Spatial Mapping"));
  QCOMPARE(gui->settingsTabs->tabText(1), QString("Camera"));
  QVERIFY(gui->settingsTabs->styleSheet().contains("width : 284 px"));
  QCOMPARE(gui->gainSlider->objectName(), QString("0"));
  QCOMPARE(gui->exposureSlider->objectName(), QString("1"));
  QCOMPARE(gui->gainSlider->geometry(), QRect(150, gui->gainSlider->y(), 300, 22));
  QCOMPARE(gui->resolutionSlider->x(), 240);
  QCOMPARE(gui->resolutionSlider->width(), 210);
  QCOMPARE(gui->settingsButton->toolTip(), QString("Settings"));
  QCOMPARE(gui->displayGroup->id(gui->pointsRadio), 1);
  QCOMPARE(gui->displayGroup->id(gui->edgesRadio), 2);
  QCOMPARE(gui->displayGroup->id(gui->facesRadio), 3);
  QCOMPARE(gui->ptSizeSlider->minimum(), 1);
  QCOMPARE(gui->ptSizeSlider->maximum(), 50);
}

void TestGui::sliderBoundsAndLabels() {
  const auto res = pv::SpatialMappingParameters::allowed_resolution;
  const auto range = pv::SpatialMappingParameters::allowed_range;
  QCOMPARE(gui->resolutionSlider->minimum(), static_cast<int>(std::ceil(res.first * 100.f)));
  QCOMPARE(gui->resolutionSlider->maximum(), static_cast<int>(std::ceil(res.second * 100.f)));
  QCOMPARE(gui->rangeSlider->minimum(), static_cast<int>(std::ceil(range.first * 10.f)));
  // Half of the SDK's largest range.
  QCOMPARE(gui->rangeSlider->maximum(), static_cast<int>(std::ceil(range.second * 10.f * 0.5f)));

  for (int i = 0; i < 3; ++i) {
    gui->resolutionPresetBox->setCurrentIndex(i);
    const float metres = pv::SpatialMappingParameters::get(pv::MAPPING_RESOLUTION(i));
    // Rounded up: never finer than the preset.
    QVERIFY(gui->resolutionSlider->value() >= metres * 100.f - 1e-4f);
    QVERIFY(gui->resolutionSlider->value() < metres * 100.f + 1.f);
  }
  gui->autoResolutionCheck->setChecked(false);
  QVERIFY(!gui->resolutionSlider->isHidden());
  QVERIFY(gui->resolutionPresetBox->isHidden());
  gui->resolutionSlider->setValue(7);
  QCOMPARE(gui->resolutionValueLabel->text(), QString("Value: 0.07 M"));
  gui->resolutionSlider->setValue(13);
  QCOMPARE(gui->resolutionValueLabel->text(), QString("Value: 0.13 M"));
  // Checking the box again re-applies the preset box's value.
  gui->autoResolutionCheck->setChecked(true);
  QCOMPARE(gui->resolutionSlider->value(),
           static_cast<int>(std::ceil(pv::SpatialMappingParameters::get(pv::MAPPING_RESOLUTION(2)) * 100.f)));
  QVERIFY(gui->resolutionSlider->isHidden());

  // Range presets other than AUTO truncate metres * 10.
  gui->rangePresetBox->setCurrentIndex(2);
  QCOMPARE(gui->rangeSlider->value(),
           static_cast<int>(pv::SpatialMappingParameters::get(pv::MAPPING_RANGE::LONG) * 10.f));
  QCOMPARE(gui->rangeValueLabel->text(), QString("Value: 8 M"));
}

void TestGui::rangeAutoAndManual() {
  gui->rangePresetBox->setCurrentIndex(3);
  QCOMPARE(gui->rangeValueLabel->text(), QString("AUTO"));
  QVERIFY(gui->rangeSlider->isHidden());
  // Unchecking shows the slider and a value.
  gui->autoRangeCheck->setChecked(false);
  QVERIFY(!gui->rangeSlider->isHidden());
  QVERIFY(gui->rangePresetBox->isHidden());
  QCOMPARE(gui->rangeValueLabel->text(), "Value: " + QString::number(gui->rangeSlider->value() * 0.1f, 'g', 6) + " M");
  gui->rangeSlider->setValue(42);
  QCOMPARE(gui->rangeValueLabel->text(), QString("Value: 4.2 M"));
  gui->autoRangeCheck->setChecked(true);
  QCOMPARE(gui->rangeValueLabel->text(), QString("AUTO"));
  gui->rangePresetBox->setCurrentIndex(1);
  QCOMPARE(gui->rangeSlider->value(), 50);
  QCOMPARE(gui->rangeValueLabel->text(), QString("Value: 5 M"));
}

void TestGui::memorySteps() {
  QSlider* memory = gui->memorySlider;
  QCOMPARE(memory->minimum(), 512);
  QCOMPARE(memory->maximum(), 8192);
  QCOMPARE(memory->singleStep(), 512);
  memory->setValue(1024);
  memory->triggerAction(QAbstractSlider::SliderSingleStepSub);
  QCOMPARE(memory->value(), 512);
  QCOMPARE(gui->memoryValueLabel->text(), QString("512Mo"));
  memory->triggerAction(QAbstractSlider::SliderSingleStepSub);
  QCOMPARE(memory->value(), 512);
  memory->triggerAction(QAbstractSlider::SliderPageStepAdd);
  QCOMPARE(gui->memoryValueLabel->text(), QString("1024Mo"));
  memory->setValue(8192);
  memory->triggerAction(QAbstractSlider::SliderSingleStepAdd);
  QCOMPARE(gui->memoryValueLabel->text(), QString("8192Mo"));
}

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
  for (QLabel* label : {gui->filterLabel, gui->saveRawMeshLabel, gui->applyTextureLabel})
    QCOMPARE(label->styleSheet(), QString("QLabel { color : rgb(127,127,127) }"));
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
  for (QLabel* label : {gui->filterLabel, gui->saveRawMeshLabel, gui->applyTextureLabel})
    QCOMPARE(label->styleSheet(), QString("QLabel { color : rgb(0,0,0); }"));
  for (QWidget* w : std::initializer_list<QWidget*>{gui->filterBox, gui->applyTextureCheck, gui->saveRawMeshCheck,
                                                    gui->pointsRadio, gui->edgesRadio, gui->facesRadio})
    QVERIFY(w->isEnabled());
  // The filter stays at NONE and the boxes unchecked.
  QCOMPARE(gui->filterBox->currentIndex(), 3);
  QVERIFY(!gui->applyTextureCheck->isChecked());
}

void TestGui::depthModeAndCheckBoxesWriteStore() {
  gui->depthModeBox->setCurrentIndex(3);
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::DEPTH_MODE), 4);
  gui->depthModeBox->setCurrentIndex(0);
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::DEPTH_MODE), 1);
  gui->saveRawMeshCheck->setChecked(true);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::SAVE_RAW_MESH));
  QVERIFY(!ProgramStates::getBoolAttr(ProgramStates::APPLY_TEXTURE));
  gui->filterBox->setCurrentIndex(2);
  QCOMPARE(gui->filterIndex, 2);
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

void TestGui::trackStateTextsAndColours() {
  gui->camLockCheck->setChecked(true);
  gui->trackState(1);
  QCOMPARE(gui->trackingValueLabel->text(), QString("<font color=green>OK</font>"));
  QVERIFY(gui->camLockCheck->isChecked());
  gui->trackState(0);
  QCOMPARE(gui->trackingValueLabel->text(), QString("<font color=red>SEARCHING</font>"));
  QVERIFY(!gui->camLockCheck->isChecked());
  gui->trackState(11);
  QCOMPARE(gui->trackingValueLabel->text(),
           QString("<font color=green>OK</font><font color=\"orange\">  LOW LIGHT</font>"));
  gui->trackState(2);
  QCOMPARE(gui->trackingValueLabel->text(), QString("<font color=></font>"));
  gui->trackState(20);
  QCOMPARE(gui->trackingValueLabel->text(),
           QString("<font color=red>SEARCHING</font><font color=\"orange\">  HIGH LIGHT</font>"));
  gui->trackState(31);  // 30 and more count as high light
  QCOMPARE(gui->trackingValueLabel->text(), QString("<font color=></font><font color=\"orange\">  HIGH LIGHT</font>"));
}

void TestGui::showKtrShortAndElided() {
  QFontMetrics metrics(gui->uiStyle()->font_label);
  gui->ShowKTR("a.ktr", 120);
  QCOMPARE(gui->ktrNameLabel->text(), QString("KTR : a.ktr"));
  QVERIFY(gui->ktrNameLabel->isVisible() && gui->ktrPosSlider->isVisible() && gui->ktrFrameLabel->isVisible());
  QVERIFY(gui->offLineCheck->isVisible());
  QVERIFY(gui->ktrPosSlider->isEnabled());
  QCOMPARE(gui->ktrPosSlider->minimum(), 0);
  QCOMPARE(gui->ktrPosSlider->maximum(), 119);
  QCOMPARE(gui->ktrPosSlider->value(), 0);
  QCOMPARE(gui->ktrFrameLabel->text(), QString("Frame : 0"));
  const int textW = metrics.horizontalAdvance("KTR : a.ktr");
  const int h = static_cast<int>(gui->height() * 0.02);
  QCOMPARE(gui->ktrPosSlider->x(), gui->ktrNameLabel->x() + textW + 24);
  QCOMPARE(gui->ktrPosSlider->y(), gui->ktrNameLabel->y());
  QCOMPARE(gui->ktrPosSlider->height(), h);
  const int sliderRight = gui->width() - static_cast<int>(gui->width() * 0.007) - 24 - textW - h - 1;
  QCOMPARE(right(gui->ktrPosSlider), sliderRight);
  QCOMPARE(gui->ktrFrameLabel->x(), sliderRight + 13);

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

void TestGui::incrementKtrStopsAtMaximum() {
  gui->ShowKTR("b.ktr", 3);
  gui->incrementKTRPos();
  QCOMPARE(gui->ktrPosSlider->value(), 1);
  gui->incrementKTRPos();
  gui->incrementKTRPos();
  gui->incrementKTRPos();
  QCOMPARE(gui->ktrPosSlider->value(), 2);
}

void TestGui::viewOptionsWriteStore() {
  gui->ptSizeSlider->setValue(25);
  QCOMPARE(ProgramStates::getDoubleAttr(ProgramStates::POINT_SIZE), 2.5);
  QCOMPARE(gui->ptSizeValueLabel->text(), QString("2.5"));
  gui->ptSizeSlider->setValue(3);
  QCOMPARE(ProgramStates::getDoubleAttr(ProgramStates::POINT_SIZE), static_cast<double>(3 * 0.1f));
  QCOMPARE(gui->ptSizeValueLabel->text(), QString("0.3"));

  gui->setViewerOptions(1);
  QTest::mouseClick(gui->facesRadio, Qt::LeftButton, {}, QPoint(7, gui->facesRadio->height() / 2));
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::MESH_DISPLAY_MODE), 3);
  QTest::mouseClick(gui->pointsRadio, Qt::LeftButton, {}, QPoint(7, gui->pointsRadio->height() / 2));
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::MESH_DISPLAY_MODE), 1);

  gui->camLockCheck->setChecked(true);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::LOCK_CAMERA));
  gui->camLockCheck->setChecked(false);
  QVERIFY(!ProgramStates::getBoolAttr(ProgramStates::LOCK_CAMERA));
  gui->showPathCheck->setChecked(true);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::SHOW_PATH));
  gui->drawEdgesCheck->setChecked(true);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::DRAW_EDGES));
  gui->offLineCheck->setChecked(true);
  QVERIFY(ProgramStates::getBoolAttr(ProgramStates::OFFLINE_MODE));
}

void TestGui::geometryAfterResizes() {
  for (const QSize requested : {QSize(1920, 1080), QSize(1280, 720), QSize(800, 500)}) {
    gui->resize(requested);
    const QSize expected = requested.expandedTo(QSize(1000, 600));
    QTRY_COMPARE(gui->size(), expected);
    const int w = expected.width();
    const int h = expected.height();
    const int m = static_cast<int>(w * 0.007);
    const int l = static_cast<int>(h * 0.03);
    const int top = m + l + m;

    // Logo at the top left, with the SVG's aspect ratio.
    const QRectF logo = gui->logoRect();
    QCOMPARE(logo.topLeft(), QPointF(m, m));
    QCOMPARE(logo.height(), static_cast<double>(l));
    const QSize svg = QSvgRenderer(QString(":/SVG/VelmaroLogo.svg")).defaultSize();
    QVERIFY(std::abs(logo.width() - l * double(svg.width()) / svg.height()) < 1.0);

    // Header controls.
    const int y = static_cast<int>((top - 22) * 0.5);
    QCOMPARE(gui->inputButton->y(), y);
    QCOMPARE(gui->depthModeLabel->x(), static_cast<int>(logo.x() + logo.width()) + 4 * m);
    QCOMPARE(gui->depthModeBox->width(), 157);
    QCOMPARE(gui->inputButton->x(), right(gui->depthModeBox) + m);
    QCOMPARE(gui->startButton->geometry(), gui->inputButton->geometry());
    QCOMPARE(right(gui->liveButton), gui->inputButton->x() + 105 / 2);
    QCOMPARE(gui->ktrButton->x(), gui->inputButton->x() + 105 / 2);
    QCOMPARE(gui->liveButton->height(), 20);
    QCOMPARE(gui->loadMapButton->x(), right(gui->inputButton) + m);
    QCOMPARE(gui->cancelButton->geometry(), gui->loadMapButton->geometry());
    QCOMPARE(gui->offLineCheck->x(), right(gui->loadMapButton) + 24);
    QCOMPARE(gui->ktrNameLabel->x(), right(gui->offLineCheck) + 13);
    QCOMPARE(gui->ktrNameLabel->width(), static_cast<int>(w * 0.2));
    QCOMPARE(gui->settingsButton->geometry(), QRect(w - m - 105, y, 105, 22));

    // Two views side by side.
    gui->SwitchMeshView(false);
    const int freeH = h - (m + top);
    QCOMPARE(gui->liveFrame->geometry(), QRect(m, top, static_cast<int>(w * 0.45), freeH));
    QCOMPARE(gui->view2D->geometry(), QRect(0, 0, gui->liveFrame->width(), freeH));
    QCOMPARE(gui->mapFrame->x(), right(gui->liveFrame) + m);
    QCOMPARE(right(gui->mapFrame), w - m);
    QCOMPARE(bottom(gui->mapFrame), h - m);
    QCOMPARE(gui->view3D->size(), gui->mapFrame->size());
    QCOMPARE(gui->progressWidget->geometry(), gui->view3D->geometry());
    QCOMPARE(gui->logoScreen->geometry(), QRect(m, top, w - 2 * m, freeH));

    // Tracking bar along the bottom of the map frame.
    const int b = gui->mapFrame->width();
    QCOMPARE(gui->trackingBar->geometry(), QRect(0, freeH - 30, b, 30));
    QCOMPARE(gui->trackingTitleLabel->geometry(), QRect(12, 4, static_cast<int>(b * 0.2), 22));
    QCOMPARE(gui->spinner->geometry(), QRect(12, 1, 28, 28));
    QCOMPARE(gui->camLockCheck->x(), static_cast<int>(b * 0.4));
    QCOMPARE(gui->facesRadio->x(), static_cast<int>(b * 0.85));
    QCOMPARE(right(gui->ptSizeValueLabel), b - 4);
    QCOMPARE(right(gui->ptSizeSlider), gui->ptSizeValueLabel->x() - 4);
    QCOMPARE(right(gui->ptSizeLabel), gui->ptSizeSlider->x() - 4);
    QVERIFY(gui->ptSizeSlider->width() >= 50);

    // Map only.
    gui->SwitchMeshView(true);
    QVERIFY(!gui->liveFrame->isVisible());
    QCOMPARE(gui->mapFrame->geometry(), QRect(m, top, w - 2 * m, freeH));
    QCOMPARE(gui->trackingBar->width(), w - 2 * m);
    // The layout on resize keeps the map-only arrangement.
    gui->resize(expected + QSize(10, 10));
    QTRY_COMPARE(gui->mapFrame->width(), gui->width() - 2 * static_cast<int>(gui->width() * 0.007));
    QVERIFY(!gui->liveFrame->isVisible());
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

void TestGui::openPropCentresOnce() {
  gui->resize(1200, 800);
  QTRY_COMPARE(gui->size(), QSize(1200, 800));
  QVERIFY(!gui->settingsWindow->isVisible());
  gui->openProp();
  QVERIFY(gui->settingsWindow->isVisible());
  const QPoint expected(gui->x() + gui->width() / 2 - gui->settingsWindow->width() / 2,
                        gui->y() + gui->height() / 2 - gui->settingsWindow->height() / 2);
  QTRY_COMPARE(gui->settingsWindow->pos(), expected);
  gui->settingsWindow->move(3, 3);
  gui->openProp();  // already visible: stays where it is
  QTRY_COMPARE(gui->settingsWindow->pos(), QPoint(3, 3));
  gui->settingsButton->setEnabled(true);
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
