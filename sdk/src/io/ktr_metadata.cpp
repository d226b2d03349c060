#include "io/internal/ktr_metadata.h"

#include <cmath>
#include <filesystem>
#include <opencv2/core.hpp>

#include "core/internal/error.h"

namespace pv::internal {

namespace {

void writeEye(cv::FileStorage& fs, const char* name, const EyeCalibration& eye) {
  fs << name << "{"
     << "fx" << eye.fx << "fy" << eye.fy << "cx" << eye.cx << "cy" << eye.cy << "disto"
     << "[";
  for (double d : eye.disto) fs << d;
  fs << "]"
     << "}";
}

template <size_t N>
bool readArray(const cv::FileNode& node, std::array<double, N>& out) {
  if (!node.isSeq() || node.size() != N) return false;
  for (size_t i = 0; i < N; ++i) {
    if (!node[int(i)].isReal() && !node[int(i)].isInt()) return false;
    out[i] = double(node[int(i)]);
  }
  return true;
}

bool readNumber(const cv::FileNode& node, double& out) {
  if (!node.isReal() && !node.isInt()) return false;
  out = double(node);
  return std::isfinite(out);
}

bool readEye(const cv::FileNode& node, EyeCalibration& eye) {
  return node.isMap() && readNumber(node["fx"], eye.fx) && readNumber(node["fy"], eye.fy) &&
         readNumber(node["cx"], eye.cx) && readNumber(node["cy"], eye.cy) && readArray(node["disto"], eye.disto);
}

bool allFinite(const double* v, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (!std::isfinite(v[i])) return false;
  return true;
}

// Reads a matrix node of an OpenCV YAML file into `n` doubles.
bool readMatrix(const cv::FileNode& node, double* out, int n) {
  cv::Mat m;
  try {
    node >> m;
  } catch (const cv::Exception&) {
    return false;
  }
  if (m.empty() || int(m.total()) != n || m.channels() != 1) return false;
  m.convertTo(m, CV_64F);
  for (int i = 0; i < n; ++i) out[i] = m.at<double>(i);
  return allFinite(out, size_t(n));
}

}  // namespace

bool StereoCalibration::plausible() const {
  const EyeCalibration* eyes[] = {&left, &right};
  for (const EyeCalibration* e : eyes) {
    if (!(e->fx > 1 && e->fy > 1 && e->fx < 1e5 && e->fy < 1e5)) return false;
    if (!allFinite(&e->cx, 2) || !allFinite(e->disto.data(), 5)) return false;
  }
  if (!allFinite(R.data(), 9) || !allFinite(T.data(), 3)) return false;
  const double baseline = std::sqrt(T[0] * T[0] + T[1] * T[1] + T[2] * T[2]);
  // A rotation has unit determinant.
  const double det =
      R[0] * (R[4] * R[8] - R[5] * R[7]) - R[1] * (R[3] * R[8] - R[5] * R[6]) + R[2] * (R[3] * R[7] - R[4] * R[6]);
  return baseline > 1e-3 && baseline < 10 && std::abs(det - 1) < 1e-3 && width > 0 && height > 0 && width <= 8192 &&
         height <= 8192;
}

std::string writeKtrMetadata(const KtrMetadata& m) {
  try {
    cv::FileStorage fs(".json", cv::FileStorage::WRITE | cv::FileStorage::MEMORY | cv::FileStorage::FORMAT_JSON);
    fs << "format_version" << m.format_version << "camera_model" << m.camera_model << "serial_number"
       << std::to_string(m.serial_number) << "width" << m.width << "height" << m.height << "fps" << m.fps
       << "time_origin_ns" << std::to_string(m.time_origin_ns);
    fs << "calibration"
       << "{";
    writeEye(fs, "left", m.calibration.left);
    writeEye(fs, "right", m.calibration.right);
    fs << "R"
       << "[";
    for (double v : m.calibration.R) fs << v;
    fs << "]"
       << "T"
       << "[";
    for (double v : m.calibration.T) fs << v;
    fs << "]"
       << "}";
    return fs.releaseAndGetString();
  } catch (const cv::Exception&) {
    return std::string();
  }
}

ERROR_CODE parseKtrMetadata(const std::string& text, KtrMetadata& out) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos || text[first] != '{')
    return fail(ERROR_CODE::INVALID_KTR_FILE, "pavo.json is not a JSON object");
  KtrMetadata m;
  try {
    cv::FileStorage fs(text, cv::FileStorage::READ | cv::FileStorage::MEMORY | cv::FileStorage::FORMAT_JSON);
    if (!fs.isOpened()) return fail(ERROR_CODE::INVALID_KTR_FILE, "pavo.json cannot be parsed");
    const cv::FileNode root = fs.root();
    double version = 0, width = 0, height = 0;
    if (!root.isMap() || !readNumber(root["format_version"], version))
      return fail(ERROR_CODE::INVALID_KTR_FILE, "pavo.json has no format_version");
    if (version < 1 || version > 1)
      return fail(ERROR_CODE::INVALID_KTR_FILE,
                  "pavo.json format version " + std::to_string(version) + " is not known");
    m.format_version = int(version);
    if (!readNumber(root["width"], width) || !readNumber(root["height"], height) || !readNumber(root["fps"], m.fps) ||
        width < 16 || height < 16 || width > 8192 || height > 8192 || m.fps <= 0 || m.fps > 1000)
      return fail(ERROR_CODE::INVALID_KTR_FILE, "pavo.json has no valid width, height and fps");
    m.width = int(width);
    m.height = int(height);
    if (root["camera_model"].isString()) m.camera_model = std::string(root["camera_model"]);
    if (root["serial_number"].isString()) {
      const std::string serial = root["serial_number"];
      char* end = nullptr;
      const unsigned long v = std::strtoul(serial.c_str(), &end, 10);
      if (serial.empty() || *end != '\0' || v > 0xffffffffUL)
        return fail(ERROR_CODE::INVALID_KTR_FILE, "pavo.json has a malformed serial number");
      m.serial_number = unsigned(v);
    }
    if (root["time_origin_ns"].isString()) {
      const std::string origin = root["time_origin_ns"];
      m.time_origin_ns = std::strtoll(origin.c_str(), nullptr, 10);
    }
    const cv::FileNode cal = root["calibration"];
    StereoCalibration& c = m.calibration;
    if (!cal.isMap() || !readEye(cal["left"], c.left) || !readEye(cal["right"], c.right) || !readArray(cal["R"], c.R) ||
        !readArray(cal["T"], c.T))
      return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "pavo.json has no complete calibration");
    c.width = m.width;
    c.height = m.height;
    if (!c.plausible()) return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "the recorded calibration is not plausible");
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::INVALID_KTR_FILE, std::string("pavo.json cannot be parsed: ") + e.what());
  }
  out = m;
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE readCalibrationYaml(const std::string& path, StereoCalibration& out) {
  StereoCalibration c;
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec))
    return fail(ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE, "no calibration file " + path);
  try {
    cv::FileStorage fs(path, cv::FileStorage::READ);
    if (!fs.isOpened()) return fail(ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE, "cannot read " + path);
    double K[9], D[5], w = 0, h = 0;
    if (!readNumber(fs["image_width"], w) || !readNumber(fs["image_height"], h))
      return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, path + " has no image_width/image_height");
    c.width = int(w);
    c.height = int(h);
    EyeCalibration* eyes[] = {&c.left, &c.right};
    const char* k_names[] = {"K_left", "K_right"};
    const char* d_names[] = {"D_left", "D_right"};
    for (int e = 0; e < 2; ++e) {
      if (!readMatrix(fs[k_names[e]], K, 9) || !readMatrix(fs[d_names[e]], D, 5))
        return fail(ERROR_CODE::INVALID_CALIBRATION_FILE,
                    path + " lacks " + k_names[e] + " (3x3) or " + d_names[e] + " (5 values)");
      eyes[e]->fx = K[0];
      eyes[e]->cx = K[2];
      eyes[e]->fy = K[4];
      eyes[e]->cy = K[5];
      for (int i = 0; i < 5; ++i) eyes[e]->disto[size_t(i)] = D[i];
    }
    if (!readMatrix(fs["R"], c.R.data(), 9) || !readMatrix(fs["T"], c.T.data(), 3))
      return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, path + " lacks R (3x3) or T (3x1)");
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, path + " cannot be parsed: " + e.what());
  }
  if (!c.plausible()) return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, path + " does not describe a stereo camera");
  out = c;
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE writeCalibrationYaml(const std::string& path, const StereoCalibration& c) {
  try {
    cv::FileStorage fs(path, cv::FileStorage::WRITE);
    if (!fs.isOpened()) return fail(ERROR_CODE::FILE_IO_ERROR, "cannot write " + path);
    fs << "image_width" << c.width << "image_height" << c.height;
    const EyeCalibration* eyes[] = {&c.left, &c.right};
    const char* k_names[] = {"K_left", "K_right"};
    const char* d_names[] = {"D_left", "D_right"};
    for (int e = 0; e < 2; ++e) {
      cv::Mat K = (cv::Mat_<double>(3, 3) << eyes[e]->fx, 0, eyes[e]->cx, 0, eyes[e]->fy, eyes[e]->cy, 0, 0, 1);
      cv::Mat D(1, 5, CV_64F, const_cast<double*>(eyes[e]->disto.data()));
      fs << k_names[e] << K << d_names[e] << D;
    }
    fs << "R" << cv::Mat(3, 3, CV_64F, const_cast<double*>(c.R.data())) << "T"
       << cv::Mat(3, 1, CV_64F, const_cast<double*>(c.T.data()));
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::FILE_IO_ERROR, "cannot write " + path + ": " + e.what());
  }
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv::internal
