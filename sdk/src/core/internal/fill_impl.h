// Per-element code of the 2D fill, shared by the CPU loop and the CUDA kernel.
#pragma once

#include <cstddef>

#ifdef __CUDACC__
#define PV_HOST_DEVICE __host__ __device__
#else
#define PV_HOST_DEVICE
#endif

namespace pv::internal {

PV_HOST_DEVICE inline void fillElement(unsigned char* row, size_t x, const unsigned char* pattern, size_t pixel_bytes) {
  unsigned char* p = row + x * pixel_bytes;
  for (size_t b = 0; b < pixel_bytes; ++b) p[b] = pattern[b];
}

/// CUDA launch of the fill (mat_fill.cu); false when the launch failed.
bool fill2DCuda(unsigned char* dst, size_t pitch, size_t width, size_t height, const unsigned char* pattern,
                size_t pixel_bytes);

}  // namespace pv::internal
