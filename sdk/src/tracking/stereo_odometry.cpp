#include "tracking/internal/stereo_odometry.h"

#include <algorithm>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/video/tracking.hpp>
#include <set>

namespace pv::internal {
namespace {

void toRvecTvec(const Eigen::Isometry3d& T_world_camera, cv::Mat& rvec, cv::Mat& tvec) {
  const Eigen::Isometry3d T_cw = T_world_camera.inverse();
  cv::Mat R(3, 3, CV_64F);
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) R.at<double>(r, c) = T_cw.linear()(r, c);
  cv::Rodrigues(R, rvec);
  tvec = (cv::Mat_<double>(3, 1) << T_cw.translation().x(), T_cw.translation().y(), T_cw.translation().z());
}

Eigen::Isometry3d fromRvecTvec(const cv::Mat& rvec, const cv::Mat& tvec) {
  cv::Mat R;
  cv::Rodrigues(rvec, R);
  Eigen::Isometry3d T_cw = Eigen::Isometry3d::Identity();
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) T_cw.linear()(r, c) = R.at<double>(r, c);
    T_cw.translation()[r] = tvec.at<double>(r);
  }
  return T_cw.inverse();
}

double rotationAngle(const Eigen::Isometry3d& T) { return Eigen::AngleAxisd(T.linear()).angle(); }

}  // namespace

StereoOdometry::StereoOdometry(const RectifiedCalibration& calibration, MapData& map,
                               const OdometryParameters& parameters)
    : calibration_(calibration),
      map_(map),
      parameters_(parameters),
      orb_(cv::ORB::create()),
      sparse_(calibration, parameters.sparse_alignment) {
  K_ = (cv::Mat_<double>(3, 3) << calibration.fx, 0, calibration.cx, 0, calibration.fy, calibration.cy, 0, 0, 1);
}

void StereoOdometry::restart(const Eigen::Isometry3d& T_world_camera) {
  tracks_.clear();
  window_.clear();
  previous_pyramid_.clear();
  previous_levels_.clear();
  T_world_camera_ = T_world_camera;
  motion_.reset();
  started_ = false;
}

std::vector<float> StereoOdometry::disparityGuess(const cv::Mat& depth_m,
                                                  const std::vector<cv::Point2f>& points) const {
  std::vector<float> guess(points.size(), 0.f);
  if (depth_m.empty() || depth_m.type() != CV_32F) return guess;
  for (size_t i = 0; i < points.size(); ++i) {
    const int x = int(points[i].x + 0.5f), y = int(points[i].y + 0.5f);
    if (x < 0 || y < 0 || x >= depth_m.cols || y >= depth_m.rows) continue;
    const float z = depth_m.at<float>(y, x);
    if (std::isfinite(z) && z > 0) guess[i] = float(calibration_.fx * calibration_.baseline_m / z);
  }
  return guess;
}

OdometryOutput StereoOdometry::startAt(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth,
                                       int frame_index, double t_s, const Eigen::Isometry3d& T_world_camera) {
  restart(T_world_camera);
  return track(left, right, depth, frame_index, t_s);
}

OdometryOutput StereoOdometry::initialise(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth,
                                          int frame_index) {
  OdometryOutput out;
  out.T_world_camera = T_world_camera_;
  const int id = makeKeyframe(left, right, depth, frame_index);
  const int landmarks = id >= 0 ? int(map_.keyframes[id].observations.size()) : 0;
  if (landmarks < 2 * parameters_.min_inliers) {
    // Too little texture to start: undo and stay lost.
    if (id >= 0) {
      for (const Observation& o : map_.keyframes[id].observations) map_.landmarks.erase(o.landmark);
      map_.keyframes.erase(id);
      window_.clear();
    }
    tracks_.clear();
    return out;
  }
  started_ = true;
  out.ok = true;
  out.inliers = landmarks;
  out.confidence = 100;
  out.new_keyframe_id = out.reference_keyframe_id = id;
  for (const Track& t : tracks_) out.used.push_back(t.px);
  return out;
}

