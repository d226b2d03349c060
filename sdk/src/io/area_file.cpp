#include "io/internal/area_file.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "core/internal/error.h"
#include "mesh/internal/file_util.h"

namespace pv::internal {
namespace {

constexpr char kMagic[8] = {'P', 'V', 'A', 'R', 'E', 'A', '\0', '\x1a'};
constexpr size_t kDescriptorBytes = 32;
constexpr uint64_t kMaxFileBytes = uint64_t(1) << 31;

}  // namespace

uint64_t areaFileChecksum(const uint8_t* data, size_t size) {  // 64-bit FNV-1a
  uint64_t h = 1469598103934665603ull;
  for (size_t i = 0; i < size; ++i) {
    h ^= data[i];
    h *= 1099511628211ull;
  }
  return h;
}

namespace {

class Writer {
 public:
  template <typename T>
  void put(T value) {
    uint8_t bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));  // the SDK targets little-endian machines only
    out.insert(out.end(), bytes, bytes + sizeof(T));
  }
  void putBytes(const uint8_t* data, size_t n) { out.insert(out.end(), data, data + n); }
  std::vector<uint8_t> out;
};

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
  template <typename T>
  bool get(T& value) {
    if (size_t(end_ - p_) < sizeof(T)) return false;
    std::memcpy(&value, p_, sizeof(T));
    p_ += sizeof(T);
    return true;
  }
  bool getFinite(double& value) { return get(value) && std::isfinite(value); }
  bool getFinite(float& value) { return get(value) && (std::isfinite(value) || std::isnan(value)); }
  bool getBytes(uint8_t* data, size_t n) {
    if (size_t(end_ - p_) < n) return false;
    std::memcpy(data, p_, n);
    p_ += n;
    return true;
  }
  size_t left() const { return size_t(end_ - p_); }

 private:
  const uint8_t* p_;
  const uint8_t* end_;
};

ERROR_CODE invalid(const std::string& why) { return fail(ERROR_CODE::INVALID_AREA_FILE, "area file: " + why); }

}  // namespace

std::vector<uint8_t> encodeAreaFile(const MapData& map, const RectifiedCalibration& c) {
  Writer w;
  w.putBytes(reinterpret_cast<const uint8_t*>(kMagic), sizeof kMagic);
  w.put<uint32_t>(kAreaFileVersion);
  for (double v : {c.fx, c.fy, c.cx, c.cy, c.baseline_m}) w.put<double>(v);
  w.put<int32_t>(c.size.width);
  w.put<int32_t>(c.size.height);
  w.put<int32_t>(map.next_keyframe_id);
  w.put<int32_t>(map.next_landmark_id);
  w.put<uint32_t>(uint32_t(map.landmarks.size()));
  for (const auto& [id, lm] : map.landmarks) {
    w.put<int32_t>(id);
    for (int i = 0; i < 3; ++i) w.put<double>(lm.p_world[i]);
    w.put<int32_t>(lm.observations);
  }
  w.put<uint32_t>(uint32_t(map.keyframes.size()));
  for (const auto& [id, kf] : map.keyframes) {
    w.put<int32_t>(id);
    w.put<int32_t>(kf.frame_index);
    for (int r = 0; r < 3; ++r)
      for (int col = 0; col < 4; ++col) w.put<double>(kf.T_world_camera.matrix()(r, col));
    w.put<uint32_t>(uint32_t(kf.observations.size()));
    for (const Observation& o : kf.observations) {
      w.put<int32_t>(o.landmark);
      w.put<float>(o.u);
      w.put<float>(o.v);
      w.put<float>(o.u_right);
    }
    const bool described = kf.descriptors.rows == int(kf.observations.size()) && kf.descriptors.cols == 32 &&
                           kf.descriptors.type() == CV_8U && !kf.observations.empty();
    w.put<uint8_t>(described ? 1 : 0);
    if (described)
      for (int r = 0; r < kf.descriptors.rows; ++r) w.putBytes(kf.descriptors.ptr<uint8_t>(r), kDescriptorBytes);
  }
  w.put<uint64_t>(areaFileChecksum(w.out.data(), w.out.size()));
  return w.out;
}

