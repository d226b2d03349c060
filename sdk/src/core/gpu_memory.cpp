#include "core/internal/gpu_memory.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "core/internal/error.h"
#include "core/internal/fill_impl.h"

#ifdef PV_WITH_CUDA
#include <cuda_runtime.h>
#endif

namespace pv::internal {
namespace {

#ifdef PV_WITH_CUDA
// Records where a CUDA call failed; true on success.
bool cudaCheck(cudaError_t result, const char* call, const char* file, int line) {
  if (result == cudaSuccess) return true;
  setLastError(std::string("CUDA ") + cudaGetErrorName(result) + " in " + call + " at " + file + ":" +
               std::to_string(line));
  return false;
}
#define PV_CUDA_CHECK(call) cudaCheck((call), #call, __FILE__, __LINE__)

// A CUDA driver function found through the runtime, without linking the driver library; null where
// the driver lacks it. The driver functions asked for here have kept their signature since CUDA 4.
void* driverEntryPoint(const char* name) {
  void* fn = nullptr;
#if CUDART_VERSION >= 12050
  // The unversioned query is deprecated from 12.5 on and may go away.
  cudaDriverEntryPointQueryResult status{};
  if (cudaGetDriverEntryPointByVersion(name, &fn, 12000, cudaEnableDefault, &status) != cudaSuccess ||
      status != cudaDriverEntryPointSuccess)
    fn = nullptr;
#elif CUDART_VERSION >= 11030
  // CUDA 11.3 to 12.4 (the boards' CUDA 11.4 among them): the version matching this runtime.
  if (cudaGetDriverEntryPoint(name, &fn, cudaEnableDefault) != cudaSuccess) fn = nullptr;
#else
  (void)name;  // older runtimes cannot look driver functions up: no context is shared
#endif
  return fn;
}
#endif

unsigned char* hostAlloc(size_t bytes) {
  void* p = nullptr;
  if (posix_memalign(&p, 64, bytes ? bytes : 64) != 0) return nullptr;
  return static_cast<unsigned char*>(p);
}

}  // namespace

bool cudaDeviceUsable() {
#ifdef PV_WITH_CUDA
  static std::once_flag once;
  static bool usable = false;
  std::call_once(once, [] {
    if (std::getenv("PAVO_DISABLE_CUDA")) return;
    int count = 0;
    usable = cudaGetDeviceCount(&count) == cudaSuccess && count > 0 && cudaFree(nullptr) == cudaSuccess;
    cudaGetLastError();  // clear a failed probe
  });
  return usable;
#else
  return false;
#endif
}

ERROR_CODE gpuAlloc(size_t width_bytes, size_t height, unsigned char** ptr, size_t* pitch, bool* host_backed) {
#ifdef PV_WITH_CUDA
  if (cudaDeviceUsable()) {
    void* p = nullptr;
    if (!PV_CUDA_CHECK(cudaMallocPitch(&p, pitch, width_bytes ? width_bytes : 1, height ? height : 1)))
      return ERROR_CODE::NOT_ENOUGH_GPU_MEMORY;
    *ptr = static_cast<unsigned char*>(p);
    *host_backed = false;
    return ERROR_CODE::SUCCESS;
  }
#endif
  *pitch = (width_bytes + 63) / 64 * 64;
  *ptr = hostAlloc(*pitch * height);
  *host_backed = true;
  return *ptr ? ERROR_CODE::SUCCESS : fail(ERROR_CODE::NOT_ENOUGH_MEMORY, "host allocation for GPU memory");
}

void gpuFree(unsigned char* ptr, bool host_backed) {
  if (!ptr) return;
  if (host_backed) {
    std::free(ptr);
    return;
  }
#ifdef PV_WITH_CUDA
  cudaFree(ptr);
#endif
}

ERROR_CODE copy2D(unsigned char* dst, size_t dst_pitch, bool dst_host, const unsigned char* src, size_t src_pitch,
                  bool src_host, size_t width_bytes, size_t height) {
  if (dst_host && src_host) {
    for (size_t y = 0; y < height; ++y) std::memcpy(dst + y * dst_pitch, src + y * src_pitch, width_bytes);
    return ERROR_CODE::SUCCESS;
  }
#ifdef PV_WITH_CUDA
  if (!PV_CUDA_CHECK(cudaMemcpy2D(dst, dst_pitch, src, src_pitch, width_bytes, height, cudaMemcpyDefault)))
    return ERROR_CODE::CUDA_ERROR;
  return ERROR_CODE::SUCCESS;
#else
  return fail(ERROR_CODE::CUDA_ERROR, "device memory without a CUDA build");
#endif
}

ERROR_CODE fill2D(unsigned char* dst, size_t pitch, bool host, size_t width, size_t height,
                  const unsigned char* pattern, size_t pixel_bytes) {
  if (host) {
    for (size_t y = 0; y < height; ++y)
      for (size_t x = 0; x < width; ++x) fillElement(dst + y * pitch, x, pattern, pixel_bytes);
    return ERROR_CODE::SUCCESS;
  }
#ifdef PV_WITH_CUDA
  return fill2DCuda(dst, pitch, width, height, pattern, pixel_bytes) ? ERROR_CODE::SUCCESS
                                                                     : fail(ERROR_CODE::CUDA_ERROR, "fill kernel");
#else
  return fail(ERROR_CODE::CUDA_ERROR, "device memory without a CUDA build");
#endif
}

CUctx_st* cudaPrimaryContext() {
#ifdef PV_WITH_CUDA
  if (!cudaDeviceUsable()) return nullptr;
  using GetCurrent = int (*)(CUctx_st**);
  static const auto get_current = reinterpret_cast<GetCurrent>(driverEntryPoint("cuCtxGetCurrent"));
  if (!get_current) return nullptr;
  cudaFree(nullptr);  // makes the primary context current on this thread
  CUctx_st* ctx = nullptr;
  return get_current(&ctx) == 0 ? ctx : nullptr;
#else
  return nullptr;
#endif
}

void makeContextCurrent(CUctx_st* context) {
#ifdef PV_WITH_CUDA
  if (!context || !cudaDeviceUsable()) return;
  using SetCurrent = int (*)(CUctx_st*);
  static const auto set_current = reinterpret_cast<SetCurrent>(driverEntryPoint("cuCtxSetCurrent"));
  if (set_current) set_current(context);
#else
  (void)context;
#endif
}

}  // namespace pv::internal