bool StereoOdometry::estimatePose(const std::vector<cv::Point3f>& points_world, const std::vector<cv::Point2f>& pixels,
                                  Eigen::Isometry3d& T_world_camera, std::vector<char>& inlier) const {
  inlier.assign(pixels.size(), 0);
  if (int(pixels.size()) < parameters_.min_inliers) return false;
  cv::Mat rvec, tvec;
  toRvecTvec(T_world_camera, rvec, tvec);
  std::vector<int> ransac_inliers;
  const bool solved = cv::solvePnPRansac(points_world, pixels, K_, cv::noArray(), rvec, tvec, true, 100,
                                         float(parameters_.ransac_px), 0.999, ransac_inliers, cv::SOLVEPNP_ITERATIVE);
  if (!solved) return false;
  T_world_camera = fromRvecTvec(rvec, tvec);
  return refinePose(points_world, pixels, ransac_inliers, T_world_camera, inlier);
}

bool StereoOdometry::refinePose(const std::vector<cv::Point3f>& points_world, const std::vector<cv::Point2f>& pixels,
                                std::vector<int> consensus, Eigen::Isometry3d& T_world_camera,
                                std::vector<char>& inlier) const {
  inlier.assign(pixels.size(), 0);
  if (int(consensus.size()) < parameters_.min_inliers) return false;
  cv::Mat rvec, tvec;
  toRvecTvec(T_world_camera, rvec, tvec);
  // Motion-only refinement on the consensus, then once more on everything that agrees with it.
  for (int round = 0; round < 2; ++round) {
    std::vector<cv::Point3f> object;
    std::vector<cv::Point2f> image;
    for (int i : consensus) {
      object.push_back(points_world[size_t(i)]);
      image.push_back(pixels[size_t(i)]);
    }
    cv::solvePnPRefineLM(object, image, K_, cv::noArray(), rvec, tvec);
    std::vector<cv::Point2f> projected;
    cv::projectPoints(points_world, rvec, tvec, K_, cv::noArray(), projected);
    consensus.clear();
    for (size_t i = 0; i < pixels.size(); ++i) {
      const cv::Point2f d = projected[i] - pixels[i];
      if (d.dot(d) < parameters_.ransac_px * parameters_.ransac_px) consensus.push_back(int(i));
    }
    if (int(consensus.size()) < parameters_.min_inliers) return false;
  }
  for (int i : consensus) inlier[size_t(i)] = 1;
  T_world_camera = fromRvecTvec(rvec, tvec);
  return true;
}

StereoOdometry::Estimate StereoOdometry::followTracks(const std::vector<cv::Mat>& pyramid, const cv::Size& image,
                                                      const Eigen::Isometry3d& T_prior) const {
  Estimate e;
  e.T_world_camera = T_prior;
  std::vector<cv::Point2f> previous, current, back;
  for (const Track& t : tracks_) previous.push_back(t.px);
  if (previous.empty()) return e;
  // Start each track where its landmark lands at the prior pose.
  const Eigen::Isometry3d T_prior_cw = T_prior.inverse();
  current = previous;
  for (size_t i = 0; i < tracks_.size(); ++i) {
    auto lm = map_.landmarks.find(tracks_[i].landmark);
    double u, v;
    if (lm != map_.landmarks.end() && projectPoint(calibration_, T_prior_cw * lm->second.p_world, u, v) && u > -50 &&
        v > -50 && u < image.width + 50 && v < image.height + 50)
      current[i] = cv::Point2f(float(u), float(v));
  }
  std::vector<uchar> status, status_back;
  std::vector<float> err;
  const cv::Size window(parameters_.klt_window_px, parameters_.klt_window_px);
  const cv::TermCriteria criteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 10, 0.03);
  cv::calcOpticalFlowPyrLK(previous_pyramid_, pyramid, previous, current, status, err, window, parameters_.klt_levels,
                           criteria, cv::OPTFLOW_USE_INITIAL_FLOW);
  back = previous;
  cv::calcOpticalFlowPyrLK(pyramid, previous_pyramid_, current, back, status_back, err, window, parameters_.klt_levels,
                           criteria, cv::OPTFLOW_USE_INITIAL_FLOW);
  std::vector<cv::Point3f> object;
  std::vector<cv::Point2f> pixels;
  std::vector<size_t> which;
  const float margin = float(parameters_.features.border_px);
  for (size_t i = 0; i < previous.size(); ++i) {
    const cv::Point2f& p = current[i];
    const bool inside = p.x >= margin && p.y >= margin && p.x < image.width - margin && p.y < image.height - margin;
    const cv::Point2f fb = back[i] - previous[i];
    if (!status[i] || !status_back[i] || !inside || fb.dot(fb) > parameters_.klt_check_px * parameters_.klt_check_px)
      continue;
    auto lm = map_.landmarks.find(tracks_[i].landmark);
    if (lm == map_.landmarks.end()) continue;
    object.emplace_back(float(lm->second.p_world.x()), float(lm->second.p_world.y()), float(lm->second.p_world.z()));
    pixels.push_back(p);
    which.push_back(i);
  }
  std::vector<char> inlier;
  if (!estimatePose(object, pixels, e.T_world_camera, inlier)) {
    e.rejected = pixels;
    return e;
  }
  e.ok = true;
  for (size_t k = 0; k < which.size(); ++k) {
    if (inlier[k])
      e.inliers.push_back({tracks_[which[k]].landmark, pixels[k]});
    else
      e.rejected.push_back(pixels[k]);
  }
  return e;
}

