// PLY writer: ASCII or binary little endian; positions, normals, colours, texture coordinates, faces.
#include <cstdint>
#include <cstring>

#include "io/internal/ply.h"
#include "mesh/internal/file_util.h"

namespace pv::internal {
namespace {

static_assert(sizeof(float) == 4, "PLY float is 32 bits");

bool hostIsLittleEndian() {
  const uint16_t one = 1;
  unsigned char b;
  std::memcpy(&b, &one, 1);
  return b == 1;
}

void writeHeader(OutputFile& f, const MeshData& m, bool binary) {
  f.text("ply\nformat ");
  f.text(binary ? "binary_little_endian" : "ascii");
  f.text(" 1.0\ncomment written by the PAVO SDK\nelement vertex ");
  f.number(static_cast<long long>(m.positions.size()));
  f.text("\nproperty float x\nproperty float y\nproperty float z\n");
  if (!m.normals.empty()) f.text("property float nx\nproperty float ny\nproperty float nz\n");
  if (!m.colors.empty()) f.text("property uchar red\nproperty uchar green\nproperty uchar blue\n");
  if (!m.uv.empty()) f.text("property float s\nproperty float t\n");
  if (!m.triangles.empty()) {  // a point cloud has no face element
    f.text("element face ");
    f.number(static_cast<long long>(m.triangles.size()));
    f.text("\nproperty list uchar int vertex_indices\n");
  }
  f.text("end_header\n");
}

template <typename T>
void append(std::string& record, const T& value) {
  record.append(reinterpret_cast<const char*>(&value), sizeof(T));
}

void writeBinaryBody(OutputFile& f, const MeshData& m) {
  std::string block;
  block.reserve(1 << 20);
  for (size_t i = 0; i < m.positions.size(); ++i) {
    append(block, m.positions[i]);
    if (!m.normals.empty()) append(block, m.normals[i]);
    if (!m.colors.empty()) append(block, m.colors[i]);
    if (!m.uv.empty()) {
      append(block, m.uv[i].x);
      append(block, 1.f - m.uv[i].y);
    }
    if (block.size() > (1 << 20) - 64) {
      f.write(block.data(), block.size());
      block.clear();
    }
  }
  for (const uint3& t : m.triangles) {
    block.push_back(3);
    const int32_t idx[3] = {int32_t(t.x), int32_t(t.y), int32_t(t.z)};
    block.append(reinterpret_cast<const char*>(idx), sizeof(idx));
    if (block.size() > (1 << 20) - 64) {
      f.write(block.data(), block.size());
      block.clear();
    }
  }
  f.write(block.data(), block.size());
}

void writeFloats(OutputFile& f, const float* v, int n) {
  for (int k = 0; k < n; ++k) {
    f.put(' ');
    f.number(v[k]);
  }
}

void writeAsciiBody(OutputFile& f, const MeshData& m) {
  for (size_t i = 0; i < m.positions.size(); ++i) {
    f.number(m.positions[i].x);
    writeFloats(f, &m.positions[i].y, 2);
    if (!m.normals.empty()) writeFloats(f, m.normals[i].ptr(), 3);
    if (!m.colors.empty())
      for (int k = 0; k < 3; ++k) {
        f.put(' ');
        f.number(static_cast<long long>(m.colors[i][size_t(k)]));
      }
    if (!m.uv.empty()) {
      const float st[2] = {m.uv[i].x, 1.f - m.uv[i].y};
      writeFloats(f, st, 2);
    }
    f.put('\n');
  }
  for (const uint3& t : m.triangles) {
    f.text("3");
    for (int k = 0; k < 3; ++k) {
      f.put(' ');
      f.number(static_cast<long long>(t[size_t(k)]));
    }
    f.put('\n');
  }
}

}  // namespace

FileResult writePly(const std::string& path, const MeshData& mesh, bool binary) {
  if (!mesh.consistent()) return FileResult::failure("inconsistent mesh arrays");
  if (binary && !hostIsLittleEndian()) return FileResult::failure("binary PLY writing needs a little-endian host");
  OutputFile f(path);
  writeHeader(f, mesh, binary);
  if (binary)
    writeBinaryBody(f, mesh);
  else
    writeAsciiBody(f, mesh);
  return f.close();
}

}  // namespace pv::internal
