// PLY reader: header parsing, then ASCII or binary element data into MeshData.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "io/internal/ply.h"
#include "mesh/internal/file_util.h"
#include "mesh/internal/polygon.h"

namespace pv::internal {
namespace {

enum class Format { ASCII, BINARY_LE, BINARY_BE };
enum class Type { NONE, I8, U8, I16, U16, I32, U32, F32, F64 };

// What a vertex property feeds.
enum class Role { SKIP, X, Y, Z, NX, NY, NZ, RED, GREEN, BLUE, U, V, FACE_INDICES };

struct Property {
  std::string name;
  Type type = Type::NONE;
  Type count_type = Type::NONE;  // NONE for a scalar property
  Role role = Role::SKIP;
};

struct Element {
  std::string name;
  uint64_t count = 0;
  std::vector<Property> properties;
};

size_t typeSize(Type t) {
  switch (t) {
    case Type::I8:
    case Type::U8: return 1;
    case Type::I16:
    case Type::U16: return 2;
    case Type::I32:
    case Type::U32:
    case Type::F32: return 4;
    case Type::F64: return 8;
    case Type::NONE: break;
  }
  return 0;
}

Type parseType(const std::string& s) {
  if (s == "char" || s == "int8") return Type::I8;
  if (s == "uchar" || s == "uint8") return Type::U8;
  if (s == "short" || s == "int16") return Type::I16;
  if (s == "ushort" || s == "uint16") return Type::U16;
  if (s == "int" || s == "int32") return Type::I32;
  if (s == "uint" || s == "uint32") return Type::U32;
  if (s == "float" || s == "float32") return Type::F32;
  if (s == "double" || s == "float64") return Type::F64;
  return Type::NONE;
}

Role vertexRole(const std::string& n) {
  if (n == "x") return Role::X;
  if (n == "y") return Role::Y;
  if (n == "z") return Role::Z;
  if (n == "nx") return Role::NX;
  if (n == "ny") return Role::NY;
  if (n == "nz") return Role::NZ;
  if (n == "red" || n == "r" || n == "diffuse_red") return Role::RED;
  if (n == "green" || n == "g" || n == "diffuse_green") return Role::GREEN;
  if (n == "blue" || n == "b" || n == "diffuse_blue") return Role::BLUE;
  if (n == "u" || n == "s" || n == "texture_u" || n == "texture_s") return Role::U;
  if (n == "v" || n == "t" || n == "texture_v" || n == "texture_t") return Role::V;
  return Role::SKIP;
}

std::vector<std::string> splitWords(const std::string& line) {
  std::vector<std::string> words;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    size_t j = i;
    while (j < line.size() && line[j] != ' ' && line[j] != '\t') ++j;
    if (j > i) words.emplace_back(line.substr(i, j - i));
    i = j;
  }
  return words;
}

// Sequential access to the element data, ASCII or binary.
class DataCursor {
 public:
  DataCursor(const char* p, const char* end, Format f) : p_(p), end_(end), format_(f) {}

