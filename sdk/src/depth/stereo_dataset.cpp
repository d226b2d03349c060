#include "depth/internal/stereo_dataset.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

namespace pv::internal {

namespace fs = std::filesystem;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

std::string firstExisting(const std::string& dir, std::initializer_list<const char*> names) {
  for (const char* n : names) {
    const fs::path p = fs::path(dir) / n;
    if (fs::is_regular_file(p)) return p.string();
  }
  return {};
}

// Middlebury calib.txt: "key=value" lines; returns ndisp or 0.
int readCalibNdisp(const std::string& path) {
  std::ifstream f(path);
  std::string line;
  while (std::getline(f, line)) {
    if (line.rfind("ndisp=", 0) == 0) return std::atoi(line.c_str() + 6);
  }
  return 0;
}

}  // namespace

bool readPfm(const std::string& path, cv::Mat& out, std::string& error) {
  std::ifstream f(path, std::ios::binary);
  if (!f) {
    error = "cannot open " + path;
    return false;
  }
  std::string magic;
  int width = 0, height = 0;
  double scale = 0;
  f >> magic >> width >> height >> scale;
  if (!f || magic != "Pf" || width <= 0 || height <= 0 || width > 1 << 15 || height > 1 << 15 || scale == 0) {
    error = path + " is not a one-channel PFM file";
    return false;
  }
  f.get();  // the single whitespace before the raster
  cv::Mat raster(height, width, CV_32F);
  f.read(reinterpret_cast<char*>(raster.data), static_cast<std::streamsize>(raster.total() * sizeof(float)));
  if (f.gcount() != static_cast<std::streamsize>(raster.total() * sizeof(float))) {
    error = path + " is truncated";
    return false;
  }
  if (scale > 0) {  // big-endian raster
    auto* p = reinterpret_cast<uint32_t*>(raster.data);
    for (size_t i = 0; i < raster.total(); ++i) p[i] = __builtin_bswap32(p[i]);
  }
  cv::flip(raster, out, 0);  // PFM rows run bottom to top
  return true;
}

cv::Mat visibleInRight(const cv::Mat& gt) {
  cv::Mat mask(gt.size(), CV_8U, cv::Scalar(0));
  for (int y = 0; y < gt.rows; ++y) {
    const float* d = gt.ptr<float>(y);
    uint8_t* m = mask.ptr<uint8_t>(y);
    // Scanning right to left, a point is hidden when a point to its right lands further left in
    // the right image (a nearer surface in front of it).
    float min_right_x = std::numeric_limits<float>::infinity();
    for (int x = gt.cols - 1; x >= 0; --x) {
      if (!std::isfinite(d[x])) continue;
      const float xr = static_cast<float>(x) - d[x];
      if (xr >= 0 && xr <= min_right_x + 0.5f) m[x] = 255;
      min_right_x = std::min(min_right_x, xr);
    }
  }
  return mask;
}

