// A synthetic spatial map for the 3D view's benchmark and screenshots: a wavy floor cut into
// square chunks, as a mesh (with normals) or as a coloured fused point cloud.
#pragma once

#include <QApplication>
#include <QElapsedTimer>
#include <QWindow>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "OGL3DWidget.h"
#include "pv/mesh.h"

namespace view3d_bench {

inline float floorHeight(float x, float z) {
  return -0.35f + 0.08f * std::sin(6.f * x) * std::cos(5.f * z) + 0.03f * std::sin(17.f * x + 3.f * z);
}

inline pv::float3 floorNormal(float x, float z) {
  const float e = 1e-3f;
  const float dhdx = (floorHeight(x + e, z) - floorHeight(x - e, z)) / (2 * e);
  const float dhdz = (floorHeight(x, z + e) - floorHeight(x, z - e)) / (2 * e);
  return pv::normalize(pv::float3(-dhdx, 1.f, -dhdz));
}

/// One square chunk of the floor with its corner at (x0, z0): cells x cells quads, 2 triangles each.
inline pv::Chunk floorChunk(float x0, float z0, float size, int cells) {
  pv::Chunk chunk;
  const float step = size / cells;
  for (int j = 0; j <= cells; ++j)
    for (int i = 0; i <= cells; ++i) {
      const float x = x0 + i * step, z = z0 + j * step;
      chunk.vertices.emplace_back(x, floorHeight(x, z), z);
      chunk.normals.push_back(floorNormal(x, z));
    }
  const unsigned row = unsigned(cells + 1);
  for (unsigned j = 0; j < unsigned(cells); ++j)
    for (unsigned i = 0; i < unsigned(cells); ++i) {
      const unsigned a = j * row + i;
      chunk.triangles.emplace_back(a, a + row, a + 1);
      chunk.triangles.emplace_back(a + 1, a + row, a + row + 1);
    }
  chunk.has_been_updated = true;
  return chunk;
}

/// A tiles x tiles grid of chunks covering x in [-1, 1], z in [-1.5, 0.5].
inline pv::Mesh floorMesh(int tiles, int cells) {
  pv::Mesh mesh;
  const float size = 2.f / tiles;
  for (int tz = 0; tz < tiles; ++tz)
    for (int tx = 0; tx < tiles; ++tx)
      mesh.chunks.push_back(floorChunk(-1.f + tx * size, -1.5f + tz * size, size, cells));
  return mesh;
}

/// Packs red, green and blue as the SDK's fused point cloud does (red in bits 16-23).
inline float packRgb(int r, int g, int b) {
  const uint32_t word = (uint32_t(r) << 16) | (uint32_t(g) << 8) | uint32_t(b);
  float w;
  std::memcpy(&w, &word, sizeof(w));
  return w;
}

/// The floor as points, coloured by height (blue low, through green, to red high).
inline pv::FusedPointCloud floorCloud(int tiles, int pointsPerSide) {
  pv::FusedPointCloud cloud;
  const float size = 2.f / tiles;
  for (int tz = 0; tz < tiles; ++tz)
    for (int tx = 0; tx < tiles; ++tx) {
      pv::PointCloudChunk chunk;
      for (int j = 0; j < pointsPerSide; ++j)
        for (int i = 0; i < pointsPerSide; ++i) {
          const float x = -1.f + (tx + (i + 0.5f) / pointsPerSide) * size;
          const float z = -1.5f + (tz + (j + 0.5f) / pointsPerSide) * size;
          const float y = floorHeight(x, z);
          const float t = std::min(1.f, std::max(0.f, (y + 0.46f) / 0.22f));
          const int r = int(255 * std::max(0.f, 2 * t - 1)), b = int(255 * std::max(0.f, 1 - 2 * t));
          const int g = int(255 * (1 - std::fabs(2 * t - 1)));
          chunk.vertices.emplace_back(x, y, z, packRgb(r, g, b));
        }
      chunk.has_been_updated = true;
      cloud.chunks.push_back(chunk);
    }
  return cloud;
}

/// Shows the widget and waits (at most 5 s) until the window system has exposed it.
inline bool showAndWait(OGL3DWidget& widget) {
  widget.show();
  QElapsedTimer timer;
  timer.start();
  while (timer.elapsed() < 5000) {
    QApplication::processEvents();
    if (widget.windowHandle() != nullptr && widget.windowHandle()->isExposed() && widget.isValid()) break;
  }
  // Let the window system's resize and expose events settle before drawing.
  const qint64 exposedAt = timer.elapsed();
  while (timer.elapsed() < exposedAt + 300) QApplication::processEvents();
  if (widget.windowHandle() == nullptr || !widget.windowHandle()->isExposed() || !widget.isValid()) return false;
  // Frames are drawn without swapping; one swap makes the renderer size its buffers to the
  // window's final size (the window is created small, before the resize reaches the X server).
  widget.makeCurrent();
  widget.swapBuffers();
  return true;
}

}  // namespace view3d_bench
