// Writing synthetic recordings and their ground-truth side files.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>

#include "core/internal/error.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_side_files.h"
#include "synth/internal/synth.h"

namespace pv::internal::synth {

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
