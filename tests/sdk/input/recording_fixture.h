// A small synthetic recording shared by the camera tests (written once per test binary).
#pragma once

#include <string>

#include "synth/internal/synth.h"
#include "test_utils.h"

namespace pv::test {

/// VGA, lossless, `frames` frames of the room scene; the path of the .ktr.
inline std::string smallRecording(int frames = 12, const std::string& name = "camera_recording") {
  static std::string cached[4];
  const int slot = frames == 12 ? 0 : frames == 40 ? 1 : 2;
  if (!cached[slot].empty() && slot < 2) return cached[slot];
  internal::synth::SynthOptions o;
  o.frames = frames;
  o.resolution = RESOLUTION::VGA;
  o.codec = KTR_COMPRESSION_MODE::LOSSLESS;
  o.seed = 5;
  o.serial_number = 31337;
  const std::string path = mapura::test::scratchDir(name + std::to_string(frames)) + "/room.ktr";
  if (internal::synth::synthesize(o, path) != ERROR_CODE::SUCCESS) return std::string();
  cached[slot] = path;
  return path;
}

}  // namespace pv::test
