#!/usr/bin/env bash
# Builds Mapura and starts it. Until the application exists, this builds the SDK and runs its
# `pavo` tool, which is what there is to start.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh -DMAPURA_BUILD_TESTS=OFF -DMAPURA_BUILD_BENCH=OFF
BUILD_DIR=${MAPURA_BUILD_DIR:-build}
"$BUILD_DIR"/sdk/tools/pavo/pavo version
"$BUILD_DIR"/sdk/tools/pavo/pavo help
