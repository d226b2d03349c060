// How well each depth mode's confidence ranks its errors on the shared real pairs: the
// sparsification curve (bad-2px among the most confident pixels against their density, mean over
// the scenes) beside OpenCV's StereoSGBM at several uniqueness margins (its own way of trading
// density for accuracy), printed and drawn; and, for one scene, a picture of each mode's
// disparity and confidence beside SGBM's.
//
//   bench_depth_confidence [--out DIR] [--scene NAME]   (DIR gets sparsification.png and NAME.png)
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "depth/internal/stereo_dataset.h"
#include "depth/internal/stereo_engine.h"
#include "machine.h"

namespace {

using pv::internal::SparsificationPoint;

struct Curve {
  std::string name;
  cv::Scalar colour;
  std::vector<SparsificationPoint> points;  // mean over the scenes
};

const pv::DEPTH_MODE kModes[3] = {pv::DEPTH_MODE::PERFORMANCE, pv::DEPTH_MODE::QUALITY, pv::DEPTH_MODE::ULTRA};

std::vector<std::string> sharedScenes() {
  const std::string root = MAPURA_SHARED_DATA;
  std::vector<std::string> scenes;
  for (const char* set : {"middlebury2014_quarter", "middlebury_v2", "eth3d_two_view"}) {
    std::vector<std::string> inside;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(root + "/" + set, ec))
      if (entry.is_directory()) inside.push_back(entry.path().string());
    std::sort(inside.begin(), inside.end());
    scenes.insert(scenes.end(), inside.begin(), inside.end());
  }
  return scenes;
}

/// Disparity in colour (near warm, far cool, invalid black) over 0 .. `max_px`.
cv::Mat colourDisparity(const cv::Mat& d, float max_px) {
  cv::Mat scaled, colour;
  d.convertTo(scaled, CV_8U, 255.0 / max_px);
  cv::applyColorMap(scaled, colour, cv::COLORMAP_TURBO);
  colour.setTo(cv::Scalar::all(0), d != d);
  return colour;
}

/// Confidence from sure (dark) to unsure (bright), invalid black.
cv::Mat colourConfidence(const cv::Mat& c) {
  cv::Mat scaled, colour;
  c.convertTo(scaled, CV_8U, 2.55);
  cv::applyColorMap(scaled, colour, cv::COLORMAP_INFERNO);
  colour.setTo(cv::Scalar::all(0), c != c);
  return colour;
}

void label(cv::Mat& image, const std::string& text) {
  cv::putText(image, text, cv::Point(8, 22), cv::FONT_HERSHEY_SIMPLEX, 0.6, cv::Scalar::all(0), 3, cv::LINE_AA);
  cv::putText(image, text, cv::Point(8, 22), cv::FONT_HERSHEY_SIMPLEX, 0.6, cv::Scalar::all(255), 1, cv::LINE_AA);
}

/// Bad-2px against density, 0..100 % by 0..max_bad %.
cv::Mat drawCurves(const std::vector<Curve>& curves, double max_bad) {
  const int w = 900, h = 600, left = 70, right = 20, top = 40, bottom = 60;
  cv::Mat image(h, w, CV_8UC3, cv::Scalar::all(255));
  const auto at = [&](double density, double bad) {
    return cv::Point(int(left + density / 100.0 * (w - left - right)),
                     int(h - bottom - std::min(bad, max_bad) / max_bad * (h - top - bottom)));
  };
  for (int d = 0; d <= 100; d += 10) {
    cv::line(image, at(d, 0), at(d, max_bad), cv::Scalar::all(225), 1);
    cv::putText(image, std::to_string(d), at(d, 0) + cv::Point(-10, 20), cv::FONT_HERSHEY_SIMPLEX, 0.45,
                cv::Scalar::all(60), 1, cv::LINE_AA);
  }
  for (int b = 0; b <= int(max_bad); b += 2) {
    cv::line(image, at(0, b), at(100, b), cv::Scalar::all(225), 1);
    cv::putText(image, std::to_string(b), at(0, b) + cv::Point(-30, 5), cv::FONT_HERSHEY_SIMPLEX, 0.45,
                cv::Scalar::all(60), 1, cv::LINE_AA);
  }
  cv::putText(image, "density (% of the pixels evaluated), most confident first", cv::Point(left + 160, h - 15),
              cv::FONT_HERSHEY_SIMPLEX, 0.5, cv::Scalar::all(30), 1, cv::LINE_AA);
  cv::putText(image, "bad-2px % among the pixels kept (mean over the shared pairs)", cv::Point(10, 25),
              cv::FONT_HERSHEY_SIMPLEX, 0.5, cv::Scalar::all(30), 1, cv::LINE_AA);
  int legend = 0;
  for (const Curve& c : curves) {
    for (size_t i = 0; i + 1 < c.points.size(); ++i)
      cv::line(image, at(c.points[i].density_pct, c.points[i].bad2_pct),
               at(c.points[i + 1].density_pct, c.points[i + 1].bad2_pct), c.colour, 2, cv::LINE_AA);
    for (const SparsificationPoint& p : c.points) cv::circle(image, at(p.density_pct, p.bad2_pct), 3, c.colour, -1);
    const cv::Point l(left + 20, top + 20 + 22 * legend++);
    cv::line(image, l, l + cv::Point(30, 0), c.colour, 3);
    cv::putText(image, c.name, l + cv::Point(40, 5), cv::FONT_HERSHEY_SIMPLEX, 0.5, cv::Scalar::all(30), 1,
                cv::LINE_AA);
  }
  return image;
}

}  // namespace

