#include "OGL3DWidget.h"

#include <QByteArray>
#include <QMatrix4x4>
#include <cmath>
#include <cstring>
#include <vector>

#include "ProgramStates.h"

namespace {
const pv::Vector3<unsigned char> kFrustumColor(96, 174, 39);  // shown green (blue, green, red order)
const pv::Vector3<unsigned char> kPathColor(166, 165, 149);
}  // namespace

void getColor(int count, int i, float& r, float& g, float& b) {
  const float v = static_cast<float>(std::fabs(1.0 - 2.0 * i / count));
  r = v * 0.1f;
  g = v * 0.3f;
  b = v * 0.8f;
}

OGL3DWidget::OGL3DWidget(QWidget* parent) : QGLWidget(parent) {
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 0);
  setFocusPolicy(Qt::WheelFocus);
}

OGL3DWidget::~OGL3DWidget() {
  makeCurrent();
  subMaps.clear();
  texturedMesh.destroyGL();
  if (textureId != 0) glDeleteTextures(1, &textureId);
  delete camera;
  delete frustum;
  delete path;
  delete pointShader;
  delete meshShader;
  delete textureShader;
  delete edgeShader;
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 0);
}

void OGL3DWidget::setMapSources(std::mutex* mapMutex_, pv::Mesh* mesh, pv::FusedPointCloud* pointCloud,
                                std::mutex* poseMutex_) {
  mapMutex = mapMutex_;
  poseMutex = poseMutex_;
  liveMesh = mesh;
  livePointCloud = pointCloud;
}

QGLShaderProgram* OGL3DWidget::buildProgram(const char* vertexSource, const char* fragmentSource) {
  auto* program = new QGLShaderProgram(context());
  program->addShaderFromSourceCode(QGLShader::Vertex, vertexSource);
  program->addShaderFromSourceCode(QGLShader::Fragment, fragmentSource);
  program->bindAttributeLocation("vertex", 0);
  program->bindAttributeLocation("texCoord", 1);
  program->link();
  return program;
}

void OGL3DWidget::initializeGL() {
  makeCurrent();
  initializeGLFunctions();
  glEnable(GL_DEPTH_TEST);
  glEnable(GL_TEXTURE_2D);
  // Lets the shaders' gl_PointSize set the size of points (POINT_SIZE).
  glEnable(GL_PROGRAM_POINT_SIZE);

  delete camera;
  camera = new GlCam(pv::Translation(0.f, 0.f, 0.f), pv::Translation(0.f, 0.f, 0.f), pv::Translation(0.f, 1.f, 0.f));
  resetCamPos();

  for (QGLShaderProgram* old : {pointShader, meshShader, textureShader, edgeShader}) delete old;
  pointShader = buildProgram(VERTEX_SHADER, FRAGMENT_SHADER);
  meshShader = buildProgram(VERTEX_SHADER_PHONG, FRAGMENT_SHADER_PHONG);
  textureShader = buildProgram(VERTEX_SHADER_TEXTURE, FRAGMENT_SHADER_TEXTURE);
  textureShader->bind();
  textureShader->setUniformValue("texture_sampler", 0);
  textureShader->release();
  edgeShader = buildProgram(VERTEX_SHADER_UNI, FRAGMENT_SHADER_UNI);

  delete frustum;
  frustum = new Simple3DObject(pv::Translation(0.f, 0.f, 0.f), false);
  frustum->setDrawingType(GL_LINES);
  const float z = -0.075f;
  const float corners[4][2] = {{-0.09f, 0.04f}, {0.09f, 0.04f}, {0.09f, -0.04f}, {-0.09f, -0.04f}};
  for (int i = 0; i < 4; ++i) {
    const float* a = corners[i];
    const float* b = corners[(i + 1) % 4];
    frustum->addPoint(a[0], a[1], z, kFrustumColor);
    frustum->addPoint(b[0], b[1], z, kFrustumColor);
  }
  for (const auto& corner : corners) {
    frustum->addPoint(0.f, 0.f, 0.f, kFrustumColor);
    frustum->addPoint(corner[0], corner[1], z, kFrustumColor);
  }
  frustum->pushToGPU();

  delete path;
  path = new Simple3DObject(pv::Translation(0.f, 0.f, 0.f), false);
  path->setDrawingType(GL_LINES);

  ready = true;
}

void OGL3DWidget::setMvp(QGLShaderProgram* program, const pv::Matrix4f& matrix) {
  program->setUniformValue("u_mvpMatrix", QMatrix4x4(matrix.data()));
}

