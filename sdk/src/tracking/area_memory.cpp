#include "tracking/internal/area_memory.h"

#include <algorithm>
#include <cmath>
#include <opencv2/calib3d.hpp>
#include <set>

namespace pv::internal {

AreaMemory::AreaMemory(const RectifiedCalibration& calibration, MapData& map, const AreaMemoryParameters& parameters)
    : calibration_(calibration), map_(map), parameters_(parameters), orb_(cv::ORB::create(500)) {
  K_ = (cv::Mat_<double>(3, 3) << calibration.fx, 0, calibration.cx, 0, calibration.fy, calibration.cy, 0, 0, 1);
}

void AreaMemory::describeKeyframe(int id, const cv::Mat& left) {
  auto it = map_.keyframes.find(id);
  if (it == map_.keyframes.end()) return;
  if (it->second.descriptors.rows == int(it->second.observations.size())) return;  // described by odometry
  std::vector<cv::Point2f> pixels;
  for (const Observation& o : it->second.observations) pixels.emplace_back(o.u, o.v);
  it->second.descriptors = describeFeatures(*orb_, left, pixels);
}

PlaceMatch AreaMemory::matchAgainst(const std::vector<cv::Point2f>& pixels, const cv::Mat& descriptors,
                                    const std::vector<int>& candidates, int exclude_from_id) {
  PlaceMatch result;
  if (descriptors.empty() || pixels.empty()) return result;
  // Best map landmark per query point over all candidates.
  struct Best {
    int landmark = -1;
    float distance = 1e9f;
    int keyframe = -1;
  };
  std::vector<Best> best(pixels.size());
  std::set<int> excluded;
  if (exclude_from_id >= 0)
    for (const Observation& o : map_.keyframes[exclude_from_id].observations) excluded.insert(o.landmark);
  for (int id : candidates) {
    const Keyframe& kf = map_.keyframes[id];
    if (kf.descriptors.empty()) continue;
    cv::BFMatcher matcher(cv::NORM_HAMMING);
    std::vector<std::vector<cv::DMatch>> knn;
    matcher.knnMatch(descriptors, kf.descriptors, knn, 2);
    for (const auto& m : knn) {
      if (m.empty() || m[0].distance > 64) continue;
      if (m[0].queryIdx >= descriptors.rows || m[0].trainIdx >= kf.descriptors.rows) continue;
      if (m.size() > 1 && m[0].distance > parameters_.ratio * m[1].distance) continue;
      const size_t q = size_t(m[0].queryIdx);
      if (emptyDescriptor(descriptors.row(m[0].queryIdx)) || emptyDescriptor(kf.descriptors.row(m[0].trainIdx)))
        continue;
      const int landmark = kf.observations[size_t(m[0].trainIdx)].landmark;
      if (!map_.landmarks.count(landmark) || excluded.count(landmark)) continue;
      if (m[0].distance < best[q].distance) best[q] = {landmark, m[0].distance, id};
    }
  }
  std::vector<cv::Point3f> object;
  std::vector<cv::Point2f> image;
  std::vector<size_t> query;
  for (size_t q = 0; q < best.size(); ++q) {
    if (best[q].landmark < 0) continue;
    const Eigen::Vector3d& p = map_.landmarks[best[q].landmark].p_world;
    object.emplace_back(float(p.x()), float(p.y()), float(p.z()));
    image.push_back(pixels[q]);
    query.push_back(q);
  }
  if (int(object.size()) < parameters_.min_inliers) return result;
  cv::Mat rvec, tvec;
  std::vector<int> inliers;
  if (!cv::solvePnPRansac(object, image, K_, cv::noArray(), rvec, tvec, false, 1000, float(parameters_.ransac_px),
                          0.999, inliers, cv::SOLVEPNP_EPNP) ||
      int(inliers.size()) < parameters_.min_inliers)
    return result;
  std::vector<cv::Point3f> o2;
  std::vector<cv::Point2f> i2;
  for (int i : inliers) {
    o2.push_back(object[size_t(i)]);
    i2.push_back(image[size_t(i)]);
  }
  cv::solvePnPRefineLM(o2, i2, K_, cv::noArray(), rvec, tvec);
  cv::Mat R;
  cv::Rodrigues(rvec, R);
  Eigen::Isometry3d T_cw = Eigen::Isometry3d::Identity();
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) T_cw.linear()(r, c) = R.at<double>(r, c);
    T_cw.translation()[r] = tvec.at<double>(r);
  }
  std::map<int, int> votes;
  for (int i : inliers) {
    ++votes[best[query[size_t(i)]].keyframe];
    result.landmark_pairs.emplace_back(int(query[size_t(i)]), best[query[size_t(i)]].landmark);
  }
  result.keyframe_id =
      std::max_element(votes.begin(), votes.end(), [](auto& a, auto& b) { return a.second < b.second; })->first;
  result.found = true;
  result.inliers = int(inliers.size());
  result.T_world_camera = T_cw.inverse();
  return result;
}

