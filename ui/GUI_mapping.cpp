// The mapping-parameter slots: they keep sliders, preset boxes, value labels and enable states
// consistent and write the user's choices into the attribute store.
#include <pv/types.h>

#include <cmath>

#include "GUI.h"
#include "ProgramStates.h"

void GUI::presetDepthMode(int index) { ProgramStates::setIntAttr(ProgramStates::DEPTH_MODE, index + 1); }

void GUI::presetMapType(int index) {
  ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, index != 0);
  const bool mesh = index == 0;
  if (!mesh) {
    pointsRadio->setChecked(true);
    filterBox->setCurrentIndex(3);
    for (QLabel* label : {filterLabel, saveRawMeshLabel, applyTextureLabel})
      label->setStyleSheet("QLabel { color : rgb(127,127,127) }");
    applyTextureCheck->setChecked(false);
    saveRawMeshCheck->setChecked(false);
  } else {
    for (QLabel* label : {filterLabel, saveRawMeshLabel, applyTextureLabel})
      label->setStyleSheet("QLabel { color : rgb(0,0,0); }");
  }
  for (QWidget* control : std::initializer_list<QWidget*>{filterBox, applyTextureCheck, saveRawMeshCheck, pointsRadio,
                                                          edgesRadio, facesRadio})
    control->setEnabled(mesh);
}

void GUI::presetResolution(int index) {
  const float metres = pv::SpatialMappingParameters::get(pv::MAPPING_RESOLUTION(index));
  resolutionSlider->setValue(static_cast<int>(std::ceil(metres * 100.f)));
}

void GUI::customResolution(int) {
  const float metres = static_cast<float>(resolutionSlider->value()) * 0.01f;
  resolutionValueLabel->setText("Value: " + QString::number(metres, 'g', 6) + " M");
}

void GUI::switchAutoResolution(int state) {
  if (state != 0) {
    presetResolution(resolutionPresetBox->currentIndex());
    resolutionSlider->hide();
    resolutionPresetBox->show();
  } else {
    resolutionSlider->show();
    resolutionPresetBox->hide();
  }
}

void GUI::presetRange(int index) {
  const float metres = pv::SpatialMappingParameters::get(pv::MAPPING_RANGE(index));
  rangeSlider->setValue(static_cast<int>(metres * 10.f));
}

void GUI::customRange(int) {
  if (rangePresetBox->currentIndex() == 3 && autoRangeCheck->isChecked()) {
    rangeValueLabel->setText("AUTO");
    return;
  }
  const float metres = static_cast<float>(rangeSlider->value()) * 0.1f;
  rangeValueLabel->setText("Value: " + QString::number(metres, 'g', 6) + " M");
}

void GUI::switchAutoRange(int state) {
  customRange(0);
  if (state != 0) {
    presetRange(rangePresetBox->currentIndex());
    rangeSlider->hide();
    rangePresetBox->show();
  } else {
    rangeSlider->show();
    rangePresetBox->hide();
  }
}

void GUI::customMemory(int value) { memoryValueLabel->setText(QString::number(value) + "Mo"); }

void GUI::presetFilter(int index) { filterIndex = index; }

void GUI::checkCheck(int) {
  ProgramStates::setBoolAttr(ProgramStates::APPLY_TEXTURE, applyTextureCheck->isChecked());
  ProgramStates::setBoolAttr(ProgramStates::SAVE_RAW_MESH, saveRawMeshCheck->isChecked());
}
