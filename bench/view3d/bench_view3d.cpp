// Frame time and chunk upload time of the 3D map view for a large chunked map (about 2 million
// triangles by default), drawn as faces, edges and points, and for a fused point cloud.
// Usage: bench_view3d [TILES_PER_SIDE [CELLS_PER_CHUNK_SIDE [FRAMES]]]
#include <GL/gl.h>

#include <QElapsedTimer>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include "ProgramStates.h"
#include "machine.h"
#include "synthetic_map.h"

using namespace view3d_bench;

namespace {

double frameMs(OGL3DWidget& widget) {
  QElapsedTimer timer;
  timer.start();
  widget.updateGL();
  widget.makeCurrent();
  glFinish();
  return timer.nsecsElapsed() / 1e6;
}

void measureFrames(OGL3DWidget& widget, const char* label, int frames) {
  frameMs(widget);  // warm-up
  double total = 0, best = 1e30;
  for (int i = 0; i < frames; ++i) {
    const double ms = frameMs(widget);
    total += ms;
    best = std::min(best, ms);
  }
  std::printf("frame %-22s mean %9.2f ms  best %9.2f ms  (%d frames)\n", label, total / frames, best, frames);
}

// Hands every chunk over as changed and times the upload (updateMesh, under the map mutex).
double uploadMs(OGL3DWidget& widget) {
  ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
  QElapsedTimer timer;
  timer.start();
  widget.makeCurrent();
  widget.updateMesh();
  glFinish();
  return timer.nsecsElapsed() / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  const int tiles = argc > 1 ? std::atoi(argv[1]) : 20;
  const int cells = argc > 2 ? std::atoi(argv[2]) : 50;
  const int frames = argc > 3 ? std::atoi(argv[3]) : 5;

  mapura::bench::printMachine();
  ProgramStates::resetStates();
  OGL3DWidget widget;
  widget.resize(1280, 720);
  widget.setAutoBufferSwap(false);
  if (!showAndWait(widget)) {
    std::fprintf(stderr, "no GL window\n");
    return 1;
  }
  widget.makeCurrent();
  std::printf("GL: %s / %s\n", reinterpret_cast<const char*>(glGetString(GL_RENDERER)),
              reinterpret_cast<const char*>(glGetString(GL_VERSION)));

  std::mutex mapMutex;
  pv::Mesh mesh = floorMesh(tiles, cells);
  pv::FusedPointCloud cloud;
  widget.setMapSources(&mapMutex, &mesh, &cloud);
  const size_t triangles = mesh.getNumberOfTriangles();
  std::printf("map: %zu chunks, %zu triangles, %zu vertices, viewport 1280x720\n", mesh.chunks.size(), triangles,
              mesh.getNumberOfPoints());

  // First upload creates the drawables; later ones refill existing buffers.
  const double first = uploadMs(widget);
  double again = 0;
  for (int i = 0; i < 3; ++i) again += uploadMs(widget) / 3;
  std::printf("upload all chunks      first %9.2f ms  again %9.2f ms  (%.3f ms per chunk, %.1f Mtri/s)\n", first, again,
              again / mesh.chunks.size(), triangles / (again * 1e3));
  // A typical live hand-over changes a few chunks only.
  for (pv::Chunk& c : mesh.chunks) c.has_been_updated = false;
  for (size_t i = 0; i < mesh.chunks.size(); i += 20) mesh.chunks[i].has_been_updated = true;
  std::printf("upload 1 in 20 chunks        %9.2f ms\n", uploadMs(widget));
  for (pv::Chunk& c : mesh.chunks) c.has_been_updated = true;

  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
  ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, true);
  for (int mode : {3, 2, 1}) {
    ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, mode);
    measureFrames(widget, mode == 3 ? "mesh faces" : mode == 2 ? "mesh edges" : "mesh points", frames);
  }

  // The same floor as a fused point cloud with as many points as the mesh has vertices.
  widget.reset();
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
  ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, true);
  ProgramStates::setDoubleAttr(ProgramStates::POINT_SIZE, 2.0);
  cloud = floorCloud(tiles, cells + 1);
  std::printf("cloud: %zu chunks, %zu points\n", cloud.chunks.size(), cloud.getNumberOfPoints());
  std::printf("upload point cloud           %9.2f ms\n", uploadMs(widget));
  measureFrames(widget, "fused point cloud", frames);
  return 0;
}
