#include <iostream>

#include "command.h"
#include "core/internal/cpu_features.h"
#include "core/internal/thread_limit.h"
#include "pv/mat.h"

namespace {

int runVersion(int, char**) {
  std::cout << "pavo " << PAVO_VERSION << "\n"
            << "cuda: " << (pv::isCudaDeviceAvailable() ? "device in use" : "no device, CPU path") << "\n"
            << "vectors: " << pv::internal::cpuLevelName() << "\n"
            << "threads: " << pv::internal::threadLimit() << " for parallel loops ("
            << pv::internal::threadLimitSource() << "), " << pv::internal::availableCores() << " cores available\n";
  return 0;
}

}  // namespace

PAVO_COMMAND("version", "", "prints the SDK version, whether a CUDA device is used, the vector level and threads",
             runVersion);