bool AreaMemory::closeLoop(int id, std::map<int, int>& merged) {
  merged.clear();
  auto it = map_.keyframes.find(id);
  if (it == map_.keyframes.end() || it->second.descriptors.empty()) return false;
  const Keyframe& current = it->second;
  const Eigen::Vector3d position = current.T_world_camera.translation();
  const Eigen::Vector3d axis = current.T_world_camera.linear().col(2);
  std::vector<std::pair<double, int>> near;
  for (const auto& [kid, kf] : map_.keyframes) {
    // Within one local map only older keyframes close a loop; another map's may be any.
    if (kf.segment == current.segment && kid > id - parameters_.min_keyframe_gap) continue;
    const double d = (kf.T_world_camera.translation() - position).norm();
    if (d < parameters_.loop_radius_m && kf.T_world_camera.linear().col(2).dot(axis) > 0.7) near.emplace_back(d, kid);
  }
  if (near.empty()) return false;
  std::sort(near.begin(), near.end());
  std::vector<int> candidates;
  for (size_t k = 0; k < near.size() && k < 5; ++k) candidates.push_back(near[k].second);
  std::vector<cv::Point2f> pixels;
  for (const Observation& o : current.observations) pixels.emplace_back(o.u, o.v);
  PlaceMatch match = matchAgainst(pixels, current.descriptors, candidates, id);
  if (!match.found) return false;
  // Every older landmark around that projects near a feature with a like descriptor, then the
  // keyframe's own stereo depths: a loop moves the whole map, so it must be sure and exact.
  const int segment = current.segment, newest = id - parameters_.min_keyframe_gap;
  refineByProjection(pixels, current.descriptors, match,
                     [&](const Keyframe& kf) { return kf.segment != segment || kf.id <= newest; });
  if (match.inliers < parameters_.loop_min_inliers || !stereoAgrees(match, current)) return false;

  // Merge the re-observed landmarks into the older ones.
  for (const auto& [q, old_landmark] : match.landmark_pairs) {
    const int fresh = current.observations[size_t(q)].landmark;
    if (fresh != old_landmark) merged[fresh] = old_landmark;
  }
  for (auto& [kid, kf] : map_.keyframes) {
    std::set<int> seen;
    std::vector<Observation> kept;
    cv::Mat kept_descriptors;
    bool changed = false;
    for (size_t i = 0; i < kf.observations.size(); ++i) {
      Observation o = kf.observations[i];
      auto m = merged.find(o.landmark);
      if (m != merged.end()) {
        o.landmark = m->second;
        changed = true;
      }
      if (!seen.insert(o.landmark).second) continue;  // the keyframe already sees the older landmark
      kept.push_back(o);
      if (!kf.descriptors.empty()) kept_descriptors.push_back(kf.descriptors.row(int(i)));
    }
    if (!changed) continue;
    kf.observations.swap(kept);
    if (!kf.descriptors.empty()) kf.descriptors = kept_descriptors;
  }
  for (const auto& [fresh, old_landmark] : merged) {
    auto f = map_.landmarks.find(fresh);
    if (f == map_.landmarks.end()) continue;
    map_.landmarks[old_landmark].observations += f->second.observations;
    map_.landmarks.erase(f);
  }
  const Eigen::Isometry3d& T_world_old = map_.keyframes[match.keyframe_id].T_world_camera;
  loops_.push_back({match.keyframe_id, id, T_world_old.inverse() * match.T_world_camera, parameters_.loop_weight});
  // Two local maps linked: from now on they are one.
  const int joined = map_.keyframes[id].segment, into = map_.keyframes[match.keyframe_id].segment;
  if (joined != into) {
    for (auto& [kid, kf] : map_.keyframes)
      if (kf.segment == joined) kf.segment = into;
    if (map_.segment == joined) map_.segment = into;
  }
  optimise();
  return true;
}

void AreaMemory::joinSegments(int from_segment, int into_keyframe, int from_keyframe,
                              const Eigen::Isometry3d& T_correction) {
  const int into = map_.keyframes.at(into_keyframe).segment;
  std::set<int> moved;
  for (auto& [kid, kf] : map_.keyframes) {
    if (kf.segment != from_segment) continue;
    kf.T_world_camera = T_correction * kf.T_world_camera;
    kf.segment = into;
    for (const Observation& o : kf.observations) moved.insert(o.landmark);
  }
  for (int id : moved) {
    auto lm = map_.landmarks.find(id);
    if (lm != map_.landmarks.end()) lm->second.p_world = T_correction * lm->second.p_world;
  }
  if (map_.segment == from_segment) map_.segment = into;
  // Their relative pose, as now measured, holds them together in later optimisations.
  const Keyframe &a = map_.keyframes.at(into_keyframe), &b = map_.keyframes.at(from_keyframe);
  loops_.push_back(
      {into_keyframe, from_keyframe, a.T_world_camera.inverse() * b.T_world_camera, parameters_.loop_weight});
}

