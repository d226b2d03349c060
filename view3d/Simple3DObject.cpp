#include "Simple3DObject.h"

#include <QGLContext>
#include <cstdint>
#include <cstring>
#include <numeric>

float packColor(const pv::Vector3<unsigned char>& clr) {
  const uint32_t word = uint32_t(clr.x) | (uint32_t(clr.y) << 8) | (uint32_t(clr.z) << 16);
  float packed;
  std::memcpy(&packed, &word, sizeof(packed));
  return packed;
}

// ---- Simple3DObject ----

Simple3DObject::Simple3DObject(pv::Translation position_, bool isStatic_)
    : isStatic(isStatic_), drawingType(GL_POINTS), position(position_) {
  rotation.setIdentity();
  gl.initializeGLFunctions(QGLContext::currentContext());
}

Simple3DObject::~Simple3DObject() {
  if (vao.isCreated()) {
    gl.glDeleteBuffers(2, vboId);
    vao.destroy();
  }
}

void Simple3DObject::addPoint(float x, float y, float z, pv::Vector3<unsigned char> clr) {
  std::lock_guard<std::mutex> lock(mutex);
  vertices.emplace_back(x, y, z, packColor(clr));
  indices.push_back(static_cast<unsigned int>(indices.size()));
}

void Simple3DObject::pushToGPU() {
  if (isStatic && vao.isCreated()) return;
  if (!vao.isCreated()) {
    vao.create();
    gl.glGenBuffers(2, vboId);
  }
  std::lock_guard<std::mutex> lock(mutex);
  const int vertexCount = static_cast<int>(vertices.size());
  const int indexCount = static_cast<int>(indices.size());
  if (vertexCount == uploadedVertices && indexCount == uploadedIndices) return;
  uploadedVertices = vertexCount;
  uploadedIndices = indexCount;

  vao.bind();
  gl.glBindBuffer(GL_ARRAY_BUFFER, vboId[0]);
  gl.glBufferData(GL_ARRAY_BUFFER, vertices.size() * sizeof(vertices[0]), vertices.data(),
                  isStatic ? GL_STATIC_DRAW : GL_DYNAMIC_DRAW);
  gl.glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
  gl.glEnableVertexAttribArray(0);
  gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, vboId[1]);
  gl.glBufferData(GL_ELEMENT_ARRAY_BUFFER, indices.size() * sizeof(indices[0]), indices.data(),
                  isStatic ? GL_STATIC_DRAW : GL_DYNAMIC_DRAW);
  vao.release();
  gl.glBindBuffer(GL_ARRAY_BUFFER, 0);
  gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

void Simple3DObject::clear() {
  std::lock_guard<std::mutex> lock(mutex);
  vertices.clear();
  indices.clear();
}

void Simple3DObject::setDrawingType(unsigned int type) { drawingType = type; }

void Simple3DObject::draw() {
  std::lock_guard<std::mutex> lock(mutex);
  if (indices.empty() || !vao.isCreated()) return;
  vao.bind();
  glDrawElements(drawingType, static_cast<GLsizei>(indices.size()), GL_UNSIGNED_INT, nullptr);
  vao.release();
}

size_t Simple3DObject::getNumberOfPoints() {
  std::lock_guard<std::mutex> lock(mutex);
  return vertices.size();
}

void Simple3DObject::translate(const pv::Translation& t) { position = position + t; }

void Simple3DObject::setPosition(const pv::Translation& p) { position = p; }

void Simple3DObject::setRT(const pv::Transform& rt) {
  position = rt.getTranslation();
  rotation = rt.getOrientation();
}

void Simple3DObject::rotate(const pv::Orientation& q) { rotation = q * rotation; }

void Simple3DObject::rotate(const pv::Rotation& r) { rotate(pv::Orientation(r)); }

void Simple3DObject::setRotation(const pv::Orientation& q) { rotation = q; }

void Simple3DObject::setRotation(const pv::Rotation& r) { setRotation(pv::Orientation(r)); }

pv::Transform Simple3DObject::getModelMatrix() const { return pv::Transform(rotation, position); }

// ---- SubMapObj ----

SubMapObj::SubMapObj() { gl.initializeGLFunctions(QGLContext::currentContext()); }

SubMapObj::~SubMapObj() {
  if (vao.isCreated()) {
    gl.glDeleteBuffers(3, vboId);
    vao.destroy();
  }
}

void SubMapObj::createBuffers() {
  if (vao.isCreated()) return;
  vao.create();
  gl.glGenBuffers(3, vboId);
}

