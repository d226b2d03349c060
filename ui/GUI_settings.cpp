// The settings window: the "Spatial Mapping" tab (mapping parameters) and the "Camera" tab (gain
// and exposure), and the start-up state of the mapping parameters.
#include <pv/mesh.h>
#include <pv/types.h>

#include <cmath>

#include "GUI.h"
#include "Style.h"

namespace {
enum SettingsId {
  ID_GAIN = 0,  // the controller tells the two camera sliders apart by these names
  ID_EXPOSURE = 1,
  ID_MAP_TYPE = 21,
  ID_RESOLUTION_PRESET,
  ID_RANGE_PRESET,
  ID_FILTER,
  ID_AUTO_RESOLUTION = 34,
  ID_AUTO_RANGE,
  ID_SAVE_RAW,
  ID_APPLY_TEXTURE,
  ID_AUTO_EXPOSURE,
  ID_RESOLUTION = 42,
  ID_RANGE,
  ID_MEMORY,
};

// Columns and rows of the mapping page.
constexpr int kLabelX = 20;
constexpr int kLabelW = 175;
constexpr int kAutoX = 205;
constexpr int kSliderX = 240;
constexpr int kSliderW = 210;
constexpr int kValueX = 462;
constexpr int kValueW = 125;
constexpr int kRowH = 22;
int row(int i) { return 12 + 32 * i; }

QString sdkText(const pv::String& text) { return QString::fromStdString(text.str()); }
}  // namespace

void GUI::setupSettingsWindow() {
  settingsWindow = new QWidget(this, Qt::Window);
  settingsWindow->setObjectName("settings");
  settingsWindow->setStyleSheet("QWidget#settings{background-color:rgb(255,255,255);}");
  settingsWindow->setWindowTitle("Settings");
  settingsWindow->setWindowIcon(QIcon(":/images/gear.png"));
  settingsWindow->setFixedSize(610, 285);

  auto* mappingPage = new QWidget();
  auto* cameraPage = new QWidget();
  setupCameraPage(cameraPage);
  setupMappingPage(mappingPage);

  settingsTabs = new QTabWidget(settingsWindow);
  settingsTabs->setGeometry(5, 8, 600, 269);
  settingsTabs->addTab(mappingPage, "Spatial Mapping");
  settingsTabs->addTab(cameraPage, "Camera");
  const int tabCount = settingsTabs->count();
  settingsTabs->setStyleSheet(style_->tabs.arg(QString::number((600.0 - 16.0 * tabCount) / tabCount, 'g')));
}

void GUI::setupCameraPage(QWidget* page) {
  Style& s = *style_;
  gainLabel = s.createLabel(page, kLabelX, 40, 120, kRowH, s.label, s.font_label, "Gain");
  gainSlider = s.createSlider(page, 150, 40, 300, kRowH, s.slider, 0, 100, ID_GAIN);
  gainValueLabel = s.createLabel(page, 465, 40, 60, kRowH, s.label, s.font_small, "50");
  exposureLabel = s.createLabel(page, kLabelX, 90, 120, kRowH, s.label, s.font_label, "Exposure");
  exposureSlider = s.createSlider(page, 150, 90, 300, kRowH, s.slider, 0, 100, ID_EXPOSURE);
  exposureValueLabel = s.createLabel(page, 465, 90, 60, kRowH, s.label, s.font_small, "50");
  gainSlider->setValue(50);
  exposureSlider->setValue(50);
  autoExposureCheck =
      s.createCheckBox(page, 150, 140, 120, kRowH, "auto.", s.check_small, s.font_regular, ID_AUTO_EXPOSURE, true);
  gainSlider->setEnabled(false);
  exposureSlider->setEnabled(false);
}