void AreaMemory::optimise() {
  if (map_.keyframes.empty()) return;
  std::vector<PoseEdge> edges = odometryEdges(map_);
  edges.insert(edges.end(), loops_.begin(), loops_.end());
  optimisePoseGraph(map_, edges, map_.keyframes.begin()->first);
}

void AreaMemory::forgetKeyframe(int id) {
  loops_.erase(
      std::remove_if(loops_.begin(), loops_.end(), [id](const PoseEdge& e) { return e.from == id || e.to == id; }),
      loops_.end());
}

bool AreaMemory::stereoAgrees(const PlaceMatch& match, const Keyframe& keyframe) const {
  const Eigen::Isometry3d T_cw = match.T_world_camera.inverse();
  const double fb = calibration_.fx * calibration_.baseline_m;
  int checked = 0, agree = 0;
  for (const auto& [q, landmark] : match.landmark_pairs) {
    const Observation& o = keyframe.observations[size_t(q)];
    auto lm = map_.landmarks.find(landmark);
    if (!std::isfinite(o.u_right) || lm == map_.landmarks.end()) continue;
    const Eigen::Vector3d p = T_cw * lm->second.p_world;
    if (p.z() <= 0) continue;
    ++checked;
    agree += std::abs((o.u - o.u_right) - fb / p.z()) < 1.5;
  }
  return checked >= 10 && agree * 3 >= checked * 2;
}

void AreaMemory::refineByProjection(const std::vector<cv::Point2f>& pixels, const cv::Mat& descriptors,
                                    PlaceMatch& match, const std::function<bool(const Keyframe&)>& usable) {
  // Every landmark described in a keyframe near the found pose, with its latest descriptor.
  std::map<int, cv::Mat> described;
  const Eigen::Vector3d position = match.T_world_camera.translation();
  const Eigen::Vector3d axis = match.T_world_camera.linear().col(2);
  for (const auto& [kid, kf] : map_.keyframes) {
    if (kf.descriptors.empty() || (kf.T_world_camera.translation() - position).norm() > parameters_.loop_radius_m ||
        kf.T_world_camera.linear().col(2).dot(axis) < 0.5 || !usable(kf))
      continue;
    for (size_t i = 0; i < kf.observations.size(); ++i)
      described[kf.observations[i].landmark] = kf.descriptors.row(int(i));
  }
  const double cell = 8.0;
  std::multimap<std::pair<int, int>, int> grid;
  for (size_t q = 0; q < pixels.size(); ++q)
    grid.emplace(std::make_pair(int(pixels[q].x / cell), int(pixels[q].y / cell)), int(q));
  for (int round = 0; round < 2; ++round) {
    const Eigen::Isometry3d T_cw = match.T_world_camera.inverse();
    std::map<int, std::pair<int, int>> best;  // query -> (distance, landmark)
    for (const auto& [lid, d] : described) {
      auto lm = map_.landmarks.find(lid);
      if (lm == map_.landmarks.end() || emptyDescriptor(d)) continue;
      double u, v;
      if (!projectPoint(calibration_, T_cw * lm->second.p_world, u, v)) continue;
      const int gx = int(u / cell), gy = int(v / cell);
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          auto range = grid.equal_range({gx + dx, gy + dy});
          for (auto it = range.first; it != range.second; ++it) {
            const cv::Point2f& p = pixels[size_t(it->second)];
            if ((p.x - u) * (p.x - u) + (p.y - v) * (p.y - v) > cell * cell) continue;
            const int h = int(cv::norm(descriptors.row(it->second), d, cv::NORM_HAMMING));
            if (h > 50) continue;
            auto b = best.find(it->second);
            if (b == best.end() || h < b->second.first) best[it->second] = {h, lid};
          }
        }
    }
    std::vector<cv::Point3f> object;
    std::vector<cv::Point2f> image;
    std::vector<std::pair<int, int>> pairs;
    for (const auto& [q, hl] : best) {
      const Eigen::Vector3d& p = map_.landmarks[hl.second].p_world;
      object.emplace_back(float(p.x()), float(p.y()), float(p.z()));
      image.push_back(pixels[size_t(q)]);
      pairs.emplace_back(q, hl.second);
    }
    if (int(object.size()) < parameters_.min_inliers) return;
    Eigen::Isometry3d T = match.T_world_camera;
    std::vector<char> inlier;
    if (!refinePose(object, image, T, inlier)) return;
    match.T_world_camera = T;
    match.landmark_pairs.clear();
    match.inliers = 0;
    for (size_t k = 0; k < pairs.size(); ++k)
      if (inlier[k]) {
        match.landmark_pairs.push_back(pairs[k]);
        ++match.inliers;
      }
  }
}

