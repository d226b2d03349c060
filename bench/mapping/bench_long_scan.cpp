// A long live scan: the virtual camera loops a recording for a set time while the calls of the
// mapping worker run, and the process's resident memory, the map's memory, the tracking map and
// the frame time are sampled at a fixed interval, on after the mapping memory budget is reached.
// Prints one line per sample (and writes them as CSV, and a picture of them), then whether
// resident memory levelled off once the budget was reached; exits 1 on steady growth.
//   bench_long_scan [--minutes 30] [--recording F.ktr] [--memory MB] [--resolution M]
//                   [--every S] [--texture] [--csv FILE] [--plot FILE.png]
//   bench_long_scan --replot FILE.csv FILE.png     (the picture and verdict of an earlier run)
// Without --recording, a 10 s HD720 room is synthesized once into the temporary folder.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "long_scan.h"
#include "long_scan_plot.h"
#include "machine.h"
#include "synth/internal/synth.h"

namespace {

std::string defaultRecording() {
  const std::string path = (std::filesystem::temp_directory_path() / "mapura-long-scan-room-hd720.ktr").string();
  if (std::filesystem::exists(path)) return path;
  pv::internal::synth::SynthOptions o;
  o.frames = 300;
  o.seed = 5;
  std::cout << "synthesizing " << path << " (300 HD720 frames)..." << std::endl;
  return pv::internal::synth::synthesize(o, path) == pv::ERROR_CODE::SUCCESS ? path : std::string();
}

}  // namespace

int main(int argc, char** argv) {
  mapura::bench::LongScanOptions o;
  o.memory_mb = 24;
  std::string csv_path, plot_path, replot_csv;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const bool has_value = i + 1 < argc;
    if (a == "--minutes" && has_value) {
      o.minutes = std::stod(argv[++i]);
    } else if (a == "--recording" && has_value) {
      o.recording = argv[++i];
    } else if (a == "--memory" && has_value) {
      o.memory_mb = std::stoi(argv[++i]);
    } else if (a == "--resolution" && has_value) {
      o.resolution_m = std::stof(argv[++i]);
    } else if (a == "--every" && has_value) {
      o.sample_every_s = std::stod(argv[++i]);
    } else if (a == "--texture") {
      o.texture = true;
    } else if (a == "--csv" && has_value) {
      csv_path = argv[++i];
    } else if (a == "--plot" && has_value) {
      plot_path = argv[++i];
    } else if (a == "--replot" && i + 2 < argc) {
      replot_csv = argv[++i];
      plot_path = argv[++i];
    } else {
      std::cerr << "usage: bench_long_scan [--minutes M] [--recording F.ktr] [--memory MB] [--resolution M] "
                   "[--every S] [--texture] [--csv FILE] [--plot FILE.png] | --replot FILE.csv FILE.png\n";
      return 2;
    }
  }
  if (!replot_csv.empty()) {
    mapura::bench::LongScanResult earlier;
    if (!mapura::bench::readLongScanCsv(replot_csv, earlier) ||
        !mapura::bench::plotLongScan(earlier, replot_csv, plot_path)) {
      std::cerr << "bench_long_scan: cannot replot " << replot_csv << "\n";
      return 2;
    }
    const mapura::bench::GrowthVerdict verdict =
        mapura::bench::judgeGrowthAfterBudget(earlier, 60, mapura::bench::kGrowthLimitMb);
    std::cout << verdict.text << std::endl;
    return verdict.steady_growth ? 1 : 0;
  }
  mapura::bench::printMachine();
  if (o.recording.empty()) o.recording = defaultRecording();
  std::printf(
      "long scan: %s looped by the virtual camera for %.1f min, budget %d MB, voxel %.3f m%s, sample every "
      "%.0f s\n",
      o.recording.c_str(), o.minutes, o.memory_mb, o.resolution_m, o.texture ? ", texture kept" : "", o.sample_every_s);
  std::ofstream csv;
  if (!csv_path.empty()) {
    csv.open(csv_path);
    csv << "t_s,frames,rss_mb,heap_mb,map_mb,blocks,chunks,tracked,keyframes,landmarks,texture_images,fps,cpu_ms,grab_"
           "ms_max,"
           "memory_full\n";
  }
  bool first = true;
  const mapura::bench::LongScanResult result =
      mapura::bench::runLongScan(o, [&](const mapura::bench::LongScanSample& s) {
        std::cout << mapura::bench::formatSample(s, first) << std::endl;
        first = false;
        if (csv.is_open())
          csv << s.t_s << ',' << s.frames << ',' << s.rss_mb << ',' << s.heap_mb << ',' << s.map_mb << ',' << s.blocks
              << ',' << s.chunks << ',' << s.tracked << ',' << s.keyframes << ',' << s.landmarks << ','
              << s.texture_images << ',' << s.fps << ',' << s.cpu_ms << ',' << s.grab_ms_max << ','
              << int(s.memory_full) << std::endl;
      });
  if (!result.error.empty()) {
    std::cerr << "bench_long_scan: " << result.error << "\n";
    return 2;
  }
  const mapura::bench::GrowthVerdict verdict =
      mapura::bench::judgeGrowthAfterBudget(result, 60, mapura::bench::kGrowthLimitMb);
  std::cout << verdict.text << std::endl;
  if (!plot_path.empty()) {
    char title[256];
    std::snprintf(title, sizeof title, "long scan: %.0f min, budget %d MB, voxel %.3f m - %s", o.minutes, o.memory_mb,
                  o.resolution_m, verdict.steady_growth ? "RSS keeps growing" : "RSS levels off");
    if (!mapura::bench::plotLongScan(result, title, plot_path)) std::cerr << "cannot write " << plot_path << "\n";
  }
  return verdict.steady_growth ? 1 : 0;
}
