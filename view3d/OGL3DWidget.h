// The 3D map view: shows the spatial map while it grows (mesh chunks or fused point cloud chunks
// shared with the mapping worker), the path of the scanning camera with a frustum marker at its
// pose, and a saved map with its texture. What it draws is steered by ProgramStates
// (VIEW_CONTENT, FUSED_POINT_CLOUD, MESH_DISPLAY_MODE, POINT_SIZE, SHOW_PATH, DRAW_EDGES,
// LOCK_CAMERA, MAP_UPDATE_READY). Mouse and keys move its GlCam.
//
// Threads: every method runs on the GUI thread. The live map belongs to the worker, which writes
// it under its map mutex and then sets MAP_UPDATE_READY; updateMesh uploads under the same mutex
// and hands the turn back through MAP_REQUEST_ALLOWED.
#pragma once

#include <QGLFunctions>
#include <QGLShaderProgram>
#include <QGLWidget>
#include <list>
#include <mutex>

#include "GlCam.h"
#include "Simple3DObject.h"
#include "pv/math.h"
#include "pv/mesh.h"

/// Colour ramp: v = |1 - 2 i / count|, (r, g, b) = v * (0.1, 0.3, 0.8).
void getColor(int count, int i, float& r, float& g, float& b);

class OGL3DWidget : public QGLWidget, protected QGLFunctions {
  Q_OBJECT

 public:
  explicit OGL3DWidget(QWidget* parent = nullptr);
  ~OGL3DWidget() override;

  /// Non-owning pointers into the mapping worker: its map mutex, live mesh and live fused point
  /// cloud, and the lock of the pose setCameraPose receives. Null pointers mean there is no live map
  /// (or no lock); reset() forgets the lock.
  void setMapSources(std::mutex* mapMutex, pv::Mesh* mesh, pv::FusedPointCloud* pointCloud,
                     std::mutex* poseMutex = nullptr);

  void initializeGL() override;
  void resizeGL(int w, int h) override;
  void paintGL() override;

  /// Uploads the live chunks that changed since the last call and hands the turn back to the
  /// worker (MAP_UPDATE_READY := false, MAP_REQUEST_ALLOWED := true).
  void updateMesh();
  /// Uploads the whole map held in the loaded mesh or point cloud; true for a mesh, false for a
  /// point cloud (FUSED_POINT_CLOUD is then set).
  bool pushMesh();
  /// Reads a saved map (mesh first, then point cloud); false and nothing held when neither loads.
  bool OpenMesh(QString path);
  /// Uploads the loaded mesh with its texture; false (and nothing changed) without a texture.
  bool loadTexture();
  /// The map held for pushMesh and loadTexture; filled by OpenMesh or directly by the caller.
  pv::Mesh& getLoadedMesh() { return loadedMesh; }
  pv::FusedPointCloud& getLoadedPointCloud() { return loadedPointCloud; }
  /// Triangles plus points of the map read by OpenMesh.
  int getLoadedElementCount() const { return loadedElementCount; }

  /// The ready-to-draw flag (paintGL shows only the clear colour while it is false).
  bool isReady() const { return ready; }
  void setReady(bool value) { ready = value; }
  int getChunkCount() const { return chunkCount; }
  /// Number of chunk drawables allocated (at least the chunk count).
  size_t getSubMapCapacity() const { return subMaps.size(); }
  const std::list<SubMapObj>& getSubMaps() const { return subMaps; }
  GlCam* getCamera() const { return camera; }
  const pv::Transform& getProjection() const { return projection; }
  int getViewportWidth() const { return viewportWidth; }
  int getViewportHeight() const { return viewportHeight; }
  /// Vertices of the camera path (two per segment).
  size_t getPathPointCount() const;
  /// True when the four shader programs are linked.
  bool shadersLinked() const;
  /// Off: frames stay in the back buffer, where grabFrameBuffer reads them.
  using QGLWidget::setAutoBufferSwap;

 public slots:
  /// Records the tracked camera pose (16 floats, row-major camera-to-world, metres) and extends
  /// the path by one segment.
  void setCameraPose(float* pose);
  /// Draws the path and the frustum marker.
  void drawPath();
  /// Clears the live map drawables, the path and the camera; VIEW_CONTENT := 0.
  void reset();
  /// Home pose: orbit centre (0, 0, -0.5), eye 2 m behind it, looking forward and down.
  void resetCamPos();

  /// Rebuilds the projection from the current size; the argument is not used.
  void changeFov(bool mapOnly);

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void reshape();
  QGLShaderProgram* buildProgram(const char* vertexSource, const char* fragmentSource);
  void setMvp(QGLShaderProgram* program, const pv::Matrix4f& matrix);
  void drawLiveMap();
  void drawTexturedMap();

  std::mutex* mapMutex = nullptr;
  std::mutex* poseMutex = nullptr;
  pv::Mesh* liveMesh = nullptr;
  pv::FusedPointCloud* livePointCloud = nullptr;
  pv::Transform projection;
  bool ready = false;
  GlCam* camera = nullptr;
  pv::Transform trackedPose;
  QGLShaderProgram* pointShader = nullptr;
  Simple3DObject* frustum = nullptr;
  pv::Translation lastPosition;
  Simple3DObject* path = nullptr;
  QGLShaderProgram* meshShader = nullptr;
  int chunkCount = 0;
  std::list<SubMapObj> subMaps;
  QGLShaderProgram* textureShader = nullptr;
  QGLShaderProgram* edgeShader = nullptr;
  pv::Transform mvp;
  MeshTextureObject texturedMesh;
  pv::Mesh loadedMesh;
  GLuint textureId = 0;
  pv::FusedPointCloud loadedPointCloud;
  float dx = 0.f;
  float dy = 0.f;
  bool pressed = false;
  short currentX = 0, currentY = 0, lastX = 0, lastY = 0;
  int viewportWidth = 0;
  int viewportHeight = 0;
  int loadedElementCount = 0;
};
