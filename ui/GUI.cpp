// Construction of the main window: header band, views, tracking bar.
#include "GUI.h"

#include <QDomDocument>
#include <QFile>
#include <QGuiApplication>
#include <QScreen>

#include "LogoScreen.h"
#include "OGL2DWidget.h"
#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "ProgressWidget.h"
#include "Style.h"
#include "WaitingSpinnerWidget.h"
#include "clr.h"

namespace {
// Object names of the factory-made widgets (the camera sliders' "0" and "1" are set in the
// settings window).
enum WidgetId {
  ID_INPUT = 10,
  ID_LIVE,
  ID_KTR,
  ID_START,
  ID_LOAD_MAP,
  ID_CANCEL,
  ID_SETTINGS,
  ID_DEPTH_MODE = 20,
  ID_OFFLINE = 30,
  ID_CAMERA_LOCK,
  ID_SHOW_PATH,
  ID_DRAW_EDGES,
  ID_KTR_POSITION = 40,
  ID_POINT_SIZE,
};
}  // namespace

GUI::GUI(QWidget* parent) : QMainWindow(parent), logo_(0, 0, 0, 0) {
  style_ = std::make_unique<Style>();
  map_only_ = false;
  setupUi();
  phase_ = 0;
}

GUI::~GUI() = default;

void GUI::setupUi() {
  const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
  resize(static_cast<int>(available.width() * 0.9), static_cast<int>(available.height() * 0.9));
  setWindowTitle(ProgramStates::qstringAttr(ProgramStates::APPLICATION_NAME));
  setStyleSheet(style_->window);

  QFile logoFile(":/SVG/VelmaroLogo.svg");
  logoFile.open(QIODevice::ReadOnly);
  QDomDocument logo;
  logo.setContent(logoFile.readAll());
  QDomElement root = logo.documentElement();
  SetAttrRecur(root, "path", "fill", "black");
  logo_renderer_ = std::make_unique<QSvgRenderer>(logo.toByteArray(1));

  setupHeader();
  setupViews();

  startButton->setEnabled(false);
  setMinimumSize(1000, 600);
  logoScreen = new LogoScreen(this);
  logoScreen->hide();

  settingsButton = style_->createButtonTool(this, 0, 0, 105, 22, style_->button_hover, "Settings", ID_SETTINGS);
  QIcon gear;
  gear.addFile(":/images/gear.png", QSize(), QIcon::Normal);
  gear.addFile(":/images/gear_h.png", QSize(), QIcon::Active);
  gear.addFile(":/images/gear_off.png", QSize(), QIcon::Disabled);
  settingsButton->setIcon(gear);
  settingsButton->setIconSize(QSize(16, 16));
  settingsButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  settingsButton->setToolTip("Settings");

  setupSettingsWindow();
  setInitialMappingState();
  connect(settingsButton, &QToolButton::clicked, this, &GUI::openProp);
}

void GUI::setupHeader() {
  Style& s = *style_;
  inputButton = s.createButtonTool(this, 0, 0, 105, 22, s.button, "Input", ID_INPUT);
  liveButton = s.createButtonTool(this, 0, 0, 105, 20, s.button, "Live", ID_LIVE);
  ktrButton = s.createButtonTool(this, 0, 0, 105, 20, s.button, "KTR", ID_KTR);
  startButton = s.createButtonTool(this, 0, 0, 105, 22, s.button, "Start", ID_START);
  for (QToolButton* button : {inputButton, liveButton, ktrButton}) button->setCheckable(true);
  liveButton->hide();
  ktrButton->hide();

  depthModeLabel = s.createLabel(this, 0, 0, 0, 22, "QLabel{background-color:transparent; border-radius:4px;}",
                                 s.font_label, "Depth Mode");
  depthModeBox = s.createComboBox(this, 0, 0, 157, 22, s.combo, s.font_small, ID_DEPTH_MODE);
  depthModeBox->addItems({"PERFORMANCE", "QUALITY", "ULTRA", "NEURAL"});
  connect(depthModeBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &GUI::presetDepthMode);

  loadMapButton = s.createButtonTool(this, 0, 0, 105, 22, s.button, "Load Map", ID_LOAD_MAP);
  loadMapButton->setCheckable(true);
  cancelButton = s.createButtonTool(this, 0, 0, 105, 22, s.button_hover, "Cancel", ID_CANCEL);
  offLineCheck = s.createCheckBox(this, 0, 0, 105, 22, "OffLine", s.check_small, s.font_regular, ID_OFFLINE, false);

  ktrNameLabel = s.createLabel(this, 0, 0, 0, 22, s.label, s.font_label, "");
  ktrPosSlider = s.createSlider(this, 0, 0, 0, 22, s.slider, 0, 100, ID_KTR_POSITION);
  ktrPosSlider->hide();
  ktrFrameLabel = s.createLabel(this, 0, 0, 0, 22, s.label, s.font_label, "Frame : 0");
  ktrFrameLabel->hide();
  connect(offLineCheck, &QCheckBox::toggled, this, &GUI::offLine);
}

