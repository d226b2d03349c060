// Writes screenshots of the 3D map view to a folder: a live mesh growing over several map
// hand-overs with the camera path, the same map as edges, a fused point cloud, and a saved
// textured map when one is given. Usage: view3d_snapshots OUT_DIR [MAP_FILE]
#include <QDir>
#include <QImage>
#include <cstdio>
#include <mutex>

#include "ProgramStates.h"
#include "synthetic_map.h"

using namespace view3d_bench;

namespace {

void save(OGL3DWidget& widget, const QString& path) {
  widget.updateGL();
  widget.grabFrameBuffer().save(path);
  std::printf("wrote %s\n", qPrintable(path));
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s OUT_DIR [MAP_FILE]\n", argv[0]);
    return 2;
  }
  const QDir out(QString::fromLocal8Bit(argv[1]));
  QDir().mkpath(out.path());

  ProgramStates::resetStates();
  OGL3DWidget widget;
  widget.resize(800, 600);
  widget.setAutoBufferSwap(false);
  if (!showAndWait(widget)) {
    std::fprintf(stderr, "no GL window\n");
    return 1;
  }

  // The worker's side: a map that grows tile row by tile row, handed over under the mutex.
  std::mutex mapMutex;
  pv::Mesh liveMesh;
  pv::FusedPointCloud liveCloud;
  widget.setMapSources(&mapMutex, &liveMesh, &liveCloud);
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
  ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, 3);
  ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, true);
  ProgramStates::setDoubleAttr(ProgramStates::POINT_SIZE, 2.0);

  // Seen from a little further back than the home pose, to take in the whole floor.
  widget.getCamera()->setOffsetFromPosition(pv::Translation(0.f, 0.f, 3.2f));
  const pv::Mesh full = floorMesh(8, 24);
  const int steps = 4;
  int poseIndex = 0;
  for (int step = 1; step <= steps; ++step) {
    {
      std::lock_guard<std::mutex> lock(mapMutex);
      const size_t visible = full.chunks.size() * step / steps;
      for (pv::Chunk& c : liveMesh.chunks) c.has_been_updated = false;
      while (liveMesh.chunks.size() < visible) liveMesh.chunks.push_back(full.chunks[liveMesh.chunks.size()]);
    }
    // The scanning camera sweeps sideways and backwards, looking down the floor.
    for (int k = 0; k < 6; ++k, ++poseIndex) {
      const float t = poseIndex / 24.f;
      float pose[16] = {
          1, 0, 0, 0.6f * std::sin(6.2832f * t), 0, 0.94f, 0.34f, 0.15f, 0, -0.34f, 0.94f, 0.4f - 1.6f * t, 0, 0, 0, 1};
      widget.setCameraPose(pose);
    }
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    save(widget, out.filePath(QString("live_mesh_step%1.png").arg(step)));
    std::printf("  chunks %d, capacity %zu, request allowed %d\n", widget.getChunkCount(), widget.getSubMapCapacity(),
                int(ProgramStates::getBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED)));
  }
  ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, 2);
  widget.getCamera()->setOffsetFromPosition(pv::Translation(0.f, 0.f, 0.9f));  // close enough to see edges
  save(widget, out.filePath("live_mesh_edges.png"));
  ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, 1);
  save(widget, out.filePath("live_mesh_points.png"));

  // A fused point cloud, handed over the same way.
  widget.reset();
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
  ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, true);
  ProgramStates::setDoubleAttr(ProgramStates::POINT_SIZE, 3.0);
  {
    std::lock_guard<std::mutex> lock(mapMutex);
    liveCloud = floorCloud(8, 30);
  }
  ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
  widget.getCamera()->setOffsetFromPosition(pv::Translation(0.f, 0.f, 3.2f));
  save(widget, out.filePath("fused_point_cloud.png"));

  if (argc >= 3) {
    ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, false);
    ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, false);  // as after an import from the dialog
    widget.reset();
    if (!widget.OpenMesh(QString::fromLocal8Bit(argv[2]))) {
      std::fprintf(stderr, "could not open %s: %s\n", argv[2], pv::lastErrorDetail().get());
      return 1;
    }
    const pv::Mesh& mesh = widget.getLoadedMesh();
    const std::vector<pv::float3>& vertices = mesh.vertices;
    pv::float3 lo = vertices.empty() ? pv::float3() : vertices.front(), hi = lo;
    for (const pv::float3& v : vertices) {
      lo = {std::min(lo.x, v.x), std::min(lo.y, v.y), std::min(lo.z, v.z)};
      hi = {std::max(hi.x, v.x), std::max(hi.y, v.y), std::max(hi.z, v.z)};
    }
    const float extent = std::max(hi.x - lo.x, std::max(hi.y - lo.y, hi.z - lo.z));
    widget.getCamera()->setPosition(pv::Translation((lo.x + hi.x) / 2, (lo.y + hi.y) / 2, (lo.z + hi.z) / 2));
    widget.getCamera()->setOffsetFromPosition(pv::Translation(0.f, 0.f, std::max(extent, 0.01f) * 1.3f));
    // As the map import does: not ready while uploading, ready once the map is on the GPU.
    widget.setReady(false);
    const bool textured = widget.loadTexture();
    widget.setReady(true);
    if (textured) {
      ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 2);
      save(widget, out.filePath("opened_map_textured.png"));
      ProgramStates::setBoolAttr(ProgramStates::DRAW_EDGES, true);
      save(widget, out.filePath("opened_map_textured_edges.png"));
    } else {
      const bool isMesh = widget.pushMesh();
      ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
      ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, !isMesh);
      save(widget, out.filePath("opened_map.png"));
    }
    std::printf("  %d elements\n", widget.getLoadedElementCount());
  }
  return 0;
}
