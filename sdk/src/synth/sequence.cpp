// The synthetic stereo rig moving through a scene: raw frames, true poses and true depth.
#include <Eigen/Geometry>
#include <cmath>
#include <opencv2/calib3d.hpp>

#include "core/internal/error.h"
#include "input/internal/rectifier.h"
#include "synth/internal/synth.h"

namespace pv::internal::synth {

namespace {

constexpr int64_t kTimeOriginNs = 1700000000000000000LL;

// Right-handed y-up axes from IMAGE axes (and back): y and z flip.
const Eigen::Matrix4d kFlip = Eigen::Vector4d(1, -1, -1, 1).asDiagonal();

// Undistorted normalised image coordinates of every pixel centre of a raw eye.
cv::Mat undistortedRays(const EyeCalibration& e, int width, int height) {
  std::vector<cv::Point2f> pixels;
  pixels.reserve(size_t(width) * size_t(height));
  for (int v = 0; v < height; ++v)
    for (int u = 0; u < width; ++u) pixels.emplace_back(float(u), float(v));
  const cv::Mat K = (cv::Mat_<double>(3, 3) << e.fx, 0, e.cx, 0, e.fy, e.cy, 0, 0, 1);
  const cv::Mat D(1, 5, CV_64F, const_cast<double*>(e.disto.data()));
  std::vector<cv::Point2f> normalised;
  cv::undistortPoints(pixels, normalised, K, D, cv::noArray(), cv::noArray(),
                      cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 30, 1e-9));
  return cv::Mat(normalised, true).reshape(2, height);
}

}  // namespace

ERROR_CODE SyntheticSequence::init(const SynthOptions& o) {
  if (!Scene::known(o.scene))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown scene '" + o.scene + "' (room, object)");
  if (!CameraMotion::known(o.motion))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown motion '" + o.motion + "' (smooth, handheld)");
  if (o.resolution != RESOLUTION::HD720 && o.resolution != RESOLUTION::VGA)
    return fail(ERROR_CODE::INVALID_RESOLUTION, "synthetic recordings are HD720 or VGA");
  if (o.frames < 1 || o.frames > 100000 || !(o.fps > 0 && o.fps <= 240) || !(o.noise_sigma >= 0))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "frames must be 1..100000 and fps 0..240");
  options_ = o;
  scene_ = Scene::build(o.scene, o.seed);
  motion_ = CameraMotion(o.motion, o.seed, o.frames / o.fps + 1.0);
  const Resolution size = getResolution(o.resolution);
  const double s = double(size.width) / 1280.0;
  StereoCalibration& c = calibration_;
  c.width = int(size.width);
  c.height = int(size.height);
  c.left = {700.0 * s, 700.0 * s, 641.3 * s, 358.2 * s, {-0.06, 0.02, 0.0004, -0.0003, 0.0}};
  c.right = {702.5 * s, 702.0 * s, 636.8 * s, 362.1 * s, {-0.055, 0.018, -0.0002, 0.0003, 0.0}};
  cv::Mat R;
  cv::Rodrigues(cv::Vec3d(0.002, -0.003, 0.0015), R);
  for (int i = 0; i < 9; ++i) c.R[size_t(i)] = R.at<double>(i);
  c.T = {-0.12, 0.0005, -0.0008};

  Rectifier rectifier;
  ERROR_CODE err = rectifier.init(c);
  if (err != ERROR_CODE::SUCCESS) return err;
  rectified_ = rectifier.rectified();
  Eigen::Matrix3d R1;
  for (int i = 0; i < 9; ++i) R1(i / 3, i % 3) = rectifier.leftRotation().at<double>(i);
  R_raw_rect_ = R1.transpose();  // rectification rotates raw-left rays by R1

  Eigen::Matrix3d Rs;
  for (int i = 0; i < 9; ++i) Rs(i / 3, i % 3) = c.R[size_t(i)];
  const Eigen::Vector3d Ts(c.T[0], c.T[1], c.T[2]);
  T_rawleft_rawright_.setIdentity();
  T_rawleft_rawright_.topLeftCorner<3, 3>() = Rs.transpose();
  T_rawleft_rawright_.topRightCorner<3, 1>() = -Rs.transpose() * Ts;

  rays_left_ = undistortedRays(c.left, c.width, c.height);
  rays_right_ = undistortedRays(c.right, c.width, c.height);

  Eigen::Matrix4d T_scene_rect0 = sceneFromRawLeft(0);
  T_scene_rect0.topLeftCorner<3, 3>() = T_scene_rect0.topLeftCorner<3, 3>() * R_raw_rect_;
  T_first_scene_ = T_scene_rect0.inverse();
  return ERROR_CODE::SUCCESS;
}

