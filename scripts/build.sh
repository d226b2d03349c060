#!/usr/bin/env bash
# Configures and builds Mapura, the PAVO SDK, the tools, the tests and the benchmarks into build/.
# Extra arguments go to the CMake configure step (e.g. -DMAPURA_WITH_CUDA=OFF).
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${MAPURA_BUILD_DIR:-build}
extra=()
if [ "${CI:-}" = "true" ]; then extra+=(-DMAPURA_WERROR=ON); fi
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Release "${extra[@]}" "$@"
cmake --build "$BUILD_DIR" -j "$(nproc)"