bool StereoOdometry::alignSparse(const std::vector<cv::Mat>& levels, const Eigen::Isometry3d& prior,
                                 Eigen::Isometry3d& T_previous_current) const {
  std::vector<Eigen::Vector3d> points;
  const Eigen::Isometry3d T_cw = T_world_camera_.inverse();
  const size_t stride = std::max<size_t>(1, tracks_.size() / size_t(std::max(1, parameters_.sparse_alignment_points)));
  for (size_t i = 0; i < tracks_.size(); i += stride) {
    auto lm = map_.landmarks.find(tracks_[i].landmark);
    if (lm != map_.landmarks.end()) points.push_back(T_cw * lm->second.p_world);
  }
  Eigen::Isometry3d T_current_previous = prior.inverse();
  if (!sparse_.align(previous_levels_, levels, points, T_current_previous)) return false;
  T_previous_current = T_current_previous.inverse();
  return true;
}

StereoOdometry::Estimate StereoOdometry::matchDescriptors(const cv::Mat& left, int segment) const {
  Estimate e;
  // The local map: the landmarks of the latest keyframes with their descriptors from every one that
  // saw them (a blurred keyframe's description is not the only one).
  cv::Mat train;
  std::vector<int> landmarks;
  std::set<int> distinct;
  int used = 0;
  for (auto kf = map_.keyframes.rbegin(); kf != map_.keyframes.rend() && used < parameters_.descriptor_keyframes;
       ++kf) {
    if (kf->second.segment != segment || kf->second.descriptors.rows != int(kf->second.observations.size())) continue;
    ++used;
    for (size_t i = 0; i < kf->second.observations.size(); ++i) {
      const int landmark = kf->second.observations[i].landmark;
      if (emptyDescriptor(kf->second.descriptors.row(int(i))) || !map_.landmarks.count(landmark)) continue;
      train.push_back(kf->second.descriptors.row(int(i)));
      landmarks.push_back(landmark);
      distinct.insert(landmark);
    }
  }
  if (int(distinct.size()) < parameters_.min_inliers) return e;
  FeatureParameters fp = parameters_.features;
  fp.cell_px = std::max(8, int(std::sqrt(double(left.total()) / parameters_.descriptor_cells)));
  const std::vector<cv::Point2f> pixels = detectFeatures(left, {}, fp);
  // Each pixel described as it is and as if the surface had come closer (driving forward).
  cv::Mat query;
  for (int octave = 0; octave < parameters_.descriptor_octaves; ++octave)
    query.push_back(describeFeatures(*orb_, left, pixels, octave));
  std::vector<std::vector<cv::DMatch>> knn;
  cv::BFMatcher(cv::NORM_HAMMING).knnMatch(query, train, knn, 4);
  // The best pixel of each landmark, when it is clearly better than the pixel's best other landmark.
  std::map<int, std::pair<float, int>> best;  // landmark -> (distance, pixel)
  for (const auto& m : knn) {
    if (m.empty() || m[0].distance > 64 || emptyDescriptor(query.row(m[0].queryIdx))) continue;
    auto other = std::find_if(m.begin() + 1, m.end(), [&](const cv::DMatch& d) {
      return landmarks[size_t(d.trainIdx)] != landmarks[size_t(m[0].trainIdx)];
    });
    if (other != m.end() && m[0].distance > 0.8f * other->distance) continue;
    auto it = best.find(landmarks[size_t(m[0].trainIdx)]);
    if (it == best.end() || m[0].distance < it->second.first)
      best[landmarks[size_t(m[0].trainIdx)]] = {m[0].distance, m[0].queryIdx % int(pixels.size())};
  }
  std::vector<cv::Point3f> object;
  std::vector<cv::Point2f> image;
  std::vector<int> which;
  for (const auto& [id, match] : best) {
    const Eigen::Vector3d& p = map_.landmarks.at(id).p_world;
    object.emplace_back(float(p.x()), float(p.y()), float(p.z()));
    image.push_back(pixels[size_t(match.second)]);
    which.push_back(id);
  }
  if (int(object.size()) < parameters_.min_inliers) return e;
  cv::Mat rvec, tvec;
  std::vector<int> ransac;
  if (!cv::solvePnPRansac(object, image, K_, cv::noArray(), rvec, tvec, false, 300, float(parameters_.ransac_px), 0.999,
                          ransac, cv::SOLVEPNP_AP3P) ||
      int(ransac.size()) < parameters_.min_inliers)
    return e;
  // The consensus found without a prior is refined as it is: a second sampling from the found pose
  // would draw from the same mostly wrong matches.
  e.T_world_camera = fromRvecTvec(rvec, tvec);
  std::vector<char> inlier;
  if (!refinePose(object, image, ransac, e.T_world_camera, inlier)) return e;
  e.ok = true;
  for (size_t k = 0; k < which.size(); ++k) {
    if (inlier[k])
      e.inliers.push_back({which[k], image[k]});
    else
      e.rejected.push_back(image[k]);
  }
  return e;
}