  // Reads one value of type `t`; false at the end of the data or on a malformed number.
  bool read(Type t, double& value) {
    if (format_ == Format::ASCII) return readText(value);
    const size_t n = typeSize(t);
    if (size_t(end_ - p_) < n) return false;
    unsigned char b[8];
    if (format_ == Format::BINARY_BE)
      for (size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(p_[n - 1 - i]);
    else
      std::memcpy(b, p_, n);
    p_ += n;
    switch (t) {
      case Type::I8: value = double(int8_t(b[0])); break;
      case Type::U8: value = double(b[0]); break;
      case Type::I16: value = double(load<int16_t>(b)); break;
      case Type::U16: value = double(load<uint16_t>(b)); break;
      case Type::I32: value = double(load<int32_t>(b)); break;
      case Type::U32: value = double(load<uint32_t>(b)); break;
      case Type::F32: value = double(load<float>(b)); break;
      case Type::F64: value = load<double>(b); break;
      case Type::NONE: return false;
    }
    return true;
  }
  size_t remaining() const { return size_t(end_ - p_); }
  const char* position() const { return p_; }
  void skip(size_t n) { p_ += std::min(n, remaining()); }

  // ASCII data holds one element entry per line; values a line carries beyond the header's
  // properties are ignored, as writers exist that add some.
  bool startRecord() {
    if (format_ != Format::ASCII) return true;
    while (p_ < end_ && std::isspace(static_cast<unsigned char>(*p_))) ++p_;
    if (p_ == end_) return false;
    const char* nl = static_cast<const char*>(std::memchr(p_, '\n', size_t(end_ - p_)));
    line_end_ = nl ? nl : end_;
    return true;
  }
  void endRecord() {
    if (format_ == Format::ASCII) p_ = line_end_ == end_ ? end_ : line_end_ + 1;
  }

 private:
  template <typename T>
  static T load(const unsigned char* b) {
    T v;
    std::memcpy(&v, b, sizeof(T));
    return v;
  }
  bool readText(double& value) {
    while (p_ < line_end_ && std::isspace(static_cast<unsigned char>(*p_))) ++p_;
    if (p_ == line_end_) return false;
    const char* start = *p_ == '+' ? p_ + 1 : p_;  // from_chars takes no leading plus
    const auto r = std::from_chars(start, line_end_, value);
    if (r.ec == std::errc::invalid_argument) return false;
    if (r.ec == std::errc::result_out_of_range) value = HUGE_VAL;
    p_ = r.ptr;
    return p_ == line_end_ || std::isspace(static_cast<unsigned char>(*p_));
  }

  const char* p_;
  const char* end_;
  const char* line_end_ = nullptr;
  Format format_;
};

unsigned char colorByte(double v, Type t) {
  if (!std::isfinite(v)) return 0;
  if (t == Type::F32 || t == Type::F64) v *= 255.0;
  if (t == Type::U16) v /= 257.0;
  return static_cast<unsigned char>(std::lround(std::clamp(v, 0.0, 255.0)));
}

// Narrowing that saturates to infinity instead of leaving the float range (undefined behaviour).
float toFloat(double v) {
  if (v > double(std::numeric_limits<float>::max())) return std::numeric_limits<float>::infinity();
  if (v < -double(std::numeric_limits<float>::max())) return -std::numeric_limits<float>::infinity();
  return float(v);
}

struct Header {
  Format format = Format::ASCII;
  std::vector<Element> elements;
  size_t data_offset = 0;
};

FileResult parseHeader(const char* data, size_t size, Header& h) {
  size_t pos = 0;
  bool have_format = false;
  bool first = true;
  while (true) {
    if (pos >= size) return FileResult::failure("PLY header has no end_header line");
    const char* nl = static_cast<const char*>(std::memchr(data + pos, '\n', size - pos));
    const size_t end = nl ? size_t(nl - data) : size;
    std::string line(data + pos, end - pos);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    pos = nl ? end + 1 : size;
    if (first) {
      if (line != "ply") return FileResult::failure("not a PLY file (no \"ply\" magic line)");
      first = false;
      continue;
    }
    const std::vector<std::string> w = splitWords(line);
    if (w.empty() || w[0] == "comment" || w[0] == "obj_info") continue;
    if (w[0] == "end_header") break;
    if (w[0] == "format") {
      if (w.size() < 2) return FileResult::failure("PLY format line without a format");
      if (w[1] == "ascii")
        h.format = Format::ASCII;
      else if (w[1] == "binary_little_endian")
        h.format = Format::BINARY_LE;
      else if (w[1] == "binary_big_endian")
        h.format = Format::BINARY_BE;
      else
        return FileResult::failure("unknown PLY format " + w[1]);
      have_format = true;
    } else if (w[0] == "element") {
      if (w.size() != 3) return FileResult::failure("malformed PLY element line: " + line);
      Element e;
      e.name = w[1];
      const auto r = std::from_chars(w[2].data(), w[2].data() + w[2].size(), e.count);
      if (r.ec != std::errc() || r.ptr != w[2].data() + w[2].size())
        return FileResult::failure("bad PLY element count: " + line);
      h.elements.push_back(std::move(e));
    } else if (w[0] == "property") {
      if (h.elements.empty()) return FileResult::failure("PLY property before any element");
      Property p;
      if (w.size() == 5 && w[1] == "list") {
        p.count_type = parseType(w[2]);
        p.type = parseType(w[3]);
        p.name = w[4];
        if (p.count_type == Type::NONE || p.type == Type::NONE || p.count_type == Type::F32 ||
            p.count_type == Type::F64)
          return FileResult::failure("bad PLY list property: " + line);
      } else if (w.size() == 3) {
        p.type = parseType(w[1]);
        p.name = w[2];
        if (p.type == Type::NONE) return FileResult::failure("unknown PLY property type: " + line);
      } else {
        return FileResult::failure("malformed PLY property line: " + line);
      }
      h.elements.back().properties.push_back(std::move(p));
    }
    // Other lines (some exporters write a bare text line) carry nothing we read.
  }
  if (!have_format) return FileResult::failure("PLY header without a format line");
  h.data_offset = pos;
  return FileResult::success();
}

// Assigns roles; at most one vertex and one face element feed the mesh.
FileResult assignRoles(Header& h) {
  bool vertex_seen = false, face_seen = false;
  for (Element& e : h.elements) {
    if (e.name == "vertex" && !vertex_seen) {
      vertex_seen = true;
      int xyz = 0;
      for (Property& p : e.properties) {
        if (p.count_type != Type::NONE) continue;
        p.role = vertexRole(p.name);
        xyz += p.role == Role::X || p.role == Role::Y || p.role == Role::Z;
      }
      if (xyz != 3 && e.count > 0) return FileResult::failure("PLY vertex element without x, y and z");
    } else if (e.name == "face" && !face_seen) {
      face_seen = true;
      Property* indices = nullptr;
      int lists = 0;
      for (Property& p : e.properties) {
        if (p.count_type == Type::NONE) continue;
        ++lists;
        if (p.name == "vertex_indices" || p.name == "vertex_index") indices = &p;
      }
      if (!indices && lists == 1)
        for (Property& p : e.properties)
          if (p.count_type != Type::NONE) indices = &p;
      if (!indices && e.count > 0) return FileResult::failure("PLY face element without vertex indices");
      if (indices) {
        if (indices->type == Type::F32 || indices->type == Type::F64)
          return FileResult::failure("PLY face indices are not integers");
        indices->role = Role::FACE_INDICES;
      }
    }
  }
  return FileResult::success();
}

bool isVertexRole(Role r) { return r != Role::SKIP && r != Role::FACE_INDICES; }

// Reads the element data into a MeshData. Binary little-endian vertex records and triangle
// lists take direct paths (the common layout of large files); everything else goes value by
// value through the cursor.
class BodyReader {
 public:
  BodyReader(const Header& h, const char* begin, const char* end, MeshData& out)
      : h_(h), cursor_(begin, end, h.format), out_(out) {}

