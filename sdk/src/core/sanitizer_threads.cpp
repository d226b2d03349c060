// Under ThreadSanitizer only: TBB and OpenCV's thread pool are not built with it, so it cannot see
// how they hand a loop's work to their threads and reports every hand-over as a race. In such a
// build both run their parallel loops on the calling thread, and the reports that remain are about
// the threads the SDK and the application start themselves.
#if defined(__SANITIZE_THREAD__)
#include <oneapi/tbb/global_control.h>

#include <opencv2/core/utility.hpp>

namespace pv::internal {
namespace {

struct SerialLoops {
  SerialLoops() { cv::setNumThreads(0); }
  tbb::global_control one_thread{tbb::global_control::max_allowed_parallelism, 1};
};

const SerialLoops serial_loops;

}  // namespace
}  // namespace pv::internal
#endif