bool StereoOdometry::locate(const cv::Mat& left, int segment, Eigen::Isometry3d& T_world_camera,
                            std::vector<std::pair<int, cv::Point2f>>& inliers) const {
  const Estimate e = matchDescriptors(left, segment);
  if (!e.ok) return false;
  T_world_camera = e.T_world_camera;
  inliers.clear();
  for (const Track& t : e.inliers) inliers.emplace_back(t.landmark, t.px);
  return true;
}

OdometryOutput StereoOdometry::track(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth,
                                     int frame_index, double t_s) {
  std::vector<cv::Mat> pyramid;
  const cv::Size window(parameters_.klt_window_px, parameters_.klt_window_px);
  cv::buildOpticalFlowPyramid(left, pyramid, window, parameters_.klt_levels);
  const double dt =
      last_t_s_ < 0 ? parameters_.nominal_interval_s : frameInterval(last_t_s_, t_s, parameters_.nominal_interval_s);
  last_t_s_ = t_s;
  std::vector<cv::Mat> levels = sparse_.prepare(left);
  if (!started_) {
    OdometryOutput out = initialise(left, right, depth, frame_index);
    out.T_world_guess = T_world_camera_;
    previous_pyramid_ = std::move(pyramid);
    previous_levels_ = std::move(levels);
    return out;
  }

  OdometryOutput out;
  out.T_world_camera = T_world_camera_;
  out.reference_keyframe_id = window_.empty() ? -1 : window_.back();
  // Where the motion model expects the camera; when that leaves too few tracks (a fast turn, a
  // shake that reversed, the first frames before any motion is known), where the tracks' patches
  // say it went (aligned from that prediction), then standing still.
  const Eigen::Isometry3d predicted = motion_.predict(dt);
  const size_t good = size_t(parameters_.good_inlier_ratio * double(tracks_.size()));
  Estimate best;
  if (motion_.known()) best = followTracks(pyramid, left.size(), T_world_camera_ * predicted);
  Eigen::Isometry3d aligned;
  const bool sparse = best.inliers.size() < good && alignSparse(levels, predicted, aligned);
  if (sparse) {
    Estimate e = followTracks(pyramid, left.size(), T_world_camera_ * aligned);
    if (e.inliers.size() > best.inliers.size()) best = std::move(e);
  }
  // The best single guess of a frame that cannot be tracked: the patches' answer, else the motion
  // model while the camera moves steadily, standing still while it shakes.
  const Eigen::Isometry3d guess = sparse ? aligned : motion_.steady() ? predicted : Eigen::Isometry3d::Identity();
  if (best.inliers.size() < good && motion_.known()) {
    Estimate e = followTracks(pyramid, left.size(), T_world_camera_);
    if (e.inliers.size() > best.inliers.size()) best = std::move(e);
  }
  out.T_world_guess = T_world_camera_ * guess;
  if (int(best.inliers.size()) < parameters_.descriptor_fallback_inliers) {
    // Flow failed (a fast turn, a jump between frames far apart): the local map's descriptors need
    // no prior; their pose then guides the flow again for the tracks they did not find.
    Estimate matched = matchDescriptors(left, map_.segment);
    if (matched.ok) {
      Estimate guided = followTracks(pyramid, left.size(), matched.T_world_camera);
      if (guided.inliers.size() > matched.inliers.size()) matched = std::move(guided);
      if (matched.inliers.size() > best.inliers.size()) best = std::move(matched);
    }
  }
  previous_levels_ = std::move(levels);
  if (!best.ok) {
    out.rejected = best.rejected;
    previous_pyramid_ = std::move(pyramid);
    return out;  // lost: the caller decides how to recover
  }
  tracks_ = best.inliers;
  for (const Track& t : tracks_) out.used.push_back(t.px);
  out.rejected = best.rejected;
  motion_.update(T_world_camera_.inverse() * best.T_world_camera, dt);
  T_world_camera_ = best.T_world_camera;
  out.ok = true;
  out.inliers = int(tracks_.size());
  out.confidence = std::min(100, int(100.0 * out.inliers / std::max(1, keyframe_landmarks_)));
  ++frames_since_keyframe_;

  const Eigen::Isometry3d since = T_world_keyframe_.inverse() * T_world_camera_;
  const bool need_keyframe = out.inliers < parameters_.keyframe_min_inliers ||
                             out.inliers < parameters_.keyframe_inlier_ratio * keyframe_landmarks_ ||
                             frames_since_keyframe_ >= parameters_.keyframe_max_frames ||
                             since.translation().norm() > parameters_.keyframe_distance_m ||
                             rotationAngle(since) > parameters_.keyframe_angle_rad;
  if (need_keyframe) {
    out.new_keyframe_id = makeKeyframe(left, right, depth, frame_index);
    out.reference_keyframe_id = out.new_keyframe_id;
  }
  out.T_world_camera = T_world_camera_;
  previous_pyramid_ = std::move(pyramid);
  return out;
}

