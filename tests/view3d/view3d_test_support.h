// Scenes and pixel helpers shared by the 3D view tests: synthetic chunks placed where the home
// camera looks, one frame drawn and read back.
#pragma once

#include <QColor>
#include <QImage>
#include <QTest>
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "pv/mesh.h"

namespace view3d_test {

constexpr int kWidth = 400;
constexpr int kHeight = 300;

/// A horizontal square at height y centred on (cx, cz), two triangles, every normal = `normal`;
/// diagonal from (-half, -half) to (+half, +half).
inline pv::Chunk quadChunk(float cx, float y, float cz, float half, pv::float3 normal) {
  pv::Chunk chunk;
  chunk.vertices = {
      {cx - half, y, cz - half}, {cx + half, y, cz - half}, {cx + half, y, cz + half}, {cx - half, y, cz + half}};
  chunk.normals.assign(4, normal);
  chunk.triangles = {{0, 1, 2}, {0, 2, 3}};
  chunk.has_been_updated = true;
  return chunk;
}

/// A point (x, y, z) whose fourth float carries red, green and blue as the SDK packs them.
inline pv::float4 colouredPoint(float x, float y, float z, int r, int g, int b) {
  const uint32_t word = (uint32_t(r) << 16) | (uint32_t(g) << 8) | uint32_t(b);
  float w;
  std::memcpy(&w, &word, sizeof(w));
  return {x, y, z, w};
}

/// Draws one frame into the back buffer (no swap) and reads it back.
inline QImage renderFrame(OGL3DWidget& widget) {
  widget.updateGL();
  return widget.grabFrameBuffer().convertToFormat(QImage::Format_RGB32);
}

/// A shown, exposed kWidth x kHeight widget with the home camera and one frame drawn (the first
/// frame clears with the GL default colour), after the attribute store is reset; null without a
/// GL context.
inline std::unique_ptr<OGL3DWidget> openWidget() {
  ProgramStates::resetStates();
  auto widget = std::make_unique<OGL3DWidget>();
  widget->resize(kWidth, kHeight);
  widget->setAutoBufferSwap(false);
  widget->show();
  if (!QTest::qWaitForWindowExposed(widget.get()) || !widget->isValid()) return nullptr;
  widget->swapBuffers();  // sizes the buffers to the window before frames are read back
  renderFrame(*widget);
  return widget;
}

inline bool near(QRgb pixel, int r, int g, int b, int tolerance) {
  return std::abs(qRed(pixel) - r) <= tolerance && std::abs(qGreen(pixel) - g) <= tolerance &&
         std::abs(qBlue(pixel) - b) <= tolerance;
}

inline int countPixels(const QImage& image, const std::function<bool(QRgb)>& match) {
  int n = 0;
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x)
      if (match(image.pixel(x, y))) ++n;
  return n;
}

/// The clear colour (0.12 grey) as it reads back.
inline bool isBackground(QRgb pixel) { return near(pixel, 31, 31, 31, 1); }

}  // namespace view3d_test

namespace view3d_test {

/// Centre and largest extent of a set of vertices.
inline void bounds(const std::vector<pv::float3>& vertices, pv::Translation& centre, float& extent) {
  pv::float3 lo = vertices.empty() ? pv::float3() : vertices.front(), hi = lo;
  for (const pv::float3& v : vertices) {
    lo = {std::min(lo.x, v.x), std::min(lo.y, v.y), std::min(lo.z, v.z)};
    hi = {std::max(hi.x, v.x), std::max(hi.y, v.y), std::max(hi.z, v.z)};
  }
  centre = pv::Translation((lo.x + hi.x) / 2, (lo.y + hi.y) / 2, (lo.z + hi.z) / 2);
  extent = std::max(hi.x - lo.x, std::max(hi.y - lo.y, hi.z - lo.z));
}

/// Orbits the view camera around `centre` at a distance that shows `extent` metres whole.
inline void frame(OGL3DWidget& widget, const pv::Translation& centre, float extent) {
  widget.getCamera()->setPosition(centre);
  widget.getCamera()->setOffsetFromPosition(pv::Translation(0.f, 0.f, std::max(extent, 0.01f) * 2.5f));
}

}  // namespace view3d_test