  FileResult read() {
    for (const Element& e : h_.elements) {
      if (e.properties.empty()) continue;
      size_t min_bytes = 0;
      for (const Property& p : e.properties)
        min_bytes += p.count_type == Type::NONE ? typeSize(p.type) : typeSize(p.count_type);
      // Every entry takes at least one byte per value in binary and two in ASCII ("0 "), so a
      // count that cannot fit in the rest of the file is refused before anything is allocated.
      if (h_.format == Format::ASCII) min_bytes = e.properties.size() * 2;
      if (e.count > (cursor_.remaining() + 1) / std::max<size_t>(min_bytes, 1))
        return FileResult::failure("PLY element " + e.name + " has more entries than the file holds");
      const bool is_vertex = prepareVertexArrays(e);
      FileResult r;
      const bool direct = h_.format == Format::BINARY_LE && hostIsLittleEndian();
      if (direct && isTriangleList(e))
        r = readTriangleListLE(e);
      else if (direct && allScalar(e))
        r = readScalarRecordsLE(e);
      else
        r = readGeneric(e);
      if (!r.ok) return r;
      vertices_read_ |= is_vertex;
    }
    return FileResult::success();
  }

 private:
  static FileResult truncated(const Element& e) {
    return FileResult::failure("PLY data ends early or has too few values in " + e.name);
  }
  static bool isTriangleList(const Element& e) {
    const Property& p = e.properties[0];
    return e.properties.size() == 1 && p.role == Role::FACE_INDICES && p.count_type == Type::U8 &&
           (p.type == Type::I32 || p.type == Type::U32);
  }
  static bool hostIsLittleEndian() {
    const uint16_t one = 1;
    unsigned char b;
    std::memcpy(&b, &one, 1);
    return b == 1;
  }
  static bool allScalar(const Element& e) {
    for (const Property& p : e.properties)
      if (p.count_type != Type::NONE) return false;
    return true;
  }

