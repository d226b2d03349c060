// Writing synthetic recordings and their ground-truth side files.
#include <Eigen/Geometry>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>

#include "core/internal/error.h"
#include "io/internal/ktr_file.h"
#include "synth/internal/synth.h"

namespace pv::internal::synth {

std::string sideFileStem(const std::string& path) {
  const std::string ext = ".ktr";
  if (path.size() > ext.size() && path.compare(path.size() - ext.size(), ext.size(), ext) == 0)
    return path.substr(0, path.size() - ext.size());
  return path;
}

bool writeTumTrajectory(const std::string& path, const std::vector<int64_t>& timestamps_ns,
                        const std::vector<Eigen::Matrix4d>& poses) {
  std::ofstream out(path);
  if (!out) return false;
  out << "# timestamp tx ty tz qx qy qz qw (camera to world, metres, right-handed y-up)\n";
  char line[256];
  for (size_t i = 0; i < poses.size() && i < timestamps_ns.size(); ++i) {
    const Eigen::Quaterniond q(Eigen::Matrix3d(poses[i].topLeftCorner<3, 3>()));
    const Eigen::Vector3d t = poses[i].topRightCorner<3, 1>();
    std::snprintf(line, sizeof(line), "%lld.%09lld %.6f %.6f %.6f %.9f %.9f %.9f %.9f\n",
                  static_cast<long long>(timestamps_ns[i] / 1000000000LL),
                  static_cast<long long>(timestamps_ns[i] % 1000000000LL), t.x(), t.y(), t.z(), q.x(), q.y(), q.z(),
                  q.w());
    out << line;
  }
  return bool(out);
}

bool writeSurfacePly(const std::string& path, const std::vector<Eigen::Vector3f>& vertices,
                     const std::vector<Eigen::Vector3i>& triangles) {
  std::ofstream out(path, std::ios::binary);
  if (!out) return false;
  out << "ply\nformat binary_little_endian 1.0\ncomment ground-truth surface\nelement vertex " << vertices.size()
      << "\nproperty float x\nproperty float y\nproperty float z\nelement face " << triangles.size()
      << "\nproperty list uchar int vertex_indices\nend_header\n";
  for (const Eigen::Vector3f& v : vertices) out.write(reinterpret_cast<const char*>(v.data()), 3 * sizeof(float));
  for (const Eigen::Vector3i& f : triangles) {
    const unsigned char n = 3;
    out.write(reinterpret_cast<const char*>(&n), 1);
    out.write(reinterpret_cast<const char*>(f.data()), 3 * sizeof(int));
  }
  return bool(out);
}

ERROR_CODE synthesize(const SynthOptions& options, const std::string& path, const SynthProgress& progress) {
  SyntheticSequence sequence;
  ERROR_CODE err = sequence.init(options);
  if (err != ERROR_CODE::SUCCESS) return err;
  const std::string stem = sideFileStem(path);
  const std::string depth_dir = stem + ".gt-depth";
  if (options.gt_depth) {
    std::error_code ec;
    std::filesystem::create_directories(depth_dir, ec);
    if (ec) return fail(ERROR_CODE::FILE_IO_ERROR, "cannot create " + depth_dir + ": " + ec.message());
  }
  KtrMetadata m;
  m.camera_model = "PAVO";
  m.serial_number = options.serial_number;
  m.width = sequence.calibration().width;
  m.height = sequence.calibration().height;
  m.fps = options.fps;
  m.time_origin_ns = sequence.timestampNs(0);
  m.calibration = sequence.calibration();
  KtrWriter writer;
  err = writer.open(path, m, options.codec);
  if (err != ERROR_CODE::SUCCESS) return err;

  std::vector<int64_t> timestamps;
  std::vector<Eigen::Matrix4d> poses;
  cv::Mat frame, depth_m, depth_mm;
  for (int i = 0; i < options.frames; ++i) {
    sequence.renderRaw(i, frame);
    err = writer.write(frame, sequence.timestampNs(i));
    if (err != ERROR_CODE::SUCCESS) return err;
    timestamps.push_back(sequence.timestampNs(i));
    poses.push_back(sequence.poseRightHandedYUp(i));
    if (options.gt_depth) {
      sequence.renderDepth(i, depth_m);
      depth_m.convertTo(depth_mm, CV_16U, 1000.0);
      char name[32];
      std::snprintf(name, sizeof(name), "/%06d.png", i);
      if (!cv::imwrite(depth_dir + name, depth_mm))
        return fail(ERROR_CODE::FILE_IO_ERROR, "cannot write " + depth_dir + name);
    }
    if (progress) progress(i + 1, options.frames);
  }
  err = writer.close();
  if (err != ERROR_CODE::SUCCESS) return err;
  if (!writeTumTrajectory(stem + ".gt.txt", timestamps, poses))
    return fail(ERROR_CODE::FILE_IO_ERROR, "cannot write " + stem + ".gt.txt");
  std::vector<Eigen::Vector3f> vertices;
  std::vector<Eigen::Vector3i> triangles;
  sequence.surfaceMesh(vertices, triangles);
  if (!writeSurfacePly(stem + ".gt.ply", vertices, triangles))
    return fail(ERROR_CODE::FILE_IO_ERROR, "cannot write " + stem + ".gt.ply");
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv::internal::synth
