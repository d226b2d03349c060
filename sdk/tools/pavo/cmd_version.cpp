#include <iostream>

#include "command.h"
#include "pv/mat.h"

namespace {

int runVersion(int, char**) {
  std::cout << "pavo " << PAVO_VERSION << "\n"
            << "cuda: " << (pv::isCudaDeviceAvailable() ? "device in use" : "no device, CPU path") << "\n";
  return 0;
}

}  // namespace

PAVO_COMMAND("version", "", "prints the SDK version and whether a CUDA device is used", runVersion);
