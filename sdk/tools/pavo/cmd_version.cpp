#include <iostream>
#include <opencv2/core/utility.hpp>
#include <thread>

#include "command.h"
#include "core/internal/cpu_features.h"
#include "pv/mat.h"

namespace {

int runVersion(int, char**) {
  const unsigned cores = std::thread::hardware_concurrency();
  std::cout << "pavo " << PAVO_VERSION << "\n"
            << "cuda: " << (pv::isCudaDeviceAvailable() ? "device in use" : "no device, CPU path") << "\n"
            << "vectors: " << pv::internal::cpuLevelName() << "\n"
            << "threads: " << cv::getNumThreads() << " for parallel loops, " << (cores ? cores : 1)
            << " hardware threads\n";
  return 0;
}

}  // namespace

PAVO_COMMAND("version", "", "prints the SDK version, whether a CUDA device is used, the vector level and threads",
             runVersion);
