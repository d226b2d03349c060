// pavo record -o FILE.ktr [--frames N] [--serial S]: records a live camera until N frames or Ctrl-C.
#include <atomic>
#include <cmath>
#include <csignal>
#include <iostream>

#include "command.h"
#include "io/internal/ktr_file.h"
#include "pv/camera.h"

namespace {

const char kName[] = "record";
std::atomic<bool> g_stop{false};

void onInterrupt(int) { g_stop = true; }

int runRecord(int argc, char** argv) {
  pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  const auto unknown = args.unknown({"o", "frames", "serial", "codec"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  if (!args.positional().empty()) return pavo::usageError(kName, "unexpected argument " + args.positional()[0]);
  const std::string out = args.get("o");
  if (out.empty()) return pavo::usageError(kName, "missing -o FILE.ktr");
  bool ok_frames = true, ok_serial = true;
  const double frames = args.getNumber("frames", 0, &ok_frames);
  const double serial = args.getNumber("serial", 0, &ok_serial);
  if (!ok_frames || frames < 0 || frames != std::floor(frames))
    return pavo::usageError(kName, "--frames must be a whole number (0: until Ctrl-C)");
  if (!ok_serial || serial < 0 || serial > 4294967295.0)
    return pavo::usageError(kName, "--serial must be 0 to 4294967295");
  pv::KTR_COMPRESSION_MODE mode = pv::KTR_COMPRESSION_MODE::H264;
  if (!pv::internal::ktrCompressionFromName(args.get("codec", "h264"), mode))
    return pavo::usageError(kName, "--codec must be h264, ffv1 or mjpeg");

  pv::InitParameters init;
  init.depth_mode = pv::DEPTH_MODE::NONE;
  if (serial > 0)
    init.input.setFromSerialNumber(unsigned(serial));
  else
    init.input.setFromCameraID(0);
  pv::Camera camera;
  pv::ERROR_CODE err = camera.open(init);
  if (err != pv::ERROR_CODE::SUCCESS) return pavo::failure(kName, pv::lastErrorDetail().c_str());
  err = camera.enableRecording(pv::RecordingParameters(out.c_str(), mode));
  if (err != pv::ERROR_CODE::SUCCESS) return pavo::failure(kName, pv::lastErrorDetail().c_str());
  std::signal(SIGINT, onInterrupt);
  pv::RuntimeParameters runtime;
  runtime.enable_depth = false;
  int recorded = 0;
  while (!g_stop && (frames == 0 || recorded < int(frames))) {
    err = camera.grab(runtime);
    if (err != pv::ERROR_CODE::SUCCESS) break;
    if (++recorded % 30 == 0) std::cerr << "\rrecorded " << recorded << " frames" << std::flush;
  }
  camera.disableRecording();
  std::cerr << "\n";
  std::cout << "wrote " << out << " (" << recorded << " frames, serial " << camera.getCameraInformation().serial_number
            << ")\n";
  if (err != pv::ERROR_CODE::SUCCESS)
    return pavo::failure(kName, std::string("stopped: ") + pv::lastErrorDetail().c_str());
  return 0;
}

}  // namespace

PAVO_COMMAND("record", "-o FILE.ktr [--frames N] [--serial S] [--codec h264|ffv1|mjpeg]",
             "records a live camera into a recording (until N frames or Ctrl-C)", runRecord);
