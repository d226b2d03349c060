// A known frame buffer for the live image view: BGRA, width w and height 2h, the upper half (the
// camera image) in four coloured quadrants and the lower half (the second view) in two halves.
#pragma once

#include <QColor>
#include <QPointF>
#include <array>

#include "pv/mat.h"

namespace view2d_test {

/// Colours of the six regions: upper top-left, top-right, bottom-left, bottom-right, then lower
/// left and lower right.
using Palette = std::array<QColor, 6>;

inline Palette primaryPalette() {
  return {QColor(255, 0, 0),   QColor(0, 255, 0),   QColor(0, 0, 255),
          QColor(255, 255, 0), QColor(255, 0, 255), QColor(0, 255, 255)};
}

inline Palette secondPalette() {
  return {QColor(255, 128, 0),  QColor(0, 200, 255),   QColor(200, 0, 90),
          QColor(90, 255, 120), QColor(255, 255, 255), QColor(240, 40, 40)};
}

/// Region index of the frame buffer pixel (x, y) in a buffer of `width` x `height` (= 2h).
inline int regionOf(size_t x, size_t y, size_t width, size_t height) {
  const size_t h = height / 2;
  const bool right = x >= width / 2;
  if (y >= h) return right ? 5 : 4;
  const bool lower_quadrant = y >= h / 2;
  return (lower_quadrant ? 2 : 0) + (right ? 1 : 0);
}

/// Centre of each region as a fraction of the frame buffer's width and height.
inline QPointF regionCentre(int region) {
  static const std::array<QPointF, 6> centres = {QPointF(0.25, 0.125), QPointF(0.75, 0.125), QPointF(0.25, 0.375),
                                                 QPointF(0.75, 0.375), QPointF(0.25, 0.75),  QPointF(0.75, 0.75)};
  return centres[size_t(region)];
}

/// Writes the pattern into `frame` (U8_C4, GPU memory, allocated) through a CPU image and the
/// SDK's copy, so that it works whether the GPU memory is device memory or host memory.
inline bool fillPattern(pv::Mat& frame, const Palette& palette) {
  pv::Mat cpu(frame.getWidth(), frame.getHeight(), pv::MAT_TYPE::U8_C4, pv::MEM::CPU);
  if (!cpu.isInit()) return false;
  for (size_t y = 0; y < cpu.getHeight(); ++y) {
    for (size_t x = 0; x < cpu.getWidth(); ++x) {
      const QColor& c = palette[size_t(regionOf(x, y, cpu.getWidth(), cpu.getHeight()))];
      unsigned char* px = cpu.getPixel<unsigned char>(x, y);
      px[0] = static_cast<unsigned char>(c.blue());
      px[1] = static_cast<unsigned char>(c.green());
      px[2] = static_cast<unsigned char>(c.red());
      px[3] = 255;
    }
  }
  return cpu.copyTo(frame, pv::COPY_TYPE::CPU_GPU) == pv::ERROR_CODE::SUCCESS;
}

}  // namespace view2d_test