ERROR_CODE decodeAreaFile(const uint8_t* data, size_t size, MapData& map_out, RectifiedCalibration& calibration) {
  if (!data || size < sizeof kMagic + 4 + 8) return invalid("too short");
  if (std::memcmp(data, kMagic, sizeof kMagic) != 0) return invalid("not an area file");
  uint64_t stored_hash;
  std::memcpy(&stored_hash, data + size - 8, 8);
  Reader r(data + sizeof kMagic, size - sizeof kMagic - 8);
  uint32_t version = 0;
  r.get(version);
  if (version != kAreaFileVersion) return invalid("version " + std::to_string(version) + " is not supported");
  if (areaFileChecksum(data, size - 8) != stored_hash) return invalid("checksum mismatch (corrupt or truncated)");

  RectifiedCalibration c;
  int32_t w = 0, h = 0;
  if (!r.getFinite(c.fx) || !r.getFinite(c.fy) || !r.getFinite(c.cx) || !r.getFinite(c.cy) ||
      !r.getFinite(c.baseline_m) || !r.get(w) || !r.get(h))
    return invalid("truncated calibration");
  if (c.fx <= 0 || c.fy <= 0 || c.baseline_m <= 0 || w <= 0 || h <= 0 || w > 16384 || h > 16384)
    return invalid("bad calibration");
  c.size = cv::Size(w, h);
  MapData map;
  uint32_t count = 0;
  if (!r.get(map.next_keyframe_id) || !r.get(map.next_landmark_id) || !r.get(count)) return invalid("truncated");
  if (count > r.left() / 36) return invalid("landmark count exceeds the file");
  for (uint32_t i = 0; i < count; ++i) {
    int32_t id;
    Landmark lm;
    if (!r.get(id) || !r.getFinite(lm.p_world[0]) || !r.getFinite(lm.p_world[1]) || !r.getFinite(lm.p_world[2]) ||
        !r.get(lm.observations))
      return invalid("truncated landmark");
    if (id < 0 || id >= map.next_landmark_id) return invalid("landmark id out of range");
    map.landmarks[id] = lm;
  }
  if (!r.get(count) || count > r.left() / 109) return invalid("keyframe count exceeds the file");
  for (uint32_t i = 0; i < count; ++i) {
    Keyframe kf;
    uint32_t n = 0;
    if (!r.get(kf.id) || !r.get(kf.frame_index)) return invalid("truncated keyframe");
    if (kf.id < 0 || kf.id >= map.next_keyframe_id || map.keyframes.count(kf.id)) return invalid("bad keyframe id");
    Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
    for (int row = 0; row < 3; ++row)
      for (int col = 0; col < 4; ++col)
        if (!r.getFinite(T(row, col))) return invalid("truncated keyframe pose");
    const Eigen::Matrix3d R = T.topLeftCorner<3, 3>();
    if ((R * R.transpose() - Eigen::Matrix3d::Identity()).norm() > 1e-3 || R.determinant() < 0)
      return invalid("keyframe pose is not a rotation");
    kf.T_world_camera.matrix() = T;
    if (!r.get(n) || n > r.left() / 16) return invalid("observation count exceeds the file");
    for (uint32_t k = 0; k < n; ++k) {
      Observation o;
      if (!r.get(o.landmark) || !r.getFinite(o.u) || !r.getFinite(o.v) || !r.getFinite(o.u_right))
        return invalid("truncated observation");
      if (!map.landmarks.count(o.landmark)) return invalid("observation of an unknown landmark");
      if (!std::isfinite(o.u) || !std::isfinite(o.v)) return invalid("observation pixel is not finite");
      kf.observations.push_back(o);
    }
    uint8_t described = 0;
    if (!r.get(described) || described > 1) return invalid("truncated descriptors flag");
    if (described) {
      if (n == 0 || r.left() < size_t(n) * kDescriptorBytes) return invalid("truncated descriptors");
      kf.descriptors.create(int(n), int(kDescriptorBytes), CV_8U);
      for (uint32_t k = 0; k < n; ++k) r.getBytes(kf.descriptors.ptr<uint8_t>(int(k)), kDescriptorBytes);
    }
    map.keyframes[kf.id] = std::move(kf);
  }
  if (r.left() != 0) return invalid("unexpected bytes after the keyframes");
  map_out = std::move(map);
  calibration = c;
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE writeAreaFile(const std::string& path, const MapData& map, const RectifiedCalibration& calibration) {
  if (path.empty()) return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "empty area file path");
  const std::vector<uint8_t> bytes = encodeAreaFile(map, calibration);
  const FileResult r = writeFileAtomically(path, [&](const std::string& temporary) {
    OutputFile out(temporary);
    out.write(bytes.data(), bytes.size());
    return out.close();
  });
  return r.ok ? ERROR_CODE::SUCCESS : fail(ERROR_CODE::FILE_IO_ERROR, r.error);
}

ERROR_CODE readAreaFile(const std::string& path, MapData& map, RectifiedCalibration& calibration) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) return fail(ERROR_CODE::FILE_IO_ERROR, "cannot read area file " + path);
  const std::streamoff size = in.tellg();
  if (size < 0 || uint64_t(size) > kMaxFileBytes) return invalid("unreadable size");
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  in.seekg(0);
  if (size > 0 && !in.read(reinterpret_cast<char*>(bytes.data()), size))
    return fail(ERROR_CODE::FILE_IO_ERROR, "read failed: " + path);
  return decodeAreaFile(bytes.data(), bytes.size(), map, calibration);
}

}  // namespace pv::internal
