# Cross build for 64-bit ARM Linux with Debian's cross compiler (g++-aarch64-linux-gnu) against an
# arm64 Debian root made by scripts/install-deps-arm64.sh. Programs built here (the tests, `pavo`)
# run under qemu-user with that root as their library prefix.
#
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-arm64.cmake \
#         -DMAPURA_ARM64_SYSROOT=/opt/mapura/sysroot-arm64
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(MAPURA_ARM64_SYSROOT "/opt/mapura/sysroot-arm64" CACHE PATH "arm64 Debian root the cross build links against")
# try_compile projects see the cache only through this list.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MAPURA_ARM64_SYSROOT)
if(NOT EXISTS "${MAPURA_ARM64_SYSROOT}/usr/include/aarch64-linux-gnu")
  message(FATAL_ERROR "No arm64 root at ${MAPURA_ARM64_SYSROOT}: run scripts/install-deps-arm64.sh")
endif()

set(CMAKE_SYSROOT "${MAPURA_ARM64_SYSROOT}")
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Headers, libraries and CMake packages come from the root only; programs (pkg-config, qemu) from
# this machine.
set(CMAKE_FIND_ROOT_PATH "${MAPURA_ARM64_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the root's .pc files and prefixes their paths with it.
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR}
    "${MAPURA_ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${MAPURA_ARM64_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${MAPURA_ARM64_SYSROOT}")

# ctest (and gtest_discover_tests) start every arm64 program through qemu.
find_program(MAPURA_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${MAPURA_QEMU_AARCH64};-L;${MAPURA_ARM64_SYSROOT}")
