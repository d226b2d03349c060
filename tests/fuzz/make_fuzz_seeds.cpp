// Writes small seed inputs for every fuzz target into DIR/<target>/, made with the SDK's own
// writers (or written out as the published layouts are), so that the fuzzers start from inputs
// that reach deep into each reader.
//   make_fuzz_seeds DIR
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <opencv2/imgproc.hpp>
#include <string>

#include "fuzz_import.h"
#include "io/internal/area_file.h"
#include "io/internal/ktr_file.h"
#include "io/internal/obj.h"
#include "io/internal/ply.h"

namespace {

namespace fs = std::filesystem;
using namespace pv::internal;

std::string root;

void seed(const std::string& target, const std::string& name, const std::string& bytes) {
  fs::create_directories(root + "/" + target);
  std::ofstream(root + "/" + target + "/" + name, std::ios::binary) << bytes;
}

std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Parts of a fuzz folder: joined with NUL bytes.
std::string parts(std::initializer_list<std::string> files) {
  std::string out;
  for (const std::string& f : files) out += (out.empty() && &f == files.begin() ? "" : std::string(1, '\0')) + f;
  return out;
}

MeshData tetrahedron(bool colours, bool normals, bool uv) {
  MeshData m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  m.triangles = {{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}};
  if (colours) m.colors = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {9, 9, 9}};
  if (normals) m.normals = {{0, 0, -1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  if (uv) {
    m.uv = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
    m.texture = cv::Mat(4, 4, CV_8UC3, cv::Scalar(10, 120, 230));
  }
  return m;
}

void meshSeeds(const std::string& dir) {
  int n = 0;
  for (bool binary : {false, true})
    for (int variant = 0; variant < 3; ++variant) {
      MeshData m = tetrahedron(variant >= 1, variant >= 1, variant == 2);
      if (variant == 0 && binary) m.triangles.clear();  // a point cloud
      const std::string path = dir + "/m.ply";
      if (writePly(path, m, binary).ok) seed("ply", "ours_" + std::to_string(n++), readBytes(path));
    }
  const MeshData textured = tetrahedron(true, true, true);
  if (writeObj(dir + "/t.obj", textured).ok)
    seed("obj", "textured", readBytes(dir + "/t.obj") + std::string(1, '\0') + readBytes(dir + "/t.mtl"));
  if (writeObj(dir + "/p.obj", tetrahedron(false, false, false)).ok) seed("obj", "plain", readBytes(dir + "/p.obj"));
  seed("obj", "polygons",
       "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvt 0 0\nvn 0 0 1\nf 1/1/1 2/1/1 3/1/1 4/1/1\nf -1 -2 -3\n");
}

void areaSeeds() {
  MapData map;
  for (int k = 0; k < 2; ++k) {
    Keyframe kf;
    kf.id = k;
    kf.frame_index = k * 10;
    kf.T_world_camera.translation() = Eigen::Vector3d(0.1 * k, 0, 0);
    for (int o = 0; o < 3; ++o) kf.observations.push_back({o, 5.f + o, 6.f + k, 3.f + o});
    kf.descriptors = cv::Mat(3, 32, CV_8U, cv::Scalar(k + 1));
    map.keyframes[k] = kf;
  }
  for (int l = 0; l < 3; ++l) map.landmarks[l] = {Eigen::Vector3d(l, 1, 2), 2};
  map.next_keyframe_id = 2;
  map.next_landmark_id = 3;
  RectifiedCalibration c;
  c.fx = c.fy = 30;
  c.cx = 16;
  c.cy = 12;
  c.baseline_m = 0.1;
  c.size = cv::Size(32, 24);
  const std::vector<uint8_t> bytes = encodeAreaFile(map, c);
  seed("area_file", "two_keyframes", std::string(bytes.begin(), bytes.end()));
  const std::vector<uint8_t> empty = encodeAreaFile(MapData(), c);
  seed("area_file", "empty", std::string(empty.begin(), empty.end()));
}

KtrMetadata smallRecording() {
  KtrMetadata m;
  m.serial_number = 5;
  m.width = mapura::fuzz::kImageWidth;
  m.height = 16;
  m.fps = 10;
  m.time_origin_ns = 1000;
  m.calibration.width = m.width;
  m.calibration.height = m.height;
  m.calibration.left = {30, 30, 16, 8, {0.01, -0.01, 0, 0, 0}};
  m.calibration.right = {30, 30, 16, 8, {}};
  m.calibration.T = {-0.1, 0, 0};
  return m;
}

void ktrSeeds(const std::string& dir) {
  const KtrMetadata m = smallRecording();
  seed("ktr_metadata", "small", writeKtrMetadata(m));
  for (pv::KTR_COMPRESSION_MODE mode :
       {pv::KTR_COMPRESSION_MODE::H264, pv::KTR_COMPRESSION_MODE::LOSSLESS, pv::KTR_COMPRESSION_MODE::MJPEG}) {
    const std::string path = dir + "/" + ktrCodecName(mode) + ".ktr";
    KtrWriter writer;
    if (writer.open(path, m, mode) != pv::ERROR_CODE::SUCCESS) continue;
    cv::Mat frame(m.height, 2 * m.width, CV_8UC3);
    for (int i = 0; i < 4; ++i) {
      cv::RNG(uint64_t(i)).fill(frame, cv::RNG::UNIFORM, 0, 255);
      (void)writer.write(frame, m.time_origin_ns + int64_t(i) * 100000000);
    }
    if (writer.close() == pv::ERROR_CODE::SUCCESS) seed("ktr", ktrCodecName(mode), readBytes(path));
  }
}

const char* kSensorYaml =
    "sensor_type: camera\ncomment: VI-Sensor cam0 (MT9M034)\nT_BS:\n  cols: 4\n  rows: 4\n  data: [1.0, 0.0, 0.0, "
    "%s,\n         0.0, 1.0, 0.0, 0.0,\n         0.0, 0.0, 1.0, 0.0,\n         0.0, 0.0, 0.0, 1.0]\nrate_hz: 20\n"
    "resolution: [32, 24]\ncamera_model: pinhole\nintrinsics: [30.0, 30.0, 16.0, 12.0]\n"
    "distortion_model: radial-tangential\ndistortion_coefficients: [-0.28, 0.07, 0.0002, 0.00002]\n";

std::string sensorYaml(const char* x) {
  char text[1024];
  std::snprintf(text, sizeof text, kSensorYaml, x);
  return text;
}

void importSeeds() {
  const std::string list = "#timestamp [ns],filename\n1000000000,0.png\n1050000000,1.png\n1100000000,2.png\n";
  const std::string asl =
      "#timestamp, p_RS_R_x [m], p_RS_R_y [m], p_RS_R_z [m], q_RS_w [], q_RS_x [], q_RS_y [], q_RS_z []\n"
      "1000000000,0.1,0.2,0.3,1,0,0,0\n1100000000,0.2,0.2,0.3,0.99,0.01,0,0\n";
  const std::string tum = "# t tx ty tz qx qy qz qw\n1.0 0 0 0 0 0 0 1\n1.1 0.1 0 0 0 0 0 1\n";
  seed("trajectory", "pair",
       parts({tum,
              "# reference\n1.0 0 0 0 0 0 0 1\n1.05 0.05 0 0 0 0 0 1\n1.1 0.1 0.01 0 0 0 "
              "0.0499792 0.9987503\n1.2 0.2 0 0 0 0 0 1\n"}));
  seed("import_euroc", "asl", parts({sensorYaml("0.0"), sensorYaml("0.11"), list, list, asl, ""}));
  seed("import_euroc", "tum", parts({sensorYaml("0.0"), "%YAML:1.0\n" + sensorYaml("0.11"), list, list, "", tum}));

  const std::string calib =
      "P0: 30 0 16 0 0 30 12 0 0 0 1 0\nP1: 30 0 16 -15 0 30 12 0 0 0 1 0\n"
      "P2: 30 0 16 1 0 30 12 0 0 0 1 0\nP3: 30 0 16 -14 0 30 12 0 0 0 1 0\n";
  const std::string poses = "1 0 0 0 0 1 0 0 0 0 1 0\n1 0 0 0.5 0 1 0 0 0 0 1 0.1\n";
  seed("import_kitti", "odometry", parts({calib, "0.0\n0.1\n0.2\n", poses}));
  seed("import_kitti", "raw",
       parts({"", "", "", "2011-09-26 13:02:25.594360375\n2011-09-26 13:02:25.604340125\n2011-09-26 13:02:25.614321\n",
              "calib_time: 09-Jan-2012 13:57:47\nS_rect_00: 3.2e+01 2.4e+01\nP_rect_00: 30 0 16 0 0 30 12 0 0 0 1 0\n"
              "P_rect_01: 30 0 16 -15 0 30 12 0 0 0 1 0\n"}));
  seed("import_kitti", "bare_rows", parts({"30 0 16 0 0 30 12 0 0 0 1 0\n30 0 16 -15 0 30 12 0 0 0 1 0\n"}));

  seed("import_pairs", "yaml",
       parts({"%YAML:1.0\nimage_width: 32\nimage_height: 24\nK_left: !!opencv-matrix\n  rows: 3\n  cols: 3\n  dt: d\n"
              "  data: [30, 0, 16, 0, 30, 12, 0, 0, 1]\nD_left: !!opencv-matrix\n  rows: 1\n  cols: 5\n  dt: d\n"
              "  data: [0.01, 0, 0, 0, 0]\nK_right: !!opencv-matrix\n  rows: 3\n  cols: 3\n  dt: d\n"
              "  data: [30, 0, 16, 0, 30, 12, 0, 0, 1]\nD_right: !!opencv-matrix\n  rows: 1\n  cols: 5\n  dt: d\n"
              "  data: [0, 0, 0, 0, 0]\nR: !!opencv-matrix\n  rows: 3\n  cols: 3\n  dt: d\n"
              "  data: [1, 0, 0, 0, 1, 0, 0, 0, 1]\nT: !!opencv-matrix\n  rows: 3\n  cols: 1\n  dt: d\n"
              "  data: [-0.1, 0, 0]\n",
              "", tum}));
  seed("import_pairs", "middlebury",
       parts({"",
              "cam0=[30 0 16; 0 30 12; 0 0 1]\ncam1=[30 0 17; 0 30 12; 0 0 1]\ndoffs=1\nbaseline=100\n"
              "width=32\nheight=24\nndisp=16\n"}));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_fuzz_seeds DIR\n");
    return 2;
  }
  root = argv[1];
  const std::string scratch = root + "/.scratch";
  fs::create_directories(scratch);
  meshSeeds(scratch);
  areaSeeds();
  ktrSeeds(scratch);
  importSeeds();
  fs::remove_all(scratch);
  return 0;
}
