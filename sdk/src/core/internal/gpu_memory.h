// GPU memory for pv::Mat. With a CUDA build and a usable device this is device memory; otherwise
// (no CUDA build, no device, no driver) it is host memory standing in for it.
#pragma once

#include <cstddef>

#include "pv/defines.h"

struct CUctx_st;

namespace pv::internal {

/// True when a CUDA device can be used by this process (probed once). Thread safe.
bool cudaDeviceUsable();

/// Allocates `height` rows of `width_bytes`; `*host_backed` tells whether the memory is host memory.
ERROR_CODE gpuAlloc(size_t width_bytes, size_t height, unsigned char** ptr, size_t* pitch, bool* host_backed);
void gpuFree(unsigned char* ptr, bool host_backed);

/// Copies a 2D block between any two memories; `*_host` is true for host-resident memory.
ERROR_CODE copy2D(unsigned char* dst, size_t dst_pitch, bool dst_host, const unsigned char* src, size_t src_pitch,
                  bool src_host, size_t width_bytes, size_t height);

/// Fills a 2D block with a repeated element of `pixel_bytes` bytes.
ERROR_CODE fill2D(unsigned char* dst, size_t pitch, bool host, size_t width, size_t height,
                  const unsigned char* pattern, size_t pixel_bytes);

/// The primary CUDA context of the device in use, or null without a usable device.
CUctx_st* cudaPrimaryContext();

/// Makes `context` current on the calling thread (no-op for null or without CUDA).
void makeContextCurrent(CUctx_st* context);

}  // namespace pv::internal
