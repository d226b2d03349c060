// libFuzzer target: a folder of pairs (calibration.yml in OpenCV YAML, or the calib.txt of the
// Middlebury 2014 and ETH3D sets, and gt.txt) as `pavo import` reads it.
#include "fuzz_folder.h"
#include "fuzz_import.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static mapura::fuzz::FuzzFolder folder(
      "fuzz-pairs", {"calibration.yml", "calib.txt", "gt.txt"},
      {"left/a.png", "left/b.png", "left/c.png", "right/a.png", "right/b.png", "right/c.png"});
  mapura::fuzz::importFolder(folder.fill(data, size), pv::internal::ImportFormat::PAIRS);
  return 0;
}