void OGL3DWidget::paintGL() {
  makeCurrent();
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glClearColor(0.12f, 0.12f, 0.12f, 1.0f);

  if (ProgramStates::getBoolAttr(ProgramStates::MAP_UPDATE_READY)) updateMesh();
  if (!ready || camera == nullptr) return;

  camera->update();
  mvp = projection * camera->getViewProjectionMatrix();

  switch (ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT)) {
    case 1: drawLiveMap(); break;
    case 2: drawTexturedMap(); break;
    default: break;
  }
}

void OGL3DWidget::drawLiveMap() {
  const bool lockCamera = ProgramStates::getBoolAttr(ProgramStates::LOCK_CAMERA);
  if (!lockCamera && ProgramStates::getBoolAttr(ProgramStates::SHOW_PATH)) drawPath();
  // Locked: the view follows the scanning camera (world to camera).
  if (lockCamera) mvp = projection * trackedPose;

  const float pointSize = static_cast<float>(ProgramStates::getDoubleAttr(ProgramStates::POINT_SIZE));
  QGLShaderProgram* program = nullptr;
  int mode = 1;
  if (!ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD)) {
    program = meshShader;
    program->bind();
    program->setUniformValue("pointsize", pointSize);
    setMvp(program, mvp);
    program->setUniformValue("u_lightMatrix", QMatrix4x4(mvp.data()));
    mode = ProgramStates::getIntAttr(ProgramStates::MESH_DISPLAY_MODE);
  } else {
    program = pointShader;
    program->bind();
    program->setUniformValue("pointsize", pointSize);
    setMvp(program, mvp);
  }
  for (SubMapObj& subMap : subMaps) subMap.draw(mode);
  program->release();
}

void OGL3DWidget::drawTexturedMap() {
  if (ProgramStates::getBoolAttr(ProgramStates::SHOW_PATH)) drawPath();
  textureShader->bind();
  setMvp(textureShader, mvp);
  glEnable(GL_TEXTURE_2D);
  glPolygonMode(GL_FRONT, GL_FILL);
  glPolygonMode(GL_BACK, GL_FILL);
  glBindTexture(GL_TEXTURE_2D, textureId);
  texturedMesh.draw();
  textureShader->release();

  if (ProgramStates::getBoolAttr(ProgramStates::DRAW_EDGES)) {
    edgeShader->bind();
    setMvp(edgeShader, mvp);
    glBindTexture(GL_TEXTURE_2D, 0);
    glPolygonMode(GL_FRONT, GL_LINE);
    glPolygonMode(GL_BACK, GL_LINE);
    texturedMesh.draw();
    edgeShader->release();
  }
}

void OGL3DWidget::updateMesh() {
  makeCurrent();
  const bool fused = ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD);
  // The chunk count is read before the mutex is taken.
  size_t n = 0;
  if (fused && livePointCloud != nullptr)
    n = livePointCloud->chunks.size();
  else if (!fused && liveMesh != nullptr)
    n = liveMesh->chunks.size();

  if (n > subMaps.size()) subMaps.resize(static_cast<size_t>((float(n) / 500 + 1) * 500));

  std::unique_lock<std::mutex> lock;
  if (mapMutex != nullptr) lock = std::unique_lock<std::mutex>(*mapMutex);
  // The map may have changed between the count and the lock: never read past its end.
  const size_t available = n == 0 ? 0 : fused ? livePointCloud->chunks.size() : liveMesh->chunks.size();
  size_t i = 0;
  for (SubMapObj& subMap : subMaps) {
    if (i < n && i < available) {
      if (fused) {
        const pv::PointCloudChunk& chunk = livePointCloud->chunks[i];
        if (chunk.has_been_updated) subMap.update(chunk);
      } else {
        const pv::Chunk& chunk = liveMesh->chunks[i];
        if (chunk.has_been_updated) subMap.update(chunk);
      }
    } else if (i >= n) {
      subMap.setIndexCount(0);
    }
    ++i;
  }
  chunkCount = static_cast<int>(n);
  if (lock.owns_lock()) lock.unlock();

  ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, false);
  ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, true);
  ready = true;
}

bool OGL3DWidget::pushMesh() {
  ready = false;
  makeCurrent();
  subMaps.clear();

  if (loadedMesh.getNumberOfTriangles() == 0) {
    chunkCount = static_cast<int>(loadedPointCloud.chunks.size());
    subMaps.resize(loadedPointCloud.chunks.size());
    ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, true);
    auto it = subMaps.begin();
    for (const pv::PointCloudChunk& chunk : loadedPointCloud.chunks) (it++)->update(chunk);
    ready = true;
    return false;
  }

  chunkCount = static_cast<int>(loadedMesh.chunks.size());
  subMaps.resize(loadedMesh.chunks.size());
  auto it = subMaps.begin();
  for (const pv::Chunk& chunk : loadedMesh.chunks) (it++)->update(chunk);
  ready = true;
  return true;
}

