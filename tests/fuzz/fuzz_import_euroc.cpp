// libFuzzer target: an EuRoC / ASL folder (sensor.yaml and data.csv of both cameras, the
// dataset's trajectory and a TUM ground truth beside mav0) as `pavo import` reads it.
#include "fuzz_folder.h"
#include "fuzz_import.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static mapura::fuzz::FuzzFolder folder(
      "fuzz-euroc",
      {"mav0/cam0/sensor.yaml", "mav0/cam1/sensor.yaml", "mav0/cam0/data.csv", "mav0/cam1/data.csv",
       "mav0/state_groundtruth_estimate0/data.csv", "run_gt.txt"},
      {"mav0/cam0/data/0.png", "mav0/cam0/data/1.png", "mav0/cam0/data/2.png", "mav0/cam1/data/0.png",
       "mav0/cam1/data/1.png", "mav0/cam1/data/2.png"});
  mapura::fuzz::importFolder(folder.fill(data, size), pv::internal::ImportFormat::EUROC);
  return 0;
}
