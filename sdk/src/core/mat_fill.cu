#include <cuda_runtime.h>

#include <cstring>

#include "core/internal/fill_impl.h"

namespace pv::internal {
namespace {

struct Pattern {
  unsigned char bytes[16];
};

__global__ void fillKernel(unsigned char* dst, size_t pitch, size_t width, size_t height, Pattern pattern,
                           size_t pixel_bytes) {
  const size_t x = blockIdx.x * size_t(blockDim.x) + threadIdx.x;
  const size_t y = blockIdx.y * size_t(blockDim.y) + threadIdx.y;
  if (x >= width || y >= height) return;
  fillElement(dst + y * pitch, x, pattern.bytes, pixel_bytes);
}

}  // namespace

bool fill2DCuda(unsigned char* dst, size_t pitch, size_t width, size_t height, const unsigned char* pattern,
                size_t pixel_bytes) {
  if (pixel_bytes > sizeof(Pattern::bytes)) return false;
  Pattern p{};
  std::memcpy(p.bytes, pattern, pixel_bytes);
  const dim3 block(32, 8);
  const dim3 grid(unsigned((width + block.x - 1) / block.x), unsigned((height + block.y - 1) / block.y));
  fillKernel<<<grid, block>>>(dst, pitch, width, height, p, pixel_bytes);
  return cudaGetLastError() == cudaSuccess && cudaDeviceSynchronize() == cudaSuccess;
}

}  // namespace pv::internal
