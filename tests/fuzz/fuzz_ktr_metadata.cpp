// libFuzzer target: the pavo.json parser of KTR recordings must take any bytes without crashing.
#include <cstddef>
#include <cstdint>
#include <string>

#include "io/internal/ktr_metadata.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pv::internal::KtrMetadata metadata;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (pv::internal::parseKtrMetadata(text, metadata) == pv::ERROR_CODE::SUCCESS) {
    // Whatever parses must write back to a document that parses to the same values.
    pv::internal::KtrMetadata again;
    if (pv::internal::parseKtrMetadata(pv::internal::writeKtrMetadata(metadata), again) != pv::ERROR_CODE::SUCCESS ||
        again.width != metadata.width || again.serial_number != metadata.serial_number)
      __builtin_trap();
  }
  return 0;
}
