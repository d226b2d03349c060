// OBJ writer: the OBJ, and with a texture its material library and PNG image beside it.
#include <filesystem>
#include <opencv2/imgcodecs.hpp>

#include "io/internal/obj.h"
#include "mesh/internal/file_util.h"

namespace pv::internal {
namespace {

namespace fs = std::filesystem;

void writeVector(OutputFile& f, const char* key, const float* v, int n) {
  f.text(key);
  for (int k = 0; k < n; ++k) {
    f.put(' ');
    f.number(v[k]);
  }
  f.put('\n');
}

FileResult writeObjBody(const std::string& path, const MeshData& m, const std::string& mtl_name) {
  OutputFile f(path);
  f.text("# written by the PAVO SDK\n");
  if (!mtl_name.empty()) f.text("mtllib " + mtl_name + "\n");
  for (size_t i = 0; i < m.positions.size(); ++i) {
    if (m.colors.empty()) {
      writeVector(f, "v", m.positions[i].ptr(), 3);
    } else {
      const float v[6] = {m.positions[i].x,      m.positions[i].y,      m.positions[i].z,
                          m.colors[i].x / 255.f, m.colors[i].y / 255.f, m.colors[i].z / 255.f};
      writeVector(f, "v", v, 6);
    }
  }
  for (const float2& t : m.uv) {
    const float vt[2] = {t.x, 1.f - t.y};
    writeVector(f, "vt", vt, 2);
  }
  for (const float3& n : m.normals) writeVector(f, "vn", n.ptr(), 3);
  if (!mtl_name.empty()) f.text("usemtl material0\n");
  const bool vt = !m.uv.empty(), vn = !m.normals.empty();
  for (const uint3& t : m.triangles) {
    f.put('f');
    for (size_t k = 0; k < 3; ++k) {
      const long long i = static_cast<long long>(t[k]) + 1;
      f.put(' ');
      f.number(i);
      if (vt || vn) f.put('/');
      if (vt) f.number(i);
      if (vn) {
        f.put('/');
        f.number(i);
      }
    }
    f.put('\n');
  }
  return f.close();
}

FileResult writeBytes(const std::string& path, const std::string& bytes) {
  OutputFile f(path);
  f.text(bytes);
  return f.close();
}

}  // namespace

FileResult writeObj(const std::string& path, const MeshData& mesh) {
  if (!mesh.consistent()) return FileResult::failure("inconsistent mesh arrays");
  const fs::path obj(path);
  const bool textured = !mesh.texture.empty() && !mesh.uv.empty();
  std::vector<FileToWrite> files;
  std::string mtl_name;
  std::vector<unsigned char> encoded;
  std::string material;
  if (textured) {
    const std::string stem = obj.stem().string();
    const fs::path png = obj.parent_path() / (stem + ".png");
    const fs::path mtl = obj.parent_path() / (stem + ".mtl");
    try {
      if (!cv::imencode(".png", mesh.texture, encoded)) return FileResult::failure("cannot encode the texture as PNG");
    } catch (const cv::Exception& e) {
      return FileResult::failure(std::string("cannot encode the texture as PNG: ") + e.what());
    }
    material = "newmtl material0\nKa 1 1 1\nKd 1 1 1\nKs 0 0 0\nd 1\nillum 1\nmap_Kd " + png.filename().string() + "\n";
    mtl_name = mtl.filename().string();
    files.push_back({png.string(), [&](const std::string& tmp) {
                       return writeBytes(tmp, std::string(encoded.begin(), encoded.end()));
                     }});
    files.push_back({mtl.string(), [&](const std::string& tmp) { return writeBytes(tmp, material); }});
  }
  // The OBJ goes in place last, and the three replace an earlier set together or not at all.
  files.push_back({path, [&](const std::string& tmp) { return writeObjBody(tmp, mesh, mtl_name); }});
  return writeFilesAtomically(files);
}

}  // namespace pv::internal
