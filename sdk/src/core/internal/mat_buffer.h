// Memory block behind a pv::Mat handle.
#pragma once

#include <cstddef>

namespace pv::internal {

struct MatBuffer {
  unsigned char* ptr = nullptr;
  size_t step = 0;          ///< bytes per row
  bool owner = false;       ///< frees ptr on destruction
  bool host = true;         ///< memory is host-resident (CPU memory, or GPU memory standing in)
  bool gpu_memory = false;  ///< allocated as GPU memory (device, or host standing in)
  MatBuffer() = default;
  MatBuffer(const MatBuffer&) = delete;
  MatBuffer& operator=(const MatBuffer&) = delete;
  ~MatBuffer();
};

}  // namespace pv::internal