bool AreaMemory::refinePose(const std::vector<cv::Point3f>& object, const std::vector<cv::Point2f>& image,
                            Eigen::Isometry3d& T_world_camera, std::vector<char>& inlier) const {
  const Eigen::Isometry3d T_cw = T_world_camera.inverse();
  cv::Mat R(3, 3, CV_64F), rvec, tvec(3, 1, CV_64F);
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) R.at<double>(r, c) = T_cw.linear()(r, c);
    tvec.at<double>(r) = T_cw.translation()[r];
  }
  cv::Rodrigues(R, rvec);
  const double threshold = 2.0;
  std::vector<cv::Point3f> o;
  std::vector<cv::Point2f> i;
  std::vector<cv::Point2f> projected;
  for (int pass = 0; pass < 3; ++pass) {
    cv::projectPoints(object, rvec, tvec, K_, cv::noArray(), projected);
    o.clear();
    i.clear();
    inlier.assign(object.size(), 0);
    for (size_t k = 0; k < object.size(); ++k) {
      const cv::Point2f d = projected[k] - image[k];
      if (d.dot(d) < (pass == 0 ? 4 : 1) * threshold * threshold) {
        o.push_back(object[k]);
        i.push_back(image[k]);
        inlier[k] = 1;
      }
    }
    if (int(o.size()) < parameters_.min_inliers) return false;
    cv::solvePnPRefineLM(o, i, K_, cv::noArray(), rvec, tvec);
  }
  cv::Rodrigues(rvec, R);
  Eigen::Isometry3d out = Eigen::Isometry3d::Identity();
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) out.linear()(r, c) = R.at<double>(r, c);
    out.translation()[r] = tvec.at<double>(r);
  }
  T_world_camera = out.inverse();
  return true;
}

PlaceMatch AreaMemory::relocalise(const cv::Mat& left, const Eigen::Vector3d* near, int exclude_segment) {
  FeatureParameters fp;
  fp.cell_px = 24;
  const std::vector<cv::Point2f> pixels = detectFeatures(left, {}, fp);
  const cv::Mat descriptors = describeFeatures(*orb_, left, pixels);
  std::vector<int> candidates;
  for (const auto& [kid, kf] : map_.keyframes)
    if ((!near || (kf.T_world_camera.translation() - *near).norm() < parameters_.loop_radius_m) &&
        kf.segment != exclude_segment)
      candidates.push_back(kid);
  PlaceMatch match = matchAgainst(pixels, descriptors, candidates, -1);
  if (match.found)
    refineByProjection(pixels, descriptors, match,
                       [exclude_segment](const Keyframe& kf) { return kf.segment != exclude_segment; });
  match.query_pixels = pixels;
  return match;
}

bool AreaMemory::confirmWithStereo(const PlaceMatch& match, const cv::Mat& left, const cv::Mat& right) const {
  if (!match.found) return false;
  const Eigen::Isometry3d T_cw = match.T_world_camera.inverse();
  const double fb = calibration_.fx * calibration_.baseline_m;
  std::vector<cv::Point2f> points;
  std::vector<float> expected;
  for (const auto& [q, landmark] : match.landmark_pairs) {
    auto lm = map_.landmarks.find(landmark);
    if (lm == map_.landmarks.end() || size_t(q) >= match.query_pixels.size()) continue;
    const Eigen::Vector3d p = T_cw * lm->second.p_world;
    if (p.z() <= 0) continue;
    points.push_back(match.query_pixels[size_t(q)]);
    expected.push_back(float(fb / p.z()));
  }
  if (points.empty()) return false;
  // Search wide around the expected disparity; agreement within a pixel and a half counts.
  const std::vector<float> measured =
      matchStereo(left, right, points, expected, 0.5f, float(left.cols) / 2, 12.f, FeatureParameters());
  int checked = 0, agree = 0;
  for (size_t i = 0; i < points.size(); ++i) {
    if (!std::isfinite(measured[i])) continue;
    ++checked;
    if (std::abs(measured[i] - expected[i]) < 1.5f) ++agree;
  }
  return checked >= 10 && agree * 2 >= checked;
}

}  // namespace pv::internal