  bool prepareVertexArrays(const Element& e) {
    bool is_vertex = false;
    for (const Property& p : e.properties) {
      is_vertex |= isVertexRole(p.role);
      have_normals_ |= p.role == Role::NX || p.role == Role::NY || p.role == Role::NZ;
      have_colors_ |= p.role == Role::RED || p.role == Role::GREEN || p.role == Role::BLUE;
      have_uv_ |= p.role == Role::U || p.role == Role::V;
    }
    if (is_vertex) {
      out_.positions.resize(e.count);
      if (have_normals_) out_.normals.resize(e.count);
      if (have_colors_) out_.colors.resize(e.count);
      if (have_uv_) out_.uv.resize(e.count);
    }
    return is_vertex;
  }

  void store(size_t i, const Property& p, double v) {
    switch (p.role) {
      case Role::X: out_.positions[i].x = toFloat(v); break;
      case Role::Y: out_.positions[i].y = toFloat(v); break;
      case Role::Z: out_.positions[i].z = toFloat(v); break;
      case Role::NX: out_.normals[i].x = toFloat(v); break;
      case Role::NY: out_.normals[i].y = toFloat(v); break;
      case Role::NZ: out_.normals[i].z = toFloat(v); break;
      case Role::RED: out_.colors[i].x = colorByte(v, p.type); break;
      case Role::GREEN: out_.colors[i].y = colorByte(v, p.type); break;
      case Role::BLUE: out_.colors[i].z = colorByte(v, p.type); break;
      case Role::U: out_.uv[i].x = toFloat(v); break;
      case Role::V: out_.uv[i].y = 1.f - toFloat(v); break;
      default: break;
    }
  }

  // The `count` indices in polygon_ as triangles: clipped in their plane once the vertices are
  // known, else fanned.
  FileResult addPolygon(size_t count) {
    if (count < 3) return FileResult::failure("PLY face with fewer than three vertices");
    if (count == 3) {
      out_.triangles.push_back({polygon_[0], polygon_[1], polygon_[2]});
      return FileResult::success();
    }
    corner_positions_.clear();
    for (size_t k = 0; k < count && vertices_read_; ++k)
      if (polygon_[k] < out_.positions.size()) corner_positions_.push_back(out_.positions[polygon_[k]]);
    local_.clear();
    if (corner_positions_.size() == count)
      triangulatePolygon(corner_positions_, local_);
    else
      for (unsigned k = 1; k + 1 < count; ++k) local_.push_back({0u, k, k + 1});
    for (const uint3& t : local_) out_.triangles.push_back({polygon_[t.x], polygon_[t.y], polygon_[t.z]});
    return FileResult::success();
  }

  FileResult readGeneric(const Element& e) {
    for (uint64_t i = 0; i < e.count; ++i) {
      if (!cursor_.startRecord()) return truncated(e);
      for (const Property& p : e.properties) {
        double v = 0;
        if (p.count_type == Type::NONE) {
          if (!cursor_.read(p.type, v)) return truncated(e);
          store(i, p, v);
          continue;
        }
        double count_value = 0;
        if (!cursor_.read(p.count_type, count_value)) return truncated(e);
        if (!(count_value >= 0) || count_value != std::floor(count_value) || count_value > 1e6)
          return FileResult::failure("bad PLY list length in " + e.name);
        const size_t count = size_t(count_value);
        if (p.role == Role::FACE_INDICES) polygon_.resize(count);
        for (size_t k = 0; k < count; ++k) {
          if (!cursor_.read(p.type, v)) return truncated(e);
          if (p.role != Role::FACE_INDICES) continue;
          if (!(v >= 0) || v > 4294967295.0 || v != std::floor(v))
            return FileResult::failure("PLY face index out of range");
          polygon_[k] = unsigned(v);
        }
        if (p.role == Role::FACE_INDICES) {
          const FileResult r = addPolygon(count);
          if (!r.ok) return r;
        }
      }
      cursor_.endRecord();
    }
    return FileResult::success();
  }