bool OGL3DWidget::OpenMesh(QString filePath) {
  loadedMesh.clear();
  loadedPointCloud.clear();
  texturedMesh.clear();
  loadedElementCount = 0;

  const QByteArray utf8 = filePath.toUtf8();
  const pv::String sdkPath(utf8.constData());
  if (!loadedMesh.load(sdkPath, false)) {
    loadedMesh.clear();
    if (!loadedPointCloud.load(sdkPath, false)) {
      loadedPointCloud.clear();
      return false;
    }
  }
  loadedElementCount = static_cast<int>(loadedMesh.getNumberOfTriangles() + loadedPointCloud.getNumberOfPoints());
  return true;
}

bool OGL3DWidget::loadTexture() {
  const pv::Mat& image = loadedMesh.texture;
  if (image.getWidth() == 0 || image.getHeight() == 0) return false;
  // Only 8-bit colour images in CPU memory can be handed to glTexImage2D as they are.
  const int channels = image.getChannels();
  const bool eightBit = image.getPixelBytes() == static_cast<size_t>(channels);
  unsigned char* pixels = image.getPtr<unsigned char>(pv::MEM::CPU);
  if ((channels != 3 && channels != 4) || !eightBit || pixels == nullptr) return false;

  makeCurrent();
  subMaps.clear();
  glEnable(GL_TEXTURE_2D);
  if (textureId != 0) glDeleteTextures(1, &textureId);
  glGenTextures(1, &textureId);
  glBindTexture(GL_TEXTURE_2D, textureId);
  const GLenum format = channels == 3 ? GL_RGB : GL_RGBA;
  // The image rows may be padded; GL gets them tightly packed.
  const size_t rowBytes = image.getWidthBytes();
  std::vector<unsigned char> packed;
  if (image.getStepBytes(pv::MEM::CPU) != rowBytes) {
    packed.resize(rowBytes * image.getHeight());
    for (size_t y = 0; y < image.getHeight(); ++y)
      std::memcpy(packed.data() + y * rowBytes, image.getPixel<unsigned char>(0, y), rowBytes);
    pixels = packed.data();
  }
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(format), static_cast<GLsizei>(image.getWidth()),
               static_cast<GLsizei>(image.getHeight()), 0, format, GL_UNSIGNED_BYTE, pixels);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);

  texturedMesh.initGL();
  texturedMesh.addDataDirect2GPU(loadedMesh.vertices, loadedMesh.uv, loadedMesh.triangles);
  return true;
}

void OGL3DWidget::setCameraPose(float* pose) {
  if (pose == nullptr || path == nullptr || frustum == nullptr) return;
  {
    // The worker may be writing the next pose there by now.
    std::unique_lock<std::mutex> lock;
    if (poseMutex != nullptr) lock = std::unique_lock<std::mutex>(*poseMutex);
    trackedPose = pv::Transform(pv::Matrix4f(pose));
  }
  const pv::Translation position = trackedPose.getTranslation();
  path->addPoint(lastPosition.x, lastPosition.y, lastPosition.z, kPathColor);
  path->addPoint(position.x, position.y, position.z, kPathColor);
  lastPosition = position;
  frustum->setRT(trackedPose);
  // Kept as world to camera for the locked view.
  (void)trackedPose.inverse();
}

void OGL3DWidget::drawPath() {
  makeCurrent();
  path->pushToGPU();
  pointShader->bind();
  setMvp(pointShader, mvp);
  glLineWidth(2.0f);
  path->draw();
  setMvp(pointShader, projection * camera->getViewProjectionMatrix() * frustum->getModelMatrix());
  frustum->draw();
  pointShader->release();
}

void OGL3DWidget::reset() {
  makeCurrent();
  ready = false;
  poseMutex = nullptr;
  dx = 0.f;
  dy = 0.f;
  resetCamPos();
  subMaps.clear();
  chunkCount = 0;
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 0);
}

size_t OGL3DWidget::getPathPointCount() const { return path == nullptr ? 0 : path->getNumberOfPoints(); }

bool OGL3DWidget::shadersLinked() const {
  for (const QGLShaderProgram* program : {pointShader, meshShader, textureShader, edgeShader})
    if (program == nullptr || !program->isLinked()) return false;
  return true;
}