bool loadStereoSample(const std::string& dir, StereoSample& sample, std::string& error) {
  sample = StereoSample();
  sample.name = fs::path(dir).filename().string();
  if (sample.name.empty()) sample.name = fs::path(dir).parent_path().filename().string();
  if (!fs::is_directory(dir)) {
    error = dir + " is not a folder";
    return false;
  }
  const std::string left = firstExisting(dir, {"im0.png", "imL.png"});
  const std::string right = firstExisting(dir, {"im1.png", "imR.png"});
  if (left.empty() || right.empty()) {
    error = dir + " holds no im0/im1 or imL/imR pair";
    return false;
  }
  sample.left_bgr = cv::imread(left, cv::IMREAD_COLOR);
  sample.right_bgr = cv::imread(right, cv::IMREAD_COLOR);
  if (sample.left_bgr.empty() || sample.right_bgr.empty()) {
    error = "cannot read the images in " + dir;
    return false;
  }
  if (sample.left_bgr.size() != sample.right_bgr.size()) {
    error = "the left and right images in " + dir + " differ in size";
    return false;
  }

  const std::string info = firstExisting(dir, {"info.txt"});
  double png_scale = 1;
  if (!info.empty()) {
    std::ifstream f(info);
    f >> png_scale >> sample.max_disparity_px;
    if (!f || png_scale <= 0) {
      error = info + " does not hold a scale and a maximum disparity";
      return false;
    }
  }
  const std::string calib = firstExisting(dir, {"calib.txt"});
  if (!calib.empty()) sample.max_disparity_px = readCalibNdisp(calib);

  const std::string pfm = firstExisting(dir, {"disp0.pfm", "disp0GT.pfm"});
  const std::string png = firstExisting(dir, {"groundtruth.png", "disp0.png"});
  if (!pfm.empty()) {
    if (!readPfm(pfm, sample.gt_disparity_px, error)) return false;
    cv::Mat finite = sample.gt_disparity_px == sample.gt_disparity_px;  // NaN != NaN
    cv::Mat below_inf = sample.gt_disparity_px < std::numeric_limits<float>::infinity();
    sample.gt_disparity_px.setTo(kNaN, ~(finite & below_inf));
  } else if (!png.empty()) {
    cv::Mat raw = cv::imread(png, cv::IMREAD_GRAYSCALE);
    if (raw.empty()) {
      error = "cannot read " + png;
      return false;
    }
    raw.convertTo(sample.gt_disparity_px, CV_32F, 1.0 / png_scale);
    sample.gt_disparity_px.setTo(kNaN, raw == 0);
  } else {
    error = dir + " holds no ground truth (disp0.pfm, groundtruth.png or disp0.png)";
    return false;
  }
  if (sample.gt_disparity_px.size() != sample.left_bgr.size()) {
    error = "the ground truth in " + dir + " does not match the image size";
    return false;
  }

  const cv::Mat known = sample.gt_disparity_px == sample.gt_disparity_px;
  const std::string mask = firstExisting(dir, {"nonocc.png", "mask0nocc.png"});
  if (!mask.empty()) {
    cv::Mat m = cv::imread(mask, cv::IMREAD_GRAYSCALE);
    if (m.size() != known.size()) {
      error = "the occlusion mask in " + dir + " does not match the image size";
      return false;
    }
    sample.eval_mask = (m == 255) & known;
    sample.mask_from_file = true;
  } else {
    sample.eval_mask = visibleInRight(sample.gt_disparity_px);
  }
  if (sample.max_disparity_px <= 0) {
    double max_gt = 0;
    cv::minMaxLoc(sample.gt_disparity_px, nullptr, &max_gt, nullptr, nullptr, known);
    sample.max_disparity_px = static_cast<int>(std::ceil(max_gt)) + 1;
  }
  return true;
}

int searchRangeFor(const StereoSample& s) {
  if (s.max_disparity_px > 0 && s.max_disparity_px < s.left_bgr.cols / 2) return s.max_disparity_px;
  double max_gt = 0;
  cv::minMaxLoc(s.gt_disparity_px, nullptr, &max_gt, nullptr, nullptr, s.gt_disparity_px == s.gt_disparity_px);
  return std::max(16, static_cast<int>(std::ceil(1.5 * max_gt)));
}

DisparityErrors compareDisparity(const cv::Mat& estimate, const cv::Mat& gt, const cv::Mat& mask) {
  CV_Assert(estimate.type() == CV_32F && gt.type() == CV_32F && mask.type() == CV_8U);
  CV_Assert(estimate.size() == gt.size() && mask.size() == gt.size());
  DisparityErrors e;
  long bad05 = 0, bad1 = 0, bad2 = 0, valid = 0, n = 0;
  double abs_sum = 0;
  for (int y = 0; y < gt.rows; ++y) {
    const float* est = estimate.ptr<float>(y);
    const float* ref = gt.ptr<float>(y);
    const uint8_t* m = mask.ptr<uint8_t>(y);
    for (int x = 0; x < gt.cols; ++x) {
      if (!m[x] || !std::isfinite(ref[x])) continue;
      ++n;
      if (!std::isfinite(est[x])) continue;
      const double err = std::abs(static_cast<double>(est[x]) - ref[x]);
      ++valid;
      abs_sum += err;
      bad05 += err > 0.5;
      bad1 += err > 1.0;
      bad2 += err > 2.0;
    }
  }
  e.pixels = static_cast<int>(n);
  e.returned = static_cast<int>(valid);
  if (n == 0) return e;
  const long holes = n - valid;
  e.bad05_pct = 100.0 * (bad05 + holes) / n;
  e.bad1_pct = 100.0 * (bad1 + holes) / n;
  e.bad2_pct = 100.0 * (bad2 + holes) / n;
  e.valid_pct = 100.0 * valid / n;
  e.bad2_returned_pct = valid ? 100.0 * bad2 / valid : 0;
  e.mae_px = valid ? abs_sum / valid : 0;
  return e;
}

