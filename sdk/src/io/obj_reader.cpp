// OBJ reader: vertices, texture coordinates, normals, polygon faces, material libraries.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <unordered_map>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "io/internal/obj.h"
#include "mesh/internal/file_util.h"
#include "mesh/internal/polygon.h"

namespace pv::internal {
namespace {

namespace fs = std::filesystem;

struct Corner {
  int64_t v = -1, vt = -1, vn = -1;  // zero-based, -1 when absent
  bool operator==(const Corner& o) const { return v == o.v && vt == o.vt && vn == o.vn; }
};

struct CornerHash {
  size_t operator()(const Corner& c) const {
    uint64_t h = uint64_t(c.v) * 0x9E3779B97F4A7C15ULL;
    h ^= uint64_t(c.vt + 1) * 0xC2B2AE3D27D4EB4FULL + (h << 6) + (h >> 2);
    h ^= uint64_t(c.vn + 1) * 0x165667B19E3779F9ULL + (h << 6) + (h >> 2);
    return size_t(h);
  }
};

std::string_view trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

// Splits `s` at blanks into at most `max` words; returns the count.
size_t words(std::string_view s, std::string_view* out, size_t max) {
  size_t n = 0, i = 0;
  while (i < s.size() && n < max) {
    while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
    size_t j = i;
    while (j < s.size() && !std::isspace(static_cast<unsigned char>(s[j]))) ++j;
    if (j > i) out[n++] = s.substr(i, j - i);
    i = j;
  }
  return n;
}

bool toFloat(std::string_view w, float& value) {
  const char* b = w.data();
  const char* e = b + w.size();
  if (b != e && *b == '+') ++b;
  // A numeric prefix is taken, as common readers do ("3.1+e2" reads as 3.1).
  const auto r = std::from_chars(b, e, value);
  if (r.ec == std::errc::result_out_of_range) value = HUGE_VALF;
  return r.ec != std::errc::invalid_argument;
}

// One index of a face corner: 1-based, or negative relative to the current count.
bool toIndex(std::string_view w, int64_t count, int64_t& index) {
  int64_t raw = 0;
  const auto r = std::from_chars(w.data(), w.data() + w.size(), raw);
  if (r.ec != std::errc() || r.ptr != w.data() + w.size() || raw == 0) return false;
  index = raw > 0 ? raw - 1 : count + raw;
  return index >= 0 && index < count;
}

bool parseCorner(std::string_view w, int64_t nv, int64_t nvt, int64_t nvn, Corner& c) {
  std::string_view parts[3];
  size_t n = 0, start = 0;
  for (size_t i = 0; i <= w.size() && n < 3; ++i) {
    if (i == w.size() || w[i] == '/') {
      parts[n++] = w.substr(start, i - start);
      start = i + 1;
    }
  }
  if (n == 0 || !toIndex(parts[0], nv, c.v)) return false;
  c.vt = c.vn = -1;
  // A texture or normal index that points nowhere drops that attribute; the position stays.
  if (n > 1 && !parts[1].empty() && !toIndex(parts[1], nvt, c.vt)) c.vt = -1;
  if (n > 2 && !parts[2].empty() && !toIndex(parts[2], nvn, c.vn)) c.vn = -1;
  return true;
}

unsigned char colorByte(float v) {
  if (!std::isfinite(v)) return 0;
  return static_cast<unsigned char>(std::lround(std::clamp(v * 255.f, 0.f, 255.f)));
}

// `name` (with backslashes taken as separators) relative to `directory`; no disk access.
std::string joinPath(const std::string& directory, std::string name) {
  std::replace(name.begin(), name.end(), '\\', '/');
  const fs::path p(name);
  return (p.is_absolute() || directory.empty() ? p : fs::path(directory) / p).lexically_normal().string();
}

}  // namespace

void parseMtl(const std::string& text, std::vector<std::pair<std::string, std::string>>& diffuse_maps) {
  std::string current;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t nl = text.find('\n', pos);
    if (nl == std::string::npos) nl = text.size();
    std::string_view line = trim(std::string_view(text).substr(pos, nl - pos));
    pos = nl + 1;
    if (line.rfind("newmtl", 0) == 0 && line.size() > 6 && std::isspace(static_cast<unsigned char>(line[6]))) {
      current = std::string(trim(line.substr(6)));
    } else if (line.rfind("map_Kd", 0) == 0 && line.size() > 6 && std::isspace(static_cast<unsigned char>(line[6]))) {
      std::string_view rest = trim(line.substr(6));
      // Options ("-s 1 1 1", "-bm 0.5", "-clamp on") come before the file name.
      while (!rest.empty() && rest.front() == '-') {
        std::string_view w[1];
        words(rest, w, 1);
        rest = trim(rest.substr(w[0].size()));
        while (!rest.empty()) {
          std::string_view arg[1];
          words(rest, arg, 1);
          float f;
          if (!toFloat(arg[0], f) && arg[0] != "on" && arg[0] != "off") break;
          rest = trim(rest.substr(arg[0].size()));
        }
      }
      if (!rest.empty()) diffuse_maps.emplace_back(current, std::string(rest));
    }
  }
}

