#!/usr/bin/env bash
# Runs tests under the sanitizers, each job in a build directory of its own, ending with ctest's
# summary. Non-zero on any failure or sanitizer report.
#
#   scripts/test-sanitizers.sh address   AddressSanitizer + UndefinedBehaviorSanitizer (halt on the
#                                        first error, leaks checked), every test (those without a
#                                        window first), in build-asan/
#   scripts/test-sanitizers.sh thread    ThreadSanitizer over the worker, application, tracking and
#                                        mapping tests, in build-tsan/
#
# Both build without CUDA (the sanitizers cannot see into the CUDA runtime) and without the
# benchmarks; the thread job builds only the tests it runs. Suppressions, for third-party libraries
# only, are in scripts/sanitizers/. Extra arguments go to ctest (e.g. -R test_worker).
set -euo pipefail
cd "$(dirname "$0")/.."
job=${1:-}
shift || true
root=$(pwd)
supp="$root/scripts/sanitizers"

case "$job" in
  address)
    build_dir=${MAPURA_ASAN_BUILD_DIR:-build-asan}
    sanitizer=address,undefined
    targets=(all)
    tests=()
    ;;
  thread)
    build_dir=${MAPURA_TSAN_BUILD_DIR:-build-tsan}
    sanitizer=thread
    # The worker and application tests, and the SDK's tracking and mapping tests: the code where
    # threads meet (worker, pool, GUI; the mapping module's integration thread).
    targets=(test_program_states test_worker test_mapura_e2e
             test_tracking_trajectory_eval test_tracking_area_file test_tracking_camera test_tracking_recording
             test_mapping_tsdf test_mapping_module test_mapping_surface_distance test_mapping_room
             test_mapping_camera)
    tests=(-R '^(ProgramStates|test_worker$|e2e\.|TrajectoryEval|AreaFile|CameraTracking|TrackingRecording|Tsdf|MappingModule|SurfaceDistance|MappingRoom|CameraMapping)')
    ;;
  *)
    echo "usage: $0 address|thread [ctest arguments]" >&2
    exit 2
    ;;
esac

extra=()
if [ "${CI:-}" = "true" ]; then extra+=(-DMAPURA_WERROR=ON); fi
# -O1 keeps the instrumented builds quick to compile; the tests run fast enough with it.
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG" \
  "-DCMAKE_C_FLAGS_RELEASE=-O1 -DNDEBUG" -DMAPURA_SANITIZER="$sanitizer" -DMAPURA_WITH_CUDA=OFF \
  -DMAPURA_BUILD_BENCH=OFF "${extra[@]}"
cmake --build "$build_dir" -j "$(nproc)" --target "${targets[@]}"

export LIBGL_ALWAYS_SOFTWARE=1 QT_QPA_PLATFORM=xcb
export ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=0"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export LSAN_OPTIONS="suppressions=$supp/lsan.supp:print_suppressions=0"
# Accesses made inside libraries not built with TSan (Qt, Mesa, FFmpeg...) are not tracked: their own
# synchronisation is invisible to it. Everything our code touches still is.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:ignore_noninstrumented_modules=1"
TSAN_OPTIONS+=":suppressions=$supp/tsan.supp:print_suppressions=0"
run_ctest() {
  xvfb-run -a -s "-screen 0 1920x1080x24" "$@" \
    ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)" --timeout 1200 "${tests[@]}" "${ctest_args[@]}"
}
ctest_args=("$@")
if [ "$job" = thread ]; then
  run_ctest
  exit 0
fi
# The tests without a window, then those with one. Mesa unloads its driver when a GL display
# closes, so at exit LeakSanitizer no longer sees the driver's globals that still point at its
# allocations and reports them as leaks, in an unknown module. The window tests run with the
# driver preloaded (after the sanitizer's runtime, which must come first), so it stays mapped.
ctest_args=(-LE gui "$@")
run_ctest
driver=/usr/lib/$(gcc -print-multiarch)/dri/swrast_dri.so
preload=()
if [ -f "$driver" ]; then preload=(env "LD_PRELOAD=$(gcc -print-file-name=libasan.so):$driver"); fi
ctest_args=(-L gui "$@")
run_ctest "${preload[@]}"