namespace {

/// The returned pixels of the mask in order of confidence, most confident first, with the running
/// count of bad ones and where each run of equal confidence begins.
class ConfidenceRanking {
 public:
  ConfidenceRanking(const cv::Mat& estimate, const cv::Mat& confidence, const cv::Mat& gt, const cv::Mat& mask) {
    CV_Assert(estimate.type() == CV_32F && confidence.type() == CV_32F && gt.type() == CV_32F && mask.type() == CV_8U);
    CV_Assert(estimate.size() == gt.size() && confidence.size() == gt.size() && mask.size() == gt.size());
    std::vector<std::pair<float, bool>> pixels;
    for (int y = 0; y < gt.rows; ++y) {
      const float *est = estimate.ptr<float>(y), *conf = confidence.ptr<float>(y), *ref = gt.ptr<float>(y);
      const uint8_t* m = mask.ptr<uint8_t>(y);
      for (int x = 0; x < gt.cols; ++x) {
        if (!m[x] || !std::isfinite(ref[x]) || !std::isfinite(est[x])) continue;
        // A returned pixel without a confidence is the least sure of all.
        const float c = std::isfinite(conf[x]) ? conf[x] : std::numeric_limits<float>::infinity();
        pixels.emplace_back(c, std::abs(static_cast<double>(est[x]) - ref[x]) > 2.0);
      }
    }
    std::sort(pixels.begin(), pixels.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    confidence_.resize(pixels.size());
    bad_before_.assign(pixels.size() + 1, 0);
    for (size_t i = 0; i < pixels.size(); ++i) {
      confidence_[i] = pixels[i].first;
      bad_before_[i + 1] = bad_before_[i] + (pixels[i].second ? 1 : 0);
    }
  }
  size_t size() const { return confidence_.size(); }

  /// Bad-2px (percent) among the `count` first pixels; a tie across the cut counts with its share.
  double bad2Pct(size_t count) const {
    count = std::min(count, size());
    if (count == 0) return 0;
    const float cut = confidence_[count - 1];
    const size_t tie_begin =
        size_t(std::lower_bound(confidence_.begin(), confidence_.end(), cut) - confidence_.begin());
    const size_t tie_end = size_t(std::upper_bound(confidence_.begin(), confidence_.end(), cut) - confidence_.begin());
    const double tie_bad_share = double(bad_before_[tie_end] - bad_before_[tie_begin]) / double(tie_end - tie_begin);
    const double bad = double(bad_before_[tie_begin]) + tie_bad_share * double(count - tie_begin);
    return 100.0 * bad / double(count);
  }

 private:
  std::vector<float> confidence_;
  std::vector<long> bad_before_;
};

}  // namespace

double bad2AmongMostConfident(const cv::Mat& estimate, const cv::Mat& confidence, const cv::Mat& gt,
                              const cv::Mat& mask, int count) {
  return ConfidenceRanking(estimate, confidence, gt, mask).bad2Pct(size_t(std::max(count, 0)));
}

std::vector<SparsificationPoint> sparsificationCurve(const cv::Mat& estimate, const cv::Mat& confidence,
                                                     const cv::Mat& gt, const cv::Mat& mask,
                                                     const std::vector<double>& densities_pct) {
  const ConfidenceRanking ranking(estimate, confidence, gt, mask);
  const double evaluated = cv::countNonZero(mask & (gt == gt));
  std::vector<SparsificationPoint> curve;
  for (const double density : densities_pct) {
    const size_t count = std::min(ranking.size(), size_t(std::max(0.0, std::round(density / 100.0 * evaluated))));
    curve.push_back({evaluated > 0 ? 100.0 * double(count) / evaluated : 0.0, ranking.bad2Pct(count)});
  }
  return curve;
}

}  // namespace pv::internal