void GUI::setupViews() {
  liveFrame = new QGroupBox(this);
  liveFrame->setStyleSheet(style_->group);
  view2D = new OGL2DWidget(liveFrame, true);
  mapFrame = new QGroupBox(this);
  mapFrame->setStyleSheet(style_->group);
  view3D = new OGL3DWidget(mapFrame);
  progressWidget = new ProgressWidget(mapFrame, style_.get());
  progressWidget->hide();
  setupTrackingBar();
}

void GUI::setupTrackingBar() {
  Style& s = *style_;
  trackingBar = new QWidget(mapFrame);
  trackingBar->setStyleSheet("QWidget {background-color:rgb(133, 133, 133);}");
  trackingTitleLabel =
      s.createLabel(trackingBar, 12, 4, 0, 22, "QLabel{color:rgb(42, 42, 42)}", s.font_bold, "Tracking State : ");
  trackingValueLabel = s.createLabel(trackingBar, 0, 4, 0, 22, "", s.font_bold, "");
  trackingValueLabel->setTextFormat(Qt::RichText);

  const QString barCheck = s.check_small + "QCheckBox{color:" + clr::white + ";}";
  camLockCheck =
      s.createCheckBox(trackingBar, 0, 4, 0, 22, "Camera Lock", barCheck, s.font_regular, ID_CAMERA_LOCK, false);
  camLockCheck->hide();
  showPathCheck =
      s.createCheckBox(trackingBar, 0, 4, 0, 22, "Show Camera Path", barCheck, s.font_regular, ID_SHOW_PATH, false);
  showPathCheck->hide();

  spinner = new WaitingSpinnerWidget(trackingBar, false, false);
  spinner->setGeometry(12, 1, 28, 28);
  spinnerLabel = s.createLabel(trackingBar, 47, 4, 0, 22, s.label_white, s.font_label, "");
  spinnerLabel->hide();
  spinner->setLabel(spinnerLabel);

  drawEdgesCheck =
      s.createCheckBox(trackingBar, 0, 4, 0, 22, "Draw Edges", barCheck, s.font_regular, ID_DRAW_EDGES, false);
  drawEdgesCheck->hide();

  displayGroup = new QButtonGroup(this);
  int id = 1;
  for (QRadioButton** radio : {&pointsRadio, &edgesRadio, &facesRadio}) {
    *radio = new QRadioButton(id == 1 ? "Points" : id == 2 ? "Edges" : "Faces", trackingBar);
    (*radio)->setStyleSheet(s.radio);
    (*radio)->setFont(s.font_regular);
    displayGroup->addButton(*radio, id++);
  }
  ptSizeLabel = s.createLabel(trackingBar, 0, 4, 0, 22, s.label_white, s.font_label, "Point size");
  ptSizeSlider = s.createSlider(trackingBar, 0, 4, 0, 22, s.slider, 1, 50, ID_POINT_SIZE);
  ptSizeValueLabel = s.createLabel(trackingBar, 0, 4, 0, 22, s.label_white, s.font_small, "");

  connect(ptSizeSlider, &QSlider::valueChanged, this, &GUI::updatePtSize);
  connect(displayGroup, &QButtonGroup::idClicked, this, &GUI::changeMeshDisplay);
  connect(camLockCheck, &QCheckBox::toggled, this, &GUI::lockCam);
  connect(showPathCheck, &QCheckBox::toggled, this, &GUI::showPath);
  connect(drawEdgesCheck, &QCheckBox::toggled, this, &GUI::drawEdges);
}