int64_t SyntheticSequence::timestampNs(int frame) const {
  return kTimeOriginNs + std::llround(frame * 1000.0 / options_.fps) * 1000000LL;
}

Eigen::Matrix4d SyntheticSequence::sceneFromRawLeft(int frame) const {
  return motion_.pose(scene_, double(timestampNs(frame) - kTimeOriginNs) * 1e-9);
}

Eigen::Matrix4d SyntheticSequence::poseImage(int frame) const {
  Eigen::Matrix4d T = sceneFromRawLeft(frame);
  T.topLeftCorner<3, 3>() = T.topLeftCorner<3, 3>() * R_raw_rect_;
  return T_first_scene_ * T;
}

Eigen::Matrix4d SyntheticSequence::poseRightHandedYUp(int frame) const { return kFlip * poseImage(frame) * kFlip; }

void SyntheticSequence::renderEye(const Eigen::Matrix4d& T_scene_eye, const cv::Mat& rays, uint32_t noise_seed,
                                  cv::Mat& out) const {
  const Eigen::Matrix3f R = T_scene_eye.topLeftCorner<3, 3>().cast<float>();
  const Eigen::Vector3f origin = T_scene_eye.topRightCorner<3, 1>().cast<float>();
  const float sigma = float(options_.noise_sigma);
  cv::parallel_for_(
      cv::Range(0, rays.rows),
      [&](const cv::Range& range) {
        for (int v = range.start; v < range.end; ++v) {
          cv::RNG rng(uint64_t(noise_seed) * 1000003ull + uint64_t(v) + 1);
          const cv::Vec2f* ray = rays.ptr<cv::Vec2f>(v);
          cv::Vec3b* px = out.ptr<cv::Vec3b>(v);
          for (int u = 0; u < rays.cols; ++u) {
            const Eigen::Vector3f dir = R * Eigen::Vector3f(ray[u][0], ray[u][1], 1.f);
            Hit hit;
            Eigen::Vector3f color = Eigen::Vector3f::Zero();
            if (scene_.intersect(origin, dir, hit)) color = scene_.shade(origin + hit.t * dir, hit);
            for (int ch = 0; ch < 3; ++ch)
              px[u][ch] = cv::saturate_cast<uchar>(255.f * color[ch] + (sigma > 0 ? float(rng.gaussian(sigma)) : 0.f));
          }
        }
      },
      double(rays.rows) / 8);
}

void SyntheticSequence::renderRaw(int frame, cv::Mat& sbs) const {
  const int w = calibration_.width, h = calibration_.height;
  sbs.create(h, 2 * w, CV_8UC3);
  cv::Mat left = sbs(cv::Rect(0, 0, w, h)), right = sbs(cv::Rect(w, 0, w, h));
  const Eigen::Matrix4d T_left = sceneFromRawLeft(frame);
  const uint32_t base = options_.seed * 7919u + uint32_t(frame) * 2u;
  renderEye(T_left, rays_left_, base, left);
  renderEye(T_left * T_rawleft_rawright_, rays_right_, base + 1, right);
}

void SyntheticSequence::renderDepth(int frame, cv::Mat& depth_m) const {
  const RectifiedCalibration& r = rectified_;
  depth_m.create(r.size, CV_32F);
  Eigen::Matrix4d T = sceneFromRawLeft(frame);
  const Eigen::Matrix3f R = (T.topLeftCorner<3, 3>() * R_raw_rect_).cast<float>();
  const Eigen::Vector3f origin = T.topRightCorner<3, 1>().cast<float>();
  cv::parallel_for_(
      cv::Range(0, r.size.height),
      [&](const cv::Range& range) {
        for (int v = range.start; v < range.end; ++v) {
          float* d = depth_m.ptr<float>(v);
          for (int u = 0; u < r.size.width; ++u) {
            const Eigen::Vector3f dir = R * Eigen::Vector3f(float((u - r.cx) / r.fx), float((v - r.cy) / r.fy), 1.f);
            Hit hit;
            d[u] = scene_.intersect(origin, dir, hit) ? hit.t : 0.f;  // t along a ray of unit depth
          }
        }
      },
      double(r.size.height) / 8);
}

void SyntheticSequence::surfaceMesh(std::vector<Eigen::Vector3f>& vertices,
                                    std::vector<Eigen::Vector3i>& triangles) const {
  vertices.clear();
  triangles.clear();
  scene_.triangulate(vertices, triangles);
  const Eigen::Matrix4f T = (kFlip * T_first_scene_).cast<float>();
  for (Eigen::Vector3f& p : vertices) p = T.topLeftCorner<3, 3>() * p + T.topRightCorner<3, 1>();
}

}  // namespace pv::internal::synth
