#!/usr/bin/env bash
# Builds everything and runs every test (GUI and GL tests under a virtual X server with Mesa).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh "$@"
BUILD_DIR=${MAPURA_BUILD_DIR:-build}
export LIBGL_ALWAYS_SOFTWARE=1 QT_QPA_PLATFORM=xcb
xvfb-run -a -s "-screen 0 1920x1080x24" \
  ctest --test-dir "$BUILD_DIR" --output-on-failure -j "$(nproc)" --timeout 600