int StereoOdometry::makeKeyframe(const cv::Mat& left, const cv::Mat& right, const FrameDepth& depth, int frame_index) {
  const double fb = calibration_.fx * calibration_.baseline_m;
  const float min_d = float(fb / parameters_.max_depth_m);
  const float max_d = float(std::min(fb / parameters_.min_depth_m, double(left.cols) / 2));
  Keyframe kf;
  kf.id = map_.next_keyframe_id++;
  kf.frame_index = frame_index;
  kf.T_world_camera = T_world_camera_;
  kf.segment = map_.segment;

  // Tracked landmarks: right-image column near the predicted disparity.
  std::vector<cv::Point2f> tracked;
  std::vector<float> guess;
  const Eigen::Isometry3d T_cw = T_world_camera_.inverse();
  for (const Track& t : tracks_) {
    tracked.push_back(t.px);
    const Eigen::Vector3d p = T_cw * map_.landmarks[t.landmark].p_world;
    guess.push_back(p.z() > 0 ? float(fb / p.z()) : 0.f);
  }
  const std::vector<float> tracked_d =
      matchStereo(left, right, tracked, guess, min_d, max_d, 3.f, parameters_.features);
  for (size_t i = 0; i < tracks_.size(); ++i) {
    kf.observations.push_back({tracks_[i].landmark, tracked[i].x, tracked[i].y, tracked[i].x - tracked_d[i]});
    ++map_.landmarks[tracks_[i].landmark].observations;
  }

  // New landmarks in the cells the tracks leave empty, searched over the disparities the tracked
  // landmarks span (with a margin) when there are enough of them.
  float lo = min_d, hi = max_d;
  std::vector<float> known;
  for (float d : tracked_d)
    if (std::isfinite(d)) known.push_back(d);
  if (parameters_.narrow_stereo_search && known.size() >= 20) {
    std::sort(known.begin(), known.end());
    lo = std::max(min_d, 0.5f * known[known.size() / 50]);
    hi = std::min(max_d, 1.5f * known[known.size() - 1 - known.size() / 50] + 4.f);
  }
  const std::vector<cv::Point2f> fresh = detectFeatures(left, tracked, parameters_.features);
  const std::vector<float> fresh_d =
      matchStereo(left, right, fresh, disparityGuess(depth.get(), fresh), lo, hi, 2.f, parameters_.features);
  for (size_t i = 0; i < fresh.size(); ++i) {
    if (!std::isfinite(fresh_d[i])) continue;
    Landmark lm;
    lm.p_world = T_world_camera_ * backProject(calibration_, fresh[i].x, fresh[i].y, fresh_d[i]);
    lm.observations = 1;
    const int lid = map_.next_landmark_id++;
    map_.landmarks[lid] = lm;
    kf.observations.push_back({lid, fresh[i].x, fresh[i].y, fresh[i].x - fresh_d[i]});
    tracks_.push_back({lid, fresh[i]});
  }
  std::vector<cv::Point2f> observed;
  for (const Observation& o : kf.observations) observed.emplace_back(o.u, o.v);
  kf.descriptors = describeFeatures(*orb_, left, observed);
  map_.keyframes[kf.id] = kf;
  window_.push_back(kf.id);
  slideWindow();

  if (window_.size() >= 2) {
    const std::vector<int> ids(window_.begin(), window_.end());
    bundleAdjust(map_, calibration_, ids, 1, parameters_.bundle);
    T_world_camera_ = map_.keyframes[kf.id].T_world_camera;
    // Tracks whose landmark the adjustment dropped (or whose observation here was an outlier) end.
    std::set<int> seen;
    for (const Observation& o : map_.keyframes[kf.id].observations) seen.insert(o.landmark);
    std::vector<Track> kept;
    for (const Track& t : tracks_)
      if (seen.count(t.landmark) && map_.landmarks.count(t.landmark)) kept.push_back(t);
    tracks_.swap(kept);
  }
  T_world_keyframe_ = T_world_camera_;
  keyframe_landmarks_ = int(tracks_.size());
  frames_since_keyframe_ = 0;
  return kf.id;
}