FileResult parseObj(const char* data, size_t size, const std::string& directory, const SideFileLoader& load_side_file,
                    MeshData& out, bool vertices_only) {
  out.clear();
  if (size >= 2 && ((uint8_t(data[0]) == 0xFE && uint8_t(data[1]) == 0xFF) ||
                    (uint8_t(data[0]) == 0xFF && uint8_t(data[1]) == 0xFE)))
    return FileResult::failure("UTF-16 text is not read as OBJ");

  std::vector<float3> positions;
  std::vector<uchar3> vertex_colors;
  std::vector<float2> texcoords;
  std::vector<float3> normals;
  std::vector<Corner> corners;  // three per triangle
  std::vector<int> triangle_material;
  std::map<std::string, int> material_ids;
  std::vector<std::pair<std::string, std::string>> diffuse_maps;  // material, resolved texture
  int current_material = -1;
  bool any_color = false;
  std::vector<Corner> polygon;
  std::vector<float3> polygon_positions;
  std::vector<uint3> polygon_triangles;
  std::string_view w[16];

  size_t pos = 0;
  std::string pending, logical;  // continuation lines are joined into `logical`
  while (pos < size) {
    const char* nl = static_cast<const char*>(std::memchr(data + pos, '\n', size - pos));
    const size_t end = nl ? size_t(nl - data) : size;
    std::string_view line(data + pos, end - pos);
    pos = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!line.empty() && line.back() == '\\') {  // continuation line
      pending.append(line.data(), line.size() - 1);
      pending.push_back(' ');
      continue;
    }
    if (!pending.empty()) {
      pending.append(line.data(), line.size());
      logical.swap(pending);
      pending.clear();
      line = logical;
    }
    const size_t hash = line.find('#');
    if (hash != std::string_view::npos) line = line.substr(0, hash);
    line = trim(line);
    if (line.empty()) continue;
    size_t key_end = 0;
    while (key_end < line.size() && !std::isspace(static_cast<unsigned char>(line[key_end]))) ++key_end;
    const std::string_view key = line.substr(0, key_end);
    const std::string_view rest = trim(line.substr(key_end));

    if (key == "v") {
      const size_t n = words(rest, w, 8);
      float c[7] = {0, 0, 0, 0, 0, 0, 0};
      if (n < 3) return FileResult::failure("OBJ vertex with fewer than three coordinates");
      for (size_t k = 0; k < n && k < 7; ++k)
        if (!toFloat(w[k], c[k])) return FileResult::failure("OBJ vertex with a non-numeric coordinate");
      for (int k = 0; k < 3; ++k)
        if (!std::isfinite(c[k])) return FileResult::failure("OBJ vertex with a non-finite coordinate");
      positions.push_back({c[0], c[1], c[2]});
      if (n >= 6) {
        if (!any_color) vertex_colors.assign(positions.size() - 1, uchar3(255, 255, 255));
        any_color = true;
        vertex_colors.push_back({colorByte(c[3]), colorByte(c[4]), colorByte(c[5])});
      } else if (any_color) {
        vertex_colors.push_back(uchar3(255, 255, 255));
      }
    } else if (vertices_only) {
      continue;
    } else if (key == "vt") {
      const size_t n = words(rest, w, 3);
      float c[2] = {0, 0};
      if (n < 1) return FileResult::failure("OBJ texture coordinate without values");
      for (size_t k = 0; k < n && k < 2; ++k)
        if (!toFloat(w[k], c[k])) return FileResult::failure("OBJ texture coordinate that is not a number");
      texcoords.push_back({std::isfinite(c[0]) ? c[0] : 0.f, std::isfinite(c[1]) ? 1.f - c[1] : 0.f});
    } else if (key == "vn") {
      const size_t n = words(rest, w, 3);
      float c[3] = {0, 0, 0};
      if (n < 3) return FileResult::failure("OBJ normal with fewer than three values");
      for (size_t k = 0; k < 3; ++k)
        if (!toFloat(w[k], c[k])) return FileResult::failure("OBJ normal that is not a number");
      normals.push_back(std::isfinite(c[0] + c[1] + c[2]) ? float3(c[0], c[1], c[2]) : float3());
    } else if (key == "f") {
      polygon.clear();
      size_t i = 0;
      while (i < rest.size()) {
        while (i < rest.size() && std::isspace(static_cast<unsigned char>(rest[i]))) ++i;
        size_t j = i;
        while (j < rest.size() && !std::isspace(static_cast<unsigned char>(rest[j]))) ++j;
        if (j == i) break;
        Corner c;
        if (!parseCorner(rest.substr(i, j - i), int64_t(positions.size()), int64_t(texcoords.size()),
                         int64_t(normals.size()), c))
          return FileResult::failure("OBJ face index out of range or malformed");
        polygon.push_back(c);
        i = j;
      }
      if (polygon.size() < 3) return FileResult::failure("OBJ face with fewer than three vertices");
      polygon_positions.resize(polygon.size());
      for (size_t k = 0; k < polygon.size(); ++k) polygon_positions[k] = positions[size_t(polygon[k].v)];
      polygon_triangles.clear();
      triangulatePolygon(polygon_positions, polygon_triangles);
      for (const uint3& t : polygon_triangles) {
        for (size_t k = 0; k < 3; ++k) corners.push_back(polygon[t[k]]);
        triangle_material.push_back(current_material);
      }
    } else if (key == "usemtl") {
      const auto it = material_ids.emplace(std::string(rest), int(material_ids.size())).first;
      current_material = it->second;
    } else if (key == "mtllib" && load_side_file) {
      std::string text;
      std::string library = joinPath(directory, std::string(rest));
      bool found = load_side_file(library, text);
      if (!found) {  // several libraries separated by blanks
        for (size_t k = 0, n = words(rest, w, 16); k < n && !found; ++k) {
          library = joinPath(directory, std::string(w[k]));
          found = load_side_file(library, text);
        }
      }
      if (found) {
        std::vector<std::pair<std::string, std::string>> maps;
        parseMtl(text, maps);
        for (auto& m : maps)
          diffuse_maps.emplace_back(m.first, joinPath(fs::path(library).parent_path().string(), m.second));
      }
    }
    // o, g, s, l, p and unknown statements carry nothing a mesh holds.
  }

  if (vertices_only || corners.empty()) {
    out.positions = std::move(positions);
    if (any_color) out.colors = std::move(vertex_colors);
    return FileResult::success();
  }

  // Vertices are split where a position is used with different texture coordinates or normals.
  bool any_vt = false, any_vn = false;
  for (const Corner& c : corners) {
    any_vt |= c.vt >= 0;
    any_vn |= c.vn >= 0;
  }
  out.triangles.resize(corners.size() / 3);
  unsigned* indices = &out.triangles[0].x;
  if (!any_vt && !any_vn) {
    out.positions = std::move(positions);
    if (any_color) out.colors = std::move(vertex_colors);
    for (size_t i = 0; i < corners.size(); ++i) indices[i] = unsigned(corners[i].v);
  } else {
    std::unordered_map<Corner, unsigned, CornerHash> ids;
    ids.reserve(corners.size());
    for (size_t i = 0; i < corners.size(); ++i) {
      const Corner& c = corners[i];
      const auto [it, inserted] = ids.emplace(c, unsigned(out.positions.size()));
      if (inserted) {
        out.positions.push_back(positions[size_t(c.v)]);
        if (any_color) out.colors.push_back(vertex_colors[size_t(c.v)]);
        if (any_vt) out.uv.push_back(c.vt >= 0 ? texcoords[size_t(c.vt)] : float2());
        if (any_vn) out.normals.push_back(c.vn >= 0 ? normals[size_t(c.vn)] : float3());
      }
      indices[i] = it->second;
    }
  }

  // The texture is the diffuse map of the material that covers most faces.
  std::vector<size_t> faces_per_material(material_ids.size(), 0);
  for (int m : triangle_material)
    if (m >= 0) ++faces_per_material[size_t(m)];
  size_t best_faces = 0;
  for (const auto& [name, id] : material_ids) {
    for (const auto& [material, texture] : diffuse_maps) {
      if (material == name && faces_per_material[size_t(id)] > best_faces) {
        best_faces = faces_per_material[size_t(id)];
        out.texture_file = texture;
      }
    }
  }
  return FileResult::success();
}

}  // namespace pv::internal

