#include "core/internal/heap_policy.h"

#include <mutex>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace pv::internal {

void keepFrameBuffersInHeap() {
  static std::once_flag once;
  std::call_once(once, [] {
#if defined(__GLIBC__)
    constexpr int kLargestHeapBlock = 32 << 20;  // glibc's upper limit for this setting
    constexpr int kKeptFreeBytes = 512 << 20;    // freed memory kept before trimming the heap
    mallopt(M_MMAP_THRESHOLD, kLargestHeapBlock);
    mallopt(M_TRIM_THRESHOLD, kKeptFreeBytes);
#endif
  });
}

}  // namespace pv::internal