void StereoOdometry::applyCorrection(const Eigen::Isometry3d& T_correction) {
  T_world_camera_ = T_correction * T_world_camera_;
  T_world_keyframe_ = T_correction * T_world_keyframe_;
}

void StereoOdometry::remapLandmarks(const std::map<int, int>& old_to_new) {
  for (Track& t : tracks_) {
    auto it = old_to_new.find(t.landmark);
    if (it != old_to_new.end()) t.landmark = it->second;
  }
}

void StereoOdometry::slideWindow() {
  while (int(window_.size()) > parameters_.window_keyframes) {
    const int old = window_.front();
    window_.pop_front();
    if (!parameters_.keep_keyframes) dropKeyframe(old);
  }
}

void StereoOdometry::dropKeyframe(int id) {
  auto it = map_.keyframes.find(id);
  if (it == map_.keyframes.end()) return;
  std::set<int> tracked;
  for (const Track& t : tracks_) tracked.insert(t.landmark);
  for (const Observation& o : it->second.observations) {
    auto lm = map_.landmarks.find(o.landmark);
    if (lm != map_.landmarks.end() && --lm->second.observations <= 0 && !tracked.count(o.landmark))
      map_.landmarks.erase(lm);
  }
  map_.keyframes.erase(it);
}

}  // namespace pv::internal