int main(int argc, char** argv) {
  std::string out_dir = ".", picture_scene = "Motorcycle";
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--out")) out_dir = argv[i + 1];
    if (!std::strcmp(argv[i], "--scene")) picture_scene = argv[i + 1];
  }
  mapura::bench::printMachine();
  const std::vector<std::string> scenes = sharedScenes();
  if (scenes.empty()) {
    std::fprintf(stderr, "bench_depth_confidence: no shared pairs under %s\n", MAPURA_SHARED_DATA);
    return 1;
  }
  std::vector<double> densities;
  for (int d = 10; d <= 100; d += 5) densities.push_back(d);
  const std::vector<int> uniqueness = {0, 5, 10, 15, 20, 30, 40, 60};
  std::vector<Curve> curves = {{"PERFORMANCE", cv::Scalar(40, 160, 40), {}},
                               {"QUALITY", cv::Scalar(200, 100, 0), {}},
                               {"ULTRA", cv::Scalar(160, 0, 160), {}},
                               {"OpenCV SGBM, uniqueness 0..60 %", cv::Scalar(0, 0, 220), {}}};
  for (Curve& c : curves) c.points.assign(c.name.rfind("OpenCV", 0) == 0 ? uniqueness.size() : densities.size(), {});

  for (const std::string& dir : scenes) {
    pv::internal::StereoSample s;
    std::string error;
    if (!pv::internal::loadStereoSample(dir, s, error)) {
      std::fprintf(stderr, "bench_depth_confidence: %s\n", error.c_str());
      return 1;
    }
    cv::Mat left, right;
    cv::cvtColor(s.left_bgr, left, cv::COLOR_BGR2GRAY);
    cv::cvtColor(s.right_bgr, right, cv::COLOR_BGR2GRAY);
    const int range = pv::internal::searchRangeFor(s);
    const double share = 1.0 / double(scenes.size());
    std::vector<cv::Mat> row_disparity = {s.left_bgr.clone()}, row_confidence = {s.left_bgr.clone()};
    float max_px = 1.f;
    {
      double hi = 0;
      cv::minMaxLoc(s.gt_disparity_px, nullptr, &hi, nullptr, nullptr, s.gt_disparity_px == s.gt_disparity_px);
      max_px = float(hi);
    }
    label(row_disparity[0], s.name);
    for (int m = 0; m < 3; ++m) {
      pv::internal::StereoParameters params;
      params.mode = kModes[m];
      params.max_disparity_px = range;
      pv::internal::StereoOutput out;
      if (!pv::internal::computeStereo(left, right, params, out, error)) {
        std::fprintf(stderr, "bench_depth_confidence: %s\n", error.c_str());
        return 1;
      }
      const auto curve = pv::internal::sparsificationCurve(out.disparity_px, out.confidence, s.gt_disparity_px,
                                                           s.eval_mask, densities);
      for (size_t i = 0; i < curve.size(); ++i) {
        curves[size_t(m)].points[i].density_pct += share * curve[i].density_pct;
        curves[size_t(m)].points[i].bad2_pct += share * curve[i].bad2_pct;
      }
      row_disparity.push_back(colourDisparity(out.disparity_px, max_px));
      row_confidence.push_back(colourConfidence(out.confidence));
      label(row_disparity.back(), curves[size_t(m)].name);
      label(row_confidence.back(), curves[size_t(m)].name + " confidence");
    }
    for (size_t u = 0; u < uniqueness.size(); ++u) {
      const cv::Mat d = pv::internal::baselineSgbmDisparity(left, right, range, uniqueness[u]);
      const pv::internal::DisparityErrors e = pv::internal::compareDisparity(d, s.gt_disparity_px, s.eval_mask);
      curves[3].points[u].density_pct += share * e.valid_pct;
      curves[3].points[u].bad2_pct += share * e.bad2_returned_pct;
      if (uniqueness[u] == 10) {
        row_disparity.push_back(colourDisparity(d, max_px));
        label(row_disparity.back(), "OpenCV SGBM");
        row_confidence.push_back(colourDisparity(s.gt_disparity_px, max_px));
        label(row_confidence.back(), "ground truth");
      }
    }
    if (s.name == picture_scene) {
      cv::Mat top, bottom, both;
      cv::hconcat(row_disparity, top);
      cv::hconcat(row_confidence, bottom);
      cv::vconcat(top, bottom, both);
      const std::string path = out_dir + "/" + s.name + ".png";
      if (cv::imwrite(path, both)) std::printf("wrote %s\n", path.c_str());
    }
  }
  std::printf("sparsification, mean over %zu shared pairs: density %% -> bad-2px %% among the pixels kept\n",
              scenes.size());
  for (const Curve& c : curves) {
    std::printf("%-34s", c.name.c_str());
    for (const SparsificationPoint& p : c.points) std::printf(" %5.1f:%5.2f", p.density_pct, p.bad2_pct);
    std::printf("\n");
  }
  const std::string path = out_dir + "/sparsification.png";
  if (cv::imwrite(path, drawCurves(curves, 16.0))) std::printf("wrote %s\n", path.c_str());
  return 0;
}
