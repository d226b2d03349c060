// pavo import DIR -o FILE.ktr [--format euroc|kitti|pairs]: stereo image folders to a recording.
#include <filesystem>
#include <iostream>

#include "command.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_import.h"
#include "io/internal/ktr_side_files.h"

namespace {

const char kName[] = "import";

// The layout of a folder when --format is not given.
std::string guessFormat(const std::string& dir) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (fs::is_directory(fs::path(dir) / "mav0", ec)) return "euroc";
  if (fs::exists(fs::path(dir) / "calib.txt", ec)) return "kitti";
  return "pairs";
}

int runImport(int argc, char** argv) {
  pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  const auto unknown = args.unknown({"o", "format", "codec", "fps", "serial"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  if (args.positional().size() != 1) return pavo::usageError(kName, "give one folder: pavo import DIR -o FILE.ktr");
  const std::string dir = args.positional()[0];
  const std::string out = args.get("o");
  if (out.empty()) return pavo::usageError(kName, "missing -o FILE.ktr");
  pv::internal::ImportOptions o;
  const std::string format = args.get("format", guessFormat(dir));
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
  bool ok_fps = true, ok_serial = true;
  o.fps = args.getNumber("fps", 0, &ok_fps);
  const double serial = args.getNumber("serial", 0, &ok_serial);
  if (!ok_fps || o.fps < 0 || o.fps > 240) return pavo::usageError(kName, "--fps must be 0 to 240");
  if (!ok_serial || serial < 0 || serial > 4294967295.0)
    return pavo::usageError(kName, "--serial must be 0 to 4294967295");
  o.serial_number = unsigned(serial);
  pv::internal::ImportReport report;
  const pv::ERROR_CODE err = pv::internal::importStereoFolder(dir, out, o, &report);
  if (err != pv::ERROR_CODE::SUCCESS) return pavo::failure(kName, pv::lastErrorDetail().c_str());
  std::cout << "wrote " << out << " (" << report.frames << " frames, " << format << ")";
  if (report.ground_truth_poses > 0)
    std::cout << " and " << pv::internal::sideFileStem(out) << ".gt.txt (" << report.ground_truth_poses << " poses)";
  std::cout << "\n";
  return 0;
}

}  // namespace

PAVO_COMMAND("import", "DIR -o FILE.ktr [--format euroc|kitti|pairs] [--codec h264|ffv1|mjpeg] [--fps F] [--serial S]",
             "turns a folder of stereo images into a recording, ground truth included", runImport);