  FileResult readTriangleListLE(const Element& e) {
    const bool is_signed = e.properties[0].type == Type::I32;
    const char* p = cursor_.position();
    const char* end = p + cursor_.remaining();
    out_.triangles.reserve(out_.triangles.size() + e.count);
    for (uint64_t i = 0; i < e.count; ++i) {
      if (p == end) return truncated(e);
      const size_t count = static_cast<unsigned char>(*p++);
      if (count < 3) return FileResult::failure("PLY face with fewer than three vertices");
      if (size_t(end - p) < count * 4) return truncated(e);
      polygon_.resize(count);
      std::memcpy(polygon_.data(), p, count * 4);
      p += count * 4;
      if (is_signed)
        for (size_t k = 0; k < count; ++k)
          if (polygon_[k] > 0x7fffffffu) return FileResult::failure("PLY face index out of range");
      const FileResult r = addPolygon(count);
      if (!r.ok) return r;
    }
    cursor_.skip(size_t(p - cursor_.position()));
    return FileResult::success();
  }

  FileResult readScalarRecordsLE(const Element& e) {
    size_t record = 0;
    std::vector<std::pair<size_t, const Property*>> used;  // offset in the record, property
    for (const Property& p : e.properties) {
      if (p.role != Role::SKIP) used.emplace_back(record, &p);
      record += typeSize(p.type);
    }
    if (cursor_.remaining() / std::max<size_t>(record, 1) < e.count) return truncated(e);
    const char* base = cursor_.position();
    for (uint64_t i = 0; i < e.count; ++i, base += record)
      for (const auto& [offset, p] : used) store(i, *p, scalarLE(base + offset, p->type));
    cursor_.skip(record * e.count);
    return FileResult::success();
  }

  static double scalarLE(const char* b, Type t) {
    switch (t) {
      case Type::I8: return double(int8_t(*b));
      case Type::U8: return double(static_cast<unsigned char>(*b));
      case Type::I16: return double(load<int16_t>(b));
      case Type::U16: return double(load<uint16_t>(b));
      case Type::I32: return double(load<int32_t>(b));
      case Type::U32: return double(load<uint32_t>(b));
      case Type::F32: return double(load<float>(b));
      case Type::F64: return load<double>(b);
      case Type::NONE: break;
    }
    return 0;
  }
  template <typename T>
  static T load(const char* b) {
    T v;
    std::memcpy(&v, b, sizeof(T));
    return v;
  }

  const Header& h_;
  DataCursor cursor_;
  MeshData& out_;
  bool have_normals_ = false, have_colors_ = false, have_uv_ = false, vertices_read_ = false;
  std::vector<unsigned> polygon_;
  std::vector<float3> corner_positions_;
  std::vector<uint3> local_;
};

}  // namespace

FileResult parsePly(const char* data, size_t size, MeshData& out) {
  out.clear();
  Header h;
  FileResult r = parseHeader(data, size, h);
  if (r.ok) r = assignRoles(h);
  if (r.ok) r = BodyReader(h, data + h.data_offset, data + size, out).read();
  if (!r.ok) return r;
  for (const float3& p : out.positions)
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
      return FileResult::failure("PLY vertex with a non-finite coordinate");
  for (float3& n : out.normals)
    if (!std::isfinite(n.x) || !std::isfinite(n.y) || !std::isfinite(n.z)) n = float3();
  for (float2& t : out.uv)
    if (!std::isfinite(t.x) || !std::isfinite(t.y)) t = float2();
  if (!out.consistent()) return FileResult::failure("PLY face index out of range");
  return FileResult::success();
}

FileResult readPly(const std::string& path, MeshData& out) {
  std::string bytes;
  if (!readWholeFile(path, bytes)) return FileResult::failure("cannot read " + path);
  return parsePly(bytes.data(), bytes.size(), out);
}

}  // namespace pv::internal