void SubMapObj::update(const pv::Chunk& chunk) {
  createBuffers();
  vao.bind();
  gl.glBindBuffer(GL_ARRAY_BUFFER, vboId[0]);
  gl.glBufferData(GL_ARRAY_BUFFER, chunk.vertices.size() * sizeof(pv::float3), chunk.vertices.data(), GL_DYNAMIC_DRAW);
  gl.glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
  gl.glEnableVertexAttribArray(0);

  gl.glBindBuffer(GL_ARRAY_BUFFER, vboId[1]);
  gl.glBufferData(GL_ARRAY_BUFFER, chunk.normals.size() * sizeof(pv::float3), chunk.normals.data(), GL_DYNAMIC_DRAW);
  gl.glVertexAttribPointer(2, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
  // A chunk without one normal per vertex would make the shader read past the buffer; it is then
  // drawn with the constant (zero) normal instead.
  if (chunk.normals.size() == chunk.vertices.size())
    gl.glEnableVertexAttribArray(2);
  else
    gl.glDisableVertexAttribArray(2);

  gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, vboId[2]);
  gl.glBufferData(GL_ELEMENT_ARRAY_BUFFER, chunk.triangles.size() * sizeof(pv::uint3), chunk.triangles.data(),
                  GL_DYNAMIC_DRAW);
  indexCount = static_cast<unsigned int>(chunk.triangles.size() * 3);
  vao.release();
  gl.glBindBuffer(GL_ARRAY_BUFFER, 0);
  gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

void SubMapObj::update(const pv::PointCloudChunk& chunk) {
  const size_t n = chunk.vertices.size();
  if (n == 0) return;
  createBuffers();
  indices.resize(n);
  std::iota(indices.begin(), indices.end(), 0u);

  vao.bind();
  gl.glBindBuffer(GL_ARRAY_BUFFER, vboId[0]);
  gl.glBufferData(GL_ARRAY_BUFFER, n * sizeof(pv::float4), chunk.vertices.data(), GL_DYNAMIC_DRAW);
  gl.glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, nullptr);
  gl.glEnableVertexAttribArray(0);
  // A mesh chunk may have used this slot before: its normals are not part of a point cloud.
  gl.glDisableVertexAttribArray(2);
  gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, vboId[2]);
  gl.glBufferData(GL_ELEMENT_ARRAY_BUFFER, n * sizeof(unsigned int), indices.data(), GL_DYNAMIC_DRAW);
  indexCount = static_cast<unsigned int>(n);
  vao.release();
  gl.glBindBuffer(GL_ARRAY_BUFFER, 0);
  gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

void SubMapObj::draw(int mode) {
  if (indexCount == 0 || !vao.isCreated()) return;
  GLenum primitive = GL_POINTS;
  if (mode == 2) {
    glLineWidth(1.0f);
    glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
    primitive = GL_TRIANGLES;
  } else if (mode == 3) {
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    primitive = GL_TRIANGLES;
  }
  vao.bind();
  glDrawElements(primitive, static_cast<GLsizei>(indexCount), GL_UNSIGNED_INT, nullptr);
  vao.release();
}

// ---- MeshTextureObject ----

MeshTextureObject::~MeshTextureObject() { destroyGL(); }

void MeshTextureObject::initGL() {
  gl.initializeGLFunctions(QGLContext::currentContext());
  glReady = true;
}

void MeshTextureObject::destroyGL() {
  if (!vao.isCreated()) return;
  gl.glDeleteBuffers(3, vboId);
  vao.destroy();
  indexCount = 0;
}

void MeshTextureObject::clear() {
  vertices.clear();
  uvs.clear();
  indices.clear();
  indexCount = 0;
}

void MeshTextureObject::addPoint(pv::Vector3<float> vertex, pv::Vector2<float> uv) {
  vertices.push_back(vertex);
  uvs.push_back(uv);
  indices.push_back(static_cast<unsigned int>(indices.size()));
  ++indexCount;
}

void MeshTextureObject::addDataDirect2GPU(const std::vector<pv::Vector3<float>>& vertices_,
                                          const std::vector<pv::Vector2<float>>& uvs_,
                                          const std::vector<pv::Vector3<unsigned int>>& triangles) {
  upload(vertices_.data(), vertices_.size(), uvs_.data(), uvs_.size(), triangles.data(),
         triangles.size() * sizeof(pv::Vector3<unsigned int>));
  indexCount = static_cast<unsigned int>(triangles.size() * 3);
}

void MeshTextureObject::pushToGPU() {
  upload(vertices.data(), vertices.size(), uvs.data(), uvs.size(), indices.data(),
         indices.size() * sizeof(unsigned int));
}

void MeshTextureObject::upload(const void* vertexData, size_t vertexCount, const void* uvData, size_t uvCount,
                               const void* indexData, size_t indexBytes) {
  if (!glReady) initGL();
  if (!vao.isCreated()) {
    vao.create();
    gl.glGenBuffers(3, vboId);
  }
  vao.bind();
  gl.glBindBuffer(GL_ARRAY_BUFFER, vboId[0]);
  gl.glBufferData(GL_ARRAY_BUFFER, vertexCount * sizeof(pv::Vector3<float>), vertexData, GL_DYNAMIC_DRAW);
  gl.glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
  gl.glEnableVertexAttribArray(0);
  gl.glBindBuffer(GL_ARRAY_BUFFER, vboId[1]);
  gl.glBufferData(GL_ARRAY_BUFFER, uvCount * sizeof(pv::Vector2<float>), uvData, GL_DYNAMIC_DRAW);
  gl.glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
  // Without one UV per vertex the sampler reads the constant coordinate instead of past the buffer.
  if (uvCount == vertexCount)
    gl.glEnableVertexAttribArray(1);
  else
    gl.glDisableVertexAttribArray(1);
  gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, vboId[2]);
  gl.glBufferData(GL_ELEMENT_ARRAY_BUFFER, indexBytes, indexData, GL_DYNAMIC_DRAW);
  vao.release();
  gl.glBindBuffer(GL_ARRAY_BUFFER, 0);
  gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

void MeshTextureObject::draw() {
  if (indexCount == 0 || !vao.isCreated()) return;
  vao.bind();
  glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(indexCount), GL_UNSIGNED_INT, nullptr);
  vao.release();
}
