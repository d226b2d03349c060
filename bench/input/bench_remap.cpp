// Rectification's resampling of one HD720 eye: each of our table's kernels the CPU runs beside
// cv::remap (with the colour conversions the same output needs) in the same run, median
// milliseconds per call.
//
//   bench_remap [--reps N] [--threads T]      defaults: 200 calls per figure, one thread
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "bench/machine.h"
#include "core/internal/cpu_features.h"
#include "core/internal/thread_limit.h"
#include "input/internal/remap_table.h"

namespace {

using Clock = std::chrono::steady_clock;

double medianMs(int reps, const std::function<void()>& run) {
  run();  // warm the caches and the allocations
  std::vector<double> ms;
  for (int i = 0; i < reps; ++i) {
    const auto t0 = Clock::now();
    run();
    ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
  }
  std::nth_element(ms.begin(), ms.begin() + ms.size() / 2, ms.end());
  return ms[ms.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int reps = 200, threads = 1;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string k = argv[i];
    if (k == "--reps") reps = std::max(1, std::atoi(argv[i + 1]));
    if (k == "--threads") threads = std::max(1, std::atoi(argv[i + 1]));
  }
  pv::internal::setThreadLimit(threads);
  mapura::bench::printMachine();
  // An HD720 eye with a lens as cameras have them, slightly turned by the rectification.
  const cv::Size size(1280, 720);
  const cv::Mat K = (cv::Mat_<double>(3, 3) << 700, 0, 640, 0, 700, 360, 0, 0, 1);
  const cv::Mat D = (cv::Mat_<double>(1, 5) << -0.05, 0.01, 0, 0, 0);
  cv::Mat R;
  cv::Rodrigues(cv::Vec3d(0.002, -0.01, 0.003), R);
  cv::Mat map_xy, map_fraction;
  cv::initUndistortRectifyMap(K, D, R, K, size, CV_16SC2, map_xy, map_fraction);
  pv::internal::RemapTable table;
  table.build(map_xy, map_fraction, size);

  // The right half of a side-by-side BGRA frame, as the camera hands it over.
  cv::Mat side_by_side(size.height, 2 * size.width, CV_8UC4);
  cv::randu(side_by_side, 0, 256);
  cv::GaussianBlur(side_by_side, side_by_side, cv::Size(5, 5), 1.5);
  const cv::Mat eye = side_by_side(cv::Rect(size.width, 0, size.width, size.height));
  cv::Mat gray_eye;
  cv::cvtColor(eye, gray_eye, cv::COLOR_BGRA2GRAY);

  std::printf("vectors: %s; %d thread(s), %d calls per figure, HD720 eye, median ms per call\n",
              pv::internal::cpuLevelName(), threads, reps);
  std::vector<int> kernels;
  std::printf("%-22s", "output");
  for (int k = 0; k < 3; ++k)
    if (pv::internal::RemapTable::kernelRuns(k)) {
      kernels.push_back(k);
      std::printf(" %24s", pv::internal::RemapTable::kernelName(k));
    }
  std::printf(" %12s\n", "OpenCV");
  cv::Mat bgr, gray, out, tmp;
  const auto row = [&](const char* name, const std::function<void()>& ours, const std::function<void()>& opencv) {
    std::printf("%-22s", name);
    for (const int k : kernels) {
      table.useKernel(k);
      std::printf(" %24.3f", medianMs(reps, ours));
    }
    table.useKernel(-1);
    std::printf(" %12.3f\n", medianMs(reps, opencv));
  };
  row(
      "BGR + grey (left eye)", [&] { table.applyBgrGray(eye, bgr, gray); },
      [&] {
        cv::remap(eye, tmp, map_xy, map_fraction, cv::INTER_LINEAR);
        cv::cvtColor(tmp, bgr, cv::COLOR_BGRA2BGR);
        cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
      });
  row(
      "grey (right eye)", [&] { table.applyGray(eye, gray); },
      [&] {
        cv::cvtColor(eye, tmp, cv::COLOR_BGRA2GRAY);
        cv::remap(tmp, gray, map_xy, map_fraction, cv::INTER_LINEAR);
      });
  row(
      "BGRA", [&] { table.apply(eye, out); }, [&] { cv::remap(eye, out, map_xy, map_fraction, cv::INTER_LINEAR); });
  row(
      "grey from grey", [&] { table.apply(gray_eye, out); },
      [&] { cv::remap(gray_eye, out, map_xy, map_fraction, cv::INTER_LINEAR); });
  return 0;
}