void GUI::setupMappingPage(QWidget* page) {
  Style& s = *style_;
  const QString labelSheet = "QLabel{" + s.css_label_font + "color:rgb(0,0,0);}";

  mapTypeLabel =
      s.createLabel(page, kLabelX, row(0), kLabelW, kRowH, "QLabel{" + s.css_label_font + "color:rgb(255,87,87);}",
                    s.font_label, "Spatial Map Type");
  mapTypeBox = s.createComboBox(page, kSliderX, row(0), kSliderW, kRowH, s.combo, s.font_small, ID_MAP_TYPE);
  mapTypeBox->addItems({"MESH", "FUSED POINT CLOUD"});
  connect(mapTypeBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &GUI::presetMapType);

  const auto& allowedResolution = pv::SpatialMappingParameters::allowed_resolution;
  resolutionLabel = s.createLabel(page, kLabelX, row(1), kLabelW, kRowH, labelSheet, s.font_label, "Resolution Preset");
  autoResolutionCheck =
      s.createCheckBox(page, kAutoX, row(1), 24, kRowH, "", s.check_small, s.font_regular, ID_AUTO_RESOLUTION, false);
  resolutionSlider = s.createSlider(page, kSliderX, row(1), kSliderW, kRowH, s.slider,
                                    static_cast<int>(std::ceil(allowedResolution.first * 100.f)),
                                    static_cast<int>(std::ceil(allowedResolution.second * 100.f)), ID_RESOLUTION);
  connect(resolutionSlider, &QSlider::valueChanged, this, &GUI::customResolution);
  resolutionValueLabel = s.createLabel(page, kValueX, row(1), kValueW, kRowH, s.label, s.font_small, "");
  resolutionPresetBox =
      s.createComboBox(page, kSliderX, row(1), kSliderW, kRowH, s.combo, s.font_small, ID_RESOLUTION_PRESET);
  for (int i = 0; i < 3; ++i) resolutionPresetBox->addItem(sdkText(pv::toString(pv::MAPPING_RESOLUTION(i))));
  connect(resolutionPresetBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &GUI::presetResolution);

  const auto& allowedRange = pv::SpatialMappingParameters::allowed_range;
  rangeLabel = s.createLabel(page, kLabelX, row(2), kLabelW, kRowH, labelSheet, s.font_label, "Range Preset");
  autoRangeCheck =
      s.createCheckBox(page, kAutoX, row(2), 24, kRowH, "", s.check_small, s.font_regular, ID_AUTO_RANGE, false);
  // The largest range offered is deliberately half of what the SDK allows.
  rangeSlider = s.createSlider(page, kSliderX, row(2), kSliderW, kRowH, s.slider,
                               static_cast<int>(std::ceil(allowedRange.first * 10.f)),
                               static_cast<int>(std::ceil(allowedRange.second * 10.f * 0.5f)), ID_RANGE);
  connect(rangeSlider, &QSlider::valueChanged, this, &GUI::customRange);
  rangeValueLabel = s.createLabel(page, kValueX, row(2), kValueW, kRowH, s.label, s.font_small, "");
  rangePresetBox = s.createComboBox(page, kSliderX, row(2), kSliderW, kRowH, s.combo, s.font_small, ID_RANGE_PRESET);
  for (int i = 0; i < 4; ++i) rangePresetBox->addItem(sdkText(pv::toString(pv::MAPPING_RANGE(i))));
  connect(rangePresetBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &GUI::presetRange);

  memoryLabel = s.createLabel(page, kLabelX, row(3), kLabelW, kRowH, labelSheet, s.font_label, "Memory ");
  memorySlider = s.createSlider(page, kSliderX, row(3), kSliderW, kRowH, s.slider, 512, 8192, ID_MEMORY);
  memorySlider->setSingleStep(512);
  memorySlider->setPageStep(512);
  connect(memorySlider, &QSlider::valueChanged, this, &GUI::customMemory);
  memoryValueLabel = s.createLabel(page, kValueX, row(3), kValueW, kRowH, s.label, s.font_small, "Mo");

  filterLabel = s.createLabel(page, kLabelX, row(4), kLabelW, kRowH, labelSheet, s.font_label, "Filter ");
  filterBox = s.createComboBox(page, kSliderX, row(4), kSliderW, kRowH, s.combo, s.font_small, ID_FILTER);
  for (int i = 0; i < 3; ++i) filterBox->addItem(sdkText(pv::toString(pv::MeshFilterParameters::MESH_FILTER(i))));
  filterBox->addItem("NONE");
  connect(filterBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &GUI::presetFilter);
  filterIndex = 0;

  saveRawMeshLabel = s.createLabel(page, kLabelX, row(5), kLabelW, kRowH, labelSheet, s.font_label, "Save raw mesh");
  saveRawMeshCheck =
      s.createCheckBox(page, kSliderX, row(5), 24, kRowH, "", s.check_small, s.font_regular, ID_SAVE_RAW, false);
  connect(saveRawMeshCheck, &QCheckBox::stateChanged, this, &GUI::checkCheck);
  applyTextureLabel = s.createLabel(page, kLabelX, row(6), kLabelW, kRowH, labelSheet, s.font_label, "Apply texture");
  applyTextureCheck =
      s.createCheckBox(page, kSliderX, row(6), 24, kRowH, "", s.check_small, s.font_regular, ID_APPLY_TEXTURE, false);
  connect(applyTextureCheck, &QCheckBox::stateChanged, this, &GUI::checkCheck);
}

void GUI::setInitialMappingState() {
  memorySlider->setValue(2048);
  presetRange(0);
  presetResolution(0);
  switchAutoRange(1);
  switchAutoResolution(1);
  connect(autoResolutionCheck, &QCheckBox::stateChanged, this, &GUI::switchAutoResolution);
  connect(autoRangeCheck, &QCheckBox::stateChanged, this, &GUI::switchAutoRange);
  autoRangeCheck->setChecked(true);
  autoResolutionCheck->setChecked(true);
  // The depth mode is set twice on purpose; the second value stands.
  depthModeBox->setCurrentIndex(2);
  resolutionPresetBox->setCurrentIndex(1);
  depthModeBox->setCurrentIndex(1);
  filterBox->setCurrentIndex(1);
}
