// The main window: a header band (logo, depth mode, input and scan controls, KTR position), the
// live image view and the map view side by side with a tracking bar, and a separate settings
// window ("Spatial Mapping" and "Camera" tabs). No layout managers: every widget is placed by
// absolute geometry computed from the window size.
//
// The application controller drives the phase machine (activeScan, resetState) and reads and
// wires the controls, which are public members for that reason. GUI thread only.
#pragma once

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QMainWindow>
#include <QRadioButton>
#include <QRectF>
#include <QSlider>
#include <QSvgRenderer>
#include <QTabWidget>
#include <QToolButton>
#include <memory>

class OGL2DWidget;
class OGL3DWidget;
class LogoScreen;
class ProgressWidget;
class Style;
class WaitingSpinnerWidget;

class GUI : public QMainWindow {
  Q_OBJECT

 public:
  explicit GUI(QWidget* parent = nullptr);
  ~GUI() override;

  /// 0 no input, 1 ready, 2 offline pre-processing, 3 scanning, 4 processing, 5 result shown.
  int phase() const { return phase_; }
  /// Last argument of SwitchMeshView.
  bool mapOnly() const { return map_only_; }
  /// Where the header logo is drawn.
  QRectF logoRect() const { return logo_; }
  Style* uiStyle() const { return style_.get(); }

  /// True from phase 4 until resetState (and while a map is imported): the spinner turns.
  bool processing = false;
  /// Chosen mesh filter, 0..3 (3: no filter); read by the controller when a scan starts.
  int filterIndex = 0;

  // Header band.
  QLabel* depthModeLabel = nullptr;
  QComboBox* depthModeBox = nullptr;
  QToolButton* inputButton = nullptr;
  QToolButton* liveButton = nullptr;
  QToolButton* ktrButton = nullptr;
  QToolButton* startButton = nullptr;
  QToolButton* loadMapButton = nullptr;
  QToolButton* cancelButton = nullptr;
  QCheckBox* offLineCheck = nullptr;
  QLabel* ktrNameLabel = nullptr;
  QSlider* ktrPosSlider = nullptr;
  QLabel* ktrFrameLabel = nullptr;
  QToolButton* settingsButton = nullptr;

  // Views and what lies over them.
  QGroupBox* liveFrame = nullptr;
  QGroupBox* mapFrame = nullptr;
  OGL2DWidget* view2D = nullptr;
  OGL3DWidget* view3D = nullptr;
  ProgressWidget* progressWidget = nullptr;
  LogoScreen* logoScreen = nullptr;

  // Tracking bar along the bottom of the map frame.
  QWidget* trackingBar = nullptr;
  QLabel* trackingTitleLabel = nullptr;
  QLabel* trackingValueLabel = nullptr;
  QCheckBox* camLockCheck = nullptr;
  QCheckBox* showPathCheck = nullptr;
  QCheckBox* drawEdgesCheck = nullptr;
  WaitingSpinnerWidget* spinner = nullptr;
  QLabel* spinnerLabel = nullptr;  ///< the status text beside the spinner
  QButtonGroup* displayGroup = nullptr;
  QRadioButton* pointsRadio = nullptr;
  QRadioButton* edgesRadio = nullptr;
  QRadioButton* facesRadio = nullptr;
  QLabel* ptSizeLabel = nullptr;
  QSlider* ptSizeSlider = nullptr;
  QLabel* ptSizeValueLabel = nullptr;

  // Settings window.
  QWidget* settingsWindow = nullptr;
  QTabWidget* settingsTabs = nullptr;
  // "Camera" tab.
  QLabel* gainLabel = nullptr;
  QSlider* gainSlider = nullptr;  ///< object name "0"
  QLabel* gainValueLabel = nullptr;
  QLabel* exposureLabel = nullptr;
  QSlider* exposureSlider = nullptr;  ///< object name "1"
  QLabel* exposureValueLabel = nullptr;
  QCheckBox* autoExposureCheck = nullptr;
  // "Spatial Mapping" tab.
  QLabel* mapTypeLabel = nullptr;
  QComboBox* mapTypeBox = nullptr;
  QLabel* resolutionLabel = nullptr;
  QCheckBox* autoResolutionCheck = nullptr;
  QSlider* resolutionSlider = nullptr;  ///< centimetres
  QLabel* resolutionValueLabel = nullptr;
  QComboBox* resolutionPresetBox = nullptr;
  QLabel* rangeLabel = nullptr;
  QCheckBox* autoRangeCheck = nullptr;
  QSlider* rangeSlider = nullptr;  ///< decimetres
  QLabel* rangeValueLabel = nullptr;
  QComboBox* rangePresetBox = nullptr;
  QLabel* memoryLabel = nullptr;
  QSlider* memorySlider = nullptr;  ///< megabytes
  QLabel* memoryValueLabel = nullptr;
  QLabel* filterLabel = nullptr;
  QComboBox* filterBox = nullptr;
  QLabel* saveRawMeshLabel = nullptr;
  QCheckBox* saveRawMeshCheck = nullptr;
  QLabel* applyTextureLabel = nullptr;
  QCheckBox* applyTextureCheck = nullptr;

 public slots:
  // Mapping parameters.
  void presetDepthMode(int index);
  void presetMapType(int index);
  void presetResolution(int index);
  void customResolution(int);
  void switchAutoResolution(int state);
  void presetRange(int index);
  void customRange(int);
  void switchAutoRange(int state);
  void customMemory(int value);
  void presetFilter(int index);
  void checkCheck(int);

  // View options.
  void changeMeshDisplay(int id);
  void updatePtSize(int v);
  void lockCam(bool checked);
  void offLine(bool checked);
  void showPath(bool checked);
  void drawEdges(bool checked);
  /// 0 hide all, 1 mesh (display radios), 2 point cloud (point size); other values: no change.
  void setViewerOptions(int mode);

  // Scan status.
  void trackState(int code);
  void ShowKTR(QString fileName, int frameCount);
  void incrementKTRPos();
  void activeScan();
  void resetState();
  void SwitchMeshView(bool mapOnly);
  void openProp();

 signals:
  void quitSignal();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  void setupUi();
  void setupHeader();
  void setupViews();
  void setupTrackingBar();
  void setupSettingsWindow();
  void setupMappingPage(QWidget* page);
  void setupCameraPage(QWidget* page);
  void setInitialMappingState();
  void layoutHeader();
  void layoutViews();
  void layoutTrackingBar();
  int headerHeight() const;

  std::unique_ptr<Style> style_;
  std::unique_ptr<QSvgRenderer> logo_renderer_;
  QRectF logo_;
  bool map_only_ = false;
  int phase_ = 0;
};