namespace pv::internal {

std::string findFileIgnoringCase(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (fs::exists(path, ec)) return path;
  const fs::path p(path);
  const auto lower = [](std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char ch) { return char(std::tolower(ch)); });
    return s;
  };
  const std::string wanted = lower(p.filename().string());
  const fs::path parent = p.parent_path().empty() ? fs::path(".") : p.parent_path();
  for (fs::directory_iterator it(parent, ec), end; !ec && it != end; it.increment(ec))
    if (lower(it->path().filename().string()) == wanted) return it->path().string();
  return path;
}

FileResult readObj(const std::string& path, MeshData& out, bool vertices_only) {
  std::string bytes;
  if (!readWholeFile(path, bytes)) return FileResult::failure("cannot read " + path);
  const std::string directory = std::filesystem::path(path).parent_path().string();
  const SideFileLoader loader = [](const std::string& library, std::string& text) {
    return readWholeFile(findFileIgnoringCase(library), text);
  };
  FileResult r = parseObj(bytes.data(), bytes.size(), directory, loader, out, vertices_only);
  if (!r.ok || out.texture_file.empty() || out.uv.empty()) return r;
  cv::Mat image = cv::imread(findFileIgnoringCase(out.texture_file), cv::IMREAD_UNCHANGED);
  if (image.empty()) return r;  // a missing texture leaves the mesh untextured
  if (image.depth() == CV_16U) image.convertTo(image, CV_8U, 1.0 / 257.0);
  if (image.depth() != CV_8U) return r;
  if (image.channels() == 1)
    cv::cvtColor(image, out.texture, cv::COLOR_GRAY2BGR);
  else if (image.channels() == 3 || image.channels() == 4)
    out.texture = image;
  return r;
}

}  // namespace pv::internal
