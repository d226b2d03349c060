// libFuzzer target for KTR recordings: any bytes given as a recording must open and decode or be
// refused, never crash; what opens has frames of the size its pavo.json says, and reading goes
// on past damaged frames to the end.
#include <cstdint>
#include <cstdlib>

#include "fuzz_memory_file.h"
#include "io/internal/ktr_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static mapura::fuzz::MemoryFile file("fuzz-ktr");
  pv::internal::KtrReader reader;
  if (reader.open(file.fill(data, size)) != pv::ERROR_CODE::SUCCESS) return 0;
  const int frames = reader.frameCount();
  const pv::internal::KtrMetadata& m = reader.metadata();
  if (frames <= 0 || m.width <= 0 || m.height <= 0) std::abort();
  reader.setBgraOutput(size % 2 == 0);
  cv::Mat frame;
  int64_t timestamp = 0;
  int index = -1;
  // Every frame once (a few at most), then a seek back into the middle.
  for (int pass = 0; pass < 2; ++pass) {
    for (int i = 0; i < 6; ++i) {
      const int expected = reader.position();
      const pv::ERROR_CODE r = reader.read(frame, timestamp, index);
      if (r == pv::ERROR_CODE::END_OF_KTR_FILE_REACHED) {
        if (expected < frames) std::abort();
        break;
      }
      if (r == pv::ERROR_CODE::SUCCESS &&
          (index != expected || frame.cols != 2 * m.width || frame.rows != m.height || frame.channels() < 3))
        std::abort();
      if (r != pv::ERROR_CODE::SUCCESS && r != pv::ERROR_CODE::CORRUPTED_FRAME) std::abort();
      if (reader.position() != expected + 1) std::abort();  // reading always moves on
    }
    reader.seek(frames / 2);
  }
  return 0;
}
