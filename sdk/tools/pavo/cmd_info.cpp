// pavo info FILE.ktr: what a recording holds.
#include <cmath>
#include <iostream>

#include "command.h"
#include "io/internal/ktr_file.h"

namespace {

const char kName[] = "info";

int runInfo(int argc, char** argv) {
  pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  if (!args.unknown({}).empty()) return pavo::usageError(kName, "unknown option --" + args.unknown({}).front());
  if (args.positional().size() != 1) return pavo::usageError(kName, "give one recording: pavo info FILE.ktr");
  const std::string path = args.positional()[0];
  pv::internal::KtrReader reader;
  const pv::ERROR_CODE err = reader.open(path);
  if (err != pv::ERROR_CODE::SUCCESS) return pavo::failure(kName, pv::lastErrorDetail().c_str());
  const pv::internal::KtrMetadata& m = reader.metadata();
  const pv::internal::StereoCalibration& c = m.calibration;
  const int tagged = reader.taggedFrameCount();
  std::cout << "file: " << path << "\n"
            << "frames: " << reader.frameCount() << "\n"
            << "complete: "
            << (tagged == reader.frameCount() ? "yes"
                : tagged < 0                  ? "no (cut off before the end; every complete frame is readable)"
                                              : "no (the end tag says " + std::to_string(tagged) + " frames)")
            << "\n"
            << "resolution: " << m.width << "x" << m.height << "\n"
            << "fps: " << m.fps << "\n"
            << "serial: " << m.serial_number << "\n"
            << "model: " << m.camera_model << "\n"
            << "codec: " << reader.codecName() << "\n"
            << "duration_s: " << (reader.frameCount() > 0 ? reader.frameCount() / m.fps : 0.0) << "\n"
            << "left: fx " << c.left.fx << " fy " << c.left.fy << " cx " << c.left.cx << " cy " << c.left.cy << "\n"
            << "right: fx " << c.right.fx << " fy " << c.right.fy << " cx " << c.right.cx << " cy " << c.right.cy
            << "\n"
            << "baseline_m: " << std::sqrt(c.T[0] * c.T[0] + c.T[1] * c.T[1] + c.T[2] * c.T[2]) << "\n";
  return 0;
}

}  // namespace

PAVO_COMMAND("info", "FILE.ktr", "prints a recording's frame count, resolution, rate, serial number and codec",
             runInfo);
