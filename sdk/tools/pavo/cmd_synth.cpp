// pavo synth SCENE -o FILE.ktr: a synthetic recording with its ground truth.
#include <chrono>
#include <cmath>
#include <iostream>

#include "command.h"
#include "io/internal/ktr_file.h"
#include "synth/internal/synth.h"

namespace {

const char kName[] = "synth";

int runSynth(int argc, char** argv) {
  pavo::Args args(argc, argv, {"gt-depth"});
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  const auto unknown = args.unknown({"o", "frames", "fps", "resolution", "seed", "codec", "gt-depth", "motion"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  if (args.positional().size() != 1) return pavo::usageError(kName, "give one scene: room or object");
  pv::internal::synth::SynthOptions o;
  o.scene = args.positional()[0];
  if (!pv::internal::synth::Scene::known(o.scene))
    return pavo::usageError(kName, "unknown scene '" + o.scene + "' (room, object)");
  o.motion = args.get("motion", "smooth");
  if (!pv::internal::synth::CameraMotion::known(o.motion))
    return pavo::usageError(kName, "unknown motion '" + o.motion + "' (smooth, handheld)");
  const std::string out = args.get("o");
  if (out.empty()) return pavo::usageError(kName, "missing -o FILE.ktr");
  bool ok_frames = true, ok_fps = true, ok_seed = true;
  const double frames = args.getNumber("frames", 300, &ok_frames);
  const double fps = args.getNumber("fps", 30, &ok_fps);
  const double seed = args.getNumber("seed", 1, &ok_seed);
  if (!ok_frames || frames < 1 || frames > 100000 || frames != std::floor(frames))
    return pavo::usageError(kName, "--frames must be a whole number from 1 to 100000");
  if (!ok_fps || fps <= 0 || fps > 240) return pavo::usageError(kName, "--fps must be above 0 and at most 240");
  if (!ok_seed || seed < 0 || seed > 4294967295.0 || seed != std::floor(seed))
    return pavo::usageError(kName, "--seed must be a whole number from 0 to 4294967295");
  o.frames = int(frames);
  o.fps = fps;
  o.seed = uint32_t(seed);
  const std::string resolution = args.get("resolution", "HD720");
  if (resolution == "HD720")
    o.resolution = pv::RESOLUTION::HD720;
  else if (resolution == "VGA")
    o.resolution = pv::RESOLUTION::VGA;
  else
    return pavo::usageError(kName, "--resolution must be HD720 or VGA");
  if (!pv::internal::ktrCompressionFromName(args.get("codec", "h264"), o.codec))
    return pavo::usageError(kName, "--codec must be h264, ffv1 or mjpeg");
  o.gt_depth = args.has("gt-depth");

  const auto start = std::chrono::steady_clock::now();
  const pv::ERROR_CODE err = pv::internal::synth::synthesize(o, out, [](int done, int total) {
    if (done % 10 == 0 || done == total) std::cerr << "\rframe " << done << "/" << total << std::flush;
  });
  std::cerr << "\n";
  if (err != pv::ERROR_CODE::SUCCESS) return pavo::failure(kName, pv::lastErrorDetail().c_str());
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const std::string stem = pv::internal::sideFileStem(out);
  std::cout << "wrote " << out << " (" << o.frames << " frames, " << o.frames / seconds << " frames/s), " << stem
            << ".gt.txt, " << stem << ".gt.ply" << (o.gt_depth ? ", " + stem + ".gt-depth/" : std::string()) << "\n";
  return 0;
}

}  // namespace

PAVO_COMMAND("synth",
             "SCENE -o FILE.ktr [--frames N] [--fps F] [--resolution HD720|VGA] [--seed S] "
             "[--motion smooth|handheld] [--codec h264|ffv1|mjpeg] [--gt-depth]",
             "renders a synthetic recording (room, object) with its ground truth", runSynth);
