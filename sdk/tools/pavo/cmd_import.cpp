// pavo import DIR -o FILE.ktr [--format euroc|kitti|pairs]: stereo image folders to a recording.
#include <iostream>

#include "command.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_import.h"
#include "io/internal/ktr_side_files.h"

namespace {

const char kName[] = "import";

int runImport(int argc, char** argv) {
  pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  const auto unknown = args.unknown({"o", "format", "codec", "fps", "serial", "every", "first"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  if (args.positional().size() != 1) return pavo::usageError(kName, "give one folder: pavo import DIR -o FILE.ktr");
  const std::string dir = args.positional()[0];
  const std::string out = args.get("o");
  if (out.empty()) return pavo::usageError(kName, "missing -o FILE.ktr");
  pv::internal::ImportOptions o;
  const pv::internal::ImportFormat guessed = pv::internal::guessImportFormat(dir);
  const std::string format = args.get("format", guessed == pv::internal::ImportFormat::EUROC   ? "euroc"
                                                : guessed == pv::internal::ImportFormat::KITTI ? "kitti"
                                                                                               : "pairs");
  if (format == "euroc")
    o.format = pv::internal::ImportFormat::EUROC;
  else if (format == "kitti")
    o.format = pv::internal::ImportFormat::KITTI;
  else if (format == "pairs")
    o.format = pv::internal::ImportFormat::PAIRS;
  else
    return pavo::usageError(kName, "--format must be euroc, kitti or pairs");
  if (!pv::internal::ktrCompressionFromName(args.get("codec", "h264"), o.codec))
    return pavo::usageError(kName, "--codec must be h264, ffv1 or mjpeg");
  bool ok_fps = true, ok_serial = true, ok_every = true, ok_first = true;
  o.fps = args.getNumber("fps", 0, &ok_fps);
  const double every = args.getNumber("every", 1, &ok_every), first = args.getNumber("first", 0, &ok_first);
  if (!ok_every || every < 1 || every > 1000 || every != int(every))
    return pavo::usageError(kName, "--every must be a whole number from 1 to 1000");
  if (args.has("first") && (!ok_first || first < 1 || first > 1e9 || first != int(first)))
    return pavo::usageError(kName, "--first must be a whole number of frames, at least 1");
  o.every = int(every);
  o.first = int(first);
  const double serial = args.getNumber("serial", 0, &ok_serial);
  if (!ok_fps || o.fps < 0 || o.fps > 240) return pavo::usageError(kName, "--fps must be 0 to 240");
  if (!ok_serial || serial < 0 || serial > 4294967295.0)
    return pavo::usageError(kName, "--serial must be 0 to 4294967295");
  o.serial_number = unsigned(serial);
  pv::internal::ImportReport report;
  const pv::ERROR_CODE err = pv::internal::importStereoFolder(dir, out, o, &report);
  if (err != pv::ERROR_CODE::SUCCESS) return pavo::failure(kName, pv::lastErrorDetail().c_str());
  std::cout << "wrote " << out << " (" << report.frames << " frames at " << report.fps << " Hz, " << format << ")";
  if (report.ground_truth_poses > 0)
    std::cout << " and " << pv::internal::sideFileStem(out) << ".gt.txt (" << report.ground_truth_poses << " poses)";
  std::cout << "\n";
  return 0;
}

}  // namespace

PAVO_COMMAND_WITH_HELP(
    "import",
    "DIR -o FILE.ktr [--format euroc|kitti|pairs] [--every N] [--first K] [--codec h264|ffv1|mjpeg] [--fps F] "
    "[--serial S]",
    "turns a folder of stereo images into a recording, ground truth included",
    "  --format   the folder's layout (guessed when not given):\n"
    "             euroc  EuRoC/ASL: mav0/cam0|cam1 with sensor.yaml, data.csv and data/; the trajectory from\n"
    "                    mav0/state_groundtruth_estimate0/data.csv or a TUM *gt*.txt beside mav0\n"
    "             kitti  KITTI odometry or raw: image_0|1 (or image_2|3, image_l|r, image_00|01/data),\n"
    "                    calib.txt (P0..P3) or calib_cam_to_cam.txt, times.txt, poses.txt or\n"
    "                    ../../poses/<sequence>.txt\n"
    "             pairs  left/ + right/ or im0.png + im1.png (Middlebury 2014, ETH3D), with calibration.yml\n"
    "                    (OpenCV YAML) or calib.txt; gt.txt (TUM) when present\n"
    "  --every N  keeps every N-th frame from the first (a reduced rate)\n"
    "  --first K  then keeps the first K of those frames\n"
    "  --codec    h264 (default), ffv1 (lossless) or mjpeg\n"
    "  --fps F    rate of folders without timestamps (KITTI without times.txt: 10, pairs: 30)\n"
    "  --serial S serial number written into the recording\n"
    "Images keep their size (odd sizes included); frames keep their own timestamps.\n",
    runImport);
