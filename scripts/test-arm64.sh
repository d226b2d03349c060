#!/usr/bin/env bash
# Cross-builds the PAVO SDK, the `pavo` tool and a chosen set of SDK tests for 64-bit ARM Linux into
# build-arm64/ (Debian's cross compiler against an arm64 Debian root) and runs them under qemu-user:
# first `pavo version`, then the tests, ending with ctest's summary. The application and its GUI
# tests are not built here. Extra arguments go to the CMake configure step.
#
# The tests chosen cover every SDK module and the `pavo` tool's own tests. Emulation is 5-20 times
# slower than this machine, so the cases that synthesize or decode long HD720 recordings (playback,
# import and real-time pacing, which run the same code on every CPU) are left to the x86 suite;
# every vector kernel's test, the depth modes, tracking, fusion and the map files run here.
set -euo pipefail
cd "$(dirname "$0")/.."

SYSROOT=$(bash scripts/install-deps-arm64.sh | tail -n 1)
BUILD_DIR=${MAPURA_ARM64_BUILD_DIR:-build-arm64}
JOBS=${MAPURA_ARM64_JOBS:-$(nproc)}

TESTS=(
  test_core_math test_core_mat test_core_defines
  test_io_ktr
  test_input_camera
  test_depth_stages test_depth_engine test_depth_camera test_depth_recording
  test_tracking_trajectory_eval test_tracking_area_file test_tracking_camera
  test_mapping_tsdf test_mapping_surface_distance test_mapping_camera
  test_mesh_files test_mesh_filter test_mesh_texture test_mesh_info_tool
  test_synth
  test_pavo_eval_depth
)
# Cases of those executables left to the x86 suite (one to three minutes each under emulation).
SLOW='^(CameraRecording[.](Opens|BadInputs|Damaged|GrabSeek|Images|RealTime|RecordingAgain)|VirtualCamera[.](IsListed|Plays|Options|Gain)'
SLOW+='|KtrImport[.](Euroc|Kitti)|DepthRecording[.]Views|CameraTracking[.]Searches)'

extra=()
if [ "${CI:-}" = "true" ]; then extra+=(-DMAPURA_WERROR=ON); fi
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-arm64.cmake" -DMAPURA_ARM64_SYSROOT="$SYSROOT" \
  -DMAPURA_WITH_CUDA=OFF -DMAPURA_BUILD_APP=OFF -DMAPURA_BUILD_BENCH=OFF \
  -DMAPURA_TESTS="$(IFS=';'; echo "${TESTS[*]}")" "${extra[@]}" "$@"
# At a lower priority: the machine is shared, and the emulated tests do not measure speed.
nice -n 10 cmake --build "$BUILD_DIR" -j "$JOBS"

echo "test-arm64: pavo version under qemu-aarch64"
qemu-aarch64 -L "$SYSROOT" "$BUILD_DIR/sdk/tools/pavo/pavo" version

nice -n 10 ctest --test-dir "$BUILD_DIR" --output-on-failure -j "$JOBS" --timeout 900 -E "$SLOW"
