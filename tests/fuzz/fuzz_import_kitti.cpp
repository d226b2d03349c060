// libFuzzer target: a KITTI odometry or raw folder (calib.txt or calib_cam_to_cam.txt, times.txt
// or timestamps.txt, poses.txt) as `pavo import` reads it.
#include "fuzz_folder.h"
#include "fuzz_import.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static mapura::fuzz::FuzzFolder folder(
      "fuzz-kitti", {"calib.txt", "times.txt", "poses.txt", "image_00/timestamps.txt", "calib_cam_to_cam.txt"},
      {"image_0/000000.png", "image_0/000001.png", "image_0/000002.png", "image_1/000000.png", "image_1/000001.png",
       "image_1/000002.png"});
  mapura::fuzz::importFolder(folder.fill(data, size), pv::internal::ImportFormat::KITTI);
  return 0;
}
