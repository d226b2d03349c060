// Synthetic stereo recordings with ground truth, for `pavo synth` and for tests of every module.
//
// In-process use (tests of depth, tracking, mapping):
//
//   pv::internal::synth::SynthOptions o;          // scene "room", HD720, 30 fps, seed 1, H.264
//   o.frames = 20; o.resolution = pv::RESOLUTION::VGA; o.codec = pv::KTR_COMPRESSION_MODE::LOSSLESS;
//   pv::internal::synth::SyntheticSequence seq;
//   seq.init(o);                                  // scene, rig, calibration, path
//   seq.poseImage(i);                             // true T_world_camera of frame i (IMAGE axes)
//   seq.renderDepth(i, depth_m);                  // true depth of the rectified left camera
//   pv::internal::synth::synthesize(o, "x.ktr");  // x.ktr, x.gt.txt, x.gt.ply (+ x.gt-depth/)
//
// Frames of the ground truth: the camera is the rectified left camera (what pv::Camera hands
// out); the world is that camera at frame 0, so the first pose is the identity, as the SDK's
// tracking starts. poseImage uses IMAGE axes (x right, y down, z forward); the side files use
// right-handed y-up axes (x right, y up, camera looking along -z), in metres.
#pragma once

#include <Eigen/Core>
#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "core/internal/camera_state.h"
#include "io/internal/ktr_metadata.h"
#include "io/internal/ktr_side_files.h"
#include "synth/internal/motion.h"
#include "synth/internal/scene.h"

namespace pv::internal::synth {

struct SynthOptions {
  std::string scene = "room";     ///< "room" or "object"
  std::string motion = "smooth";  ///< "smooth" (the scene's path) or "handheld" (quick turns and shake)
  int frames = 300;
  double fps = 30;
  RESOLUTION resolution = RESOLUTION::HD720;  ///< HD720 or VGA
  uint32_t seed = 1;
  KTR_COMPRESSION_MODE codec = KTR_COMPRESSION_MODE::H264;
  bool gt_depth = false;     ///< also write <name>.gt-depth/NNNNNN.png (uint16 millimetres)
  double noise_sigma = 2.0;  ///< sensor noise, grey levels
  unsigned int serial_number = 10000000;
};

class SyntheticSequence {
 public:
  /// INVALID_FUNCTION_PARAMETERS for an unknown scene, resolution or a bad count/rate.
  [[nodiscard]] ERROR_CODE init(const SynthOptions& options);
  const SynthOptions& options() const { return options_; }
  /// The factory calibration written into the recording (raw eyes, with distortion).
  const StereoCalibration& calibration() const { return calibration_; }
  /// What rectification of that calibration gives (the camera the ground truth describes).
  const RectifiedCalibration& rectified() const { return rectified_; }
  int64_t timestampNs(int frame) const;
  /// T_world_camera of the rectified left camera, IMAGE axes, world = camera at frame 0.
  Eigen::Matrix4d poseImage(int frame) const;
  /// The same pose in right-handed y-up axes (camera and world).
  Eigen::Matrix4d poseRightHandedYUp(int frame) const;
  /// Raw side-by-side CV_8UC3 frame with distortion and noise, as the camera records it.
  void renderRaw(int frame, cv::Mat& side_by_side) const;
  /// True depth (CV_32F metres, 0 where nothing is hit) seen by the rectified left camera.
  void renderDepth(int frame, cv::Mat& depth_m) const;
  /// Scene surface in the ground-truth world, right-handed y-up.
  void surfaceMesh(std::vector<Eigen::Vector3f>& vertices, std::vector<Eigen::Vector3i>& triangles) const;

 private:
  Eigen::Matrix4d sceneFromRawLeft(int frame) const;  // IMAGE camera axes, scene world
  void renderEye(const Eigen::Matrix4d& T_scene_eye, const cv::Mat& rays, uint32_t noise_seed, cv::Mat& out) const;

  SynthOptions options_;
  Scene scene_;
  CameraMotion motion_;
  StereoCalibration calibration_;
  RectifiedCalibration rectified_;
  Eigen::Matrix3d R_raw_rect_;          // rectified left camera axes in the raw left camera
  Eigen::Matrix4d T_rawleft_rawright_;  // right eye in the left eye's frame
  Eigen::Matrix4d T_first_scene_;       // scene to ground-truth world
  cv::Mat rays_left_, rays_right_;      // CV_32FC2 undistorted normalised coordinates per raw pixel
};

/// Progress of synthesize: frames done, total.
using SynthProgress = std::function<void(int done, int total)>;

/// Writes the recording `path` (.ktr) with <name>.gt.txt, <name>.gt.ply and, when asked,
/// <name>.gt-depth/. <name> is the path without its ".ktr" extension.
[[nodiscard]] ERROR_CODE synthesize(const SynthOptions& options, const std::string& path,
                                    const SynthProgress& progress = nullptr);

}  // namespace pv::internal::synth
