// GPU drawables of the 3D map view and the sources of its shader programs.
//
// Simple3DObject: coloured points or lines built point by point (camera path, frustum marker).
// SubMapObj: one chunk of the live spatial map (mesh chunk or fused point cloud chunk).
// MeshTextureObject: a whole textured mesh.
//
// Every method that touches GL runs on the GUI thread with the widget's context current.
// Simple3DObject locks its own mutex, so points may be appended from any thread while the GUI
// thread draws; SubMapObj and MeshTextureObject have no lock (their callers hold the map mutex).
#pragma once

#include <QGLFunctions>
#include <QOpenGLVertexArrayObject>
#include <mutex>
#include <vector>

#include "pv/math.h"
#include "pv/mesh.h"

/// Coloured points and lines: vertex (x, y, z, packed colour), red in bits 16-23.
extern const char* VERTEX_SHADER;
extern const char* FRAGMENT_SHADER;
/// Mesh chunks: Phong shading with three fixed directional lights and a fixed material.
extern const char* VERTEX_SHADER_PHONG;
extern const char* FRAGMENT_SHADER_PHONG;
/// Textured mesh: texel with red and blue swapped.
extern const char* VERTEX_SHADER_TEXTURE;
extern const char* FRAGMENT_SHADER_TEXTURE;
/// Wireframe over the textured mesh in one constant colour.
extern const char* VERTEX_SHADER_UNI;
extern const char* FRAGMENT_SHADER_UNI;

/// Packs three colour bytes into the fourth float of a vertex: byte 0 = c0, byte 1 = c1,
/// byte 2 = c2, byte 3 = 0. The shaders read red from byte 2, so (c0, c1, c2) is (blue, green, red).
float packColor(const pv::Vector3<unsigned char>& clr);

class Simple3DObject {
 public:
  Simple3DObject(pv::Translation position, bool isStatic);
  ~Simple3DObject();
  Simple3DObject(const Simple3DObject&) = delete;
  Simple3DObject& operator=(const Simple3DObject&) = delete;

  /// Appends a vertex and the next sequential index. Thread safe.
  void addPoint(float x, float y, float z, pv::Vector3<unsigned char> clr);
  /// Uploads the arrays when their sizes changed since the last upload (once only when static).
  void pushToGPU();
  /// Empties the CPU arrays (the GPU copy stays until the next upload). Thread safe.
  void clear();
  /// GL primitive used by draw() (GL_POINTS, GL_LINES, ...).
  void setDrawingType(unsigned int type);
  /// Draws the current number of CPU indices from the uploaded buffers; nothing when empty.
  void draw();

  /// Number of vertices held on the CPU. Thread safe.
  size_t getNumberOfPoints();

  void translate(const pv::Translation& t);
  void setPosition(const pv::Translation& p);
  /// Position and rotation from a rigid transform.
  void setRT(const pv::Transform& rt);
  void rotate(const pv::Orientation& q);
  void rotate(const pv::Rotation& r);
  void setRotation(const pv::Orientation& q);
  void setRotation(const pv::Rotation& r);
  pv::Translation getPosition() const { return position; }
  /// Rigid transform from the rotation and the position.
  pv::Transform getModelMatrix() const;

 private:
  QGLFunctions gl;
  std::mutex mutex;
  std::vector<pv::Vector4<float>> vertices;
  std::vector<unsigned int> indices;
  int uploadedVertices = 0;
  int uploadedIndices = 0;
  bool isStatic;
  unsigned int drawingType;
  QOpenGLVertexArrayObject vao;
  GLuint vboId[2] = {0, 0};
  pv::Translation position;
  pv::Orientation rotation;
};

class SubMapObj {
 public:
  SubMapObj();
  ~SubMapObj();
  SubMapObj(const SubMapObj&) = delete;
  SubMapObj& operator=(const SubMapObj&) = delete;

  /// Uploads a mesh chunk: vertices (attribute 0), normals (attribute 2), triangles.
  void update(const pv::Chunk& chunk);
  /// Uploads a point cloud chunk (x, y, z, packed colour as attribute 0); an empty chunk keeps
  /// the previous contents.
  void update(const pv::PointCloudChunk& chunk);
  /// 2: wireframe triangles, 3: filled triangles, anything else: points.
  void draw(int mode);

  unsigned int getIndexCount() const { return indexCount; }
  /// Makes the object draw nothing (its GPU buffers stay allocated).
  void setIndexCount(unsigned int count) { indexCount = count; }

 private:
  void createBuffers();

  QGLFunctions gl;
  std::vector<unsigned int> indices;
  GLuint vboId[3] = {0, 0, 0};
  QOpenGLVertexArrayObject vao;
  unsigned int indexCount = 0;
};

class MeshTextureObject {
 public:
  MeshTextureObject() = default;
  ~MeshTextureObject();
  MeshTextureObject(const MeshTextureObject&) = delete;
  MeshTextureObject& operator=(const MeshTextureObject&) = delete;

  /// Resolves the GL functions on the current context.
  void initGL();
  /// Empties the CPU arrays and the index count; GPU buffers are kept.
  void clear();
  /// Appends a vertex with its texture coordinate and the next sequential index.
  void addPoint(pv::Vector3<float> vertex, pv::Vector2<float> uv);
  /// Uploads vertices (attribute 0), UVs (attribute 1) and triangles given by the caller.
  void addDataDirect2GPU(const std::vector<pv::Vector3<float>>& vertices, const std::vector<pv::Vector2<float>>& uvs,
                         const std::vector<pv::Vector3<unsigned int>>& triangles);
  /// Uploads the object's own arrays built with addPoint.
  void pushToGPU();
  /// Draws the triangles; the caller binds the program and the texture.
  void draw();

  unsigned int getIndexCount() const { return indexCount; }
  /// Frees the GPU objects; the context must be current.
  void destroyGL();

 private:
  void upload(const void* vertexData, size_t vertexCount, const void* uvData, size_t uvCount, const void* indexData,
              size_t indexBytes);

  QGLFunctions gl;
  bool glReady = false;
  unsigned int indexCount = 0;
  std::vector<pv::Vector3<float>> vertices;
  std::vector<pv::Vector2<float>> uvs;
  std::vector<unsigned int> indices;
  QOpenGLVertexArrayObject vao;
  GLuint vboId[3] = {0, 0, 0};
};
