#!/usr/bin/env bash
# Runs one libFuzzer target (AddressSanitizer + UndefinedBehaviorSanitizer) for a number of
# executions, then minimises what it found into the committed corpus tests/fuzz/corpus/TARGET.
#   scripts/fuzz.sh TARGET [RUNS=10000000] [extra libFuzzer options...]
#   scripts/fuzz.sh --build            configures and builds build-fuzz/ (clang) only
# Seeds: the committed corpus, the generated seeds (make_fuzz_seeds) and, where the target has
# them, files of the shared data sets (../shared/data or $MAPURA_SHARED_DATA). Crashes are left
# in build-fuzz/crashes/TARGET/.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${MAPURA_FUZZ_BUILD_DIR:-build-fuzz}
DATA=${MAPURA_SHARED_DATA:-../shared/data}

build() {
  CC=clang CXX=clang++ cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMAPURA_BUILD_FUZZ=ON \
    -DMAPURA_SANITIZER=address,undefined -DMAPURA_BUILD_APP=OFF -DMAPURA_BUILD_TESTS=OFF -DMAPURA_BUILD_BENCH=OFF \
    -DMAPURA_WITH_CUDA=OFF >/dev/null
  local targets=(make_fuzz_seeds)
  for f in tests/fuzz/fuzz_*.cpp; do targets+=("$(basename "$f" .cpp)"); done
  cmake --build "$BUILD" -j "${MAPURA_JOBS:-2}" --target "${targets[@]}"
}
if [ "${1:-}" = "--build" ]; then
  build
  exit 0
fi
target=${1:?usage: scripts/fuzz.sh TARGET [RUNS] [libFuzzer options]}
runs=${2:-10000000}
shift $(( $# >= 2 ? 2 : 1 ))
[ -x "$BUILD/tests/fuzz/$target" ] || build

seeds=$(mktemp -d)
trap 'rm -rf "$seeds"' EXIT
"$BUILD/tests/fuzz/make_fuzz_seeds" "$seeds/generated"
target_seeds=${target#fuzz_}
mkdir -p "$seeds/generated/$target_seeds" "$seeds/shared"

# Published files as seeds (the head of the long ones).
nul() { printf '\0'; }
part() { if [ -f "$1" ]; then head -c "${2:-16384}" "$1"; fi; }
shared_seeds() {
  local m=$DATA/meshes e=$DATA/euroc_mh01_shake_10hz v=$DATA/euroc_v1_01_micro t=$DATA/gt_trajectories_evo
  case $target in
    fuzz_ply) find "$m" -iname '*.ply' -size -64k -exec cp -t "$seeds/shared" {} + 2>/dev/null || true ;;
    fuzz_obj)
      find "$m" -iname '*.obj' -size -64k | while read -r obj; do
        mtl=$(grep -m1 -i '^mtllib' "$obj" | sed 's/^[mM][tT][lL][lL][iI][bB][[:space:]]*//;s/\r$//' || true)
        { cat "$obj"; if [ -n "$mtl" ] && [ -f "$(dirname "$obj")/$mtl" ]; then nul; cat "$(dirname "$obj")/$mtl"; fi; } \
          >"$seeds/shared/$(basename "$obj")"
      done ;;
    fuzz_import_euroc)
      for d in "$e" "$v"; do
        [ -d "$d/mav0" ] || continue
        { part "$d/mav0/cam0/sensor.yaml"; nul; part "$d/mav0/cam1/sensor.yaml"; nul; part "$d/mav0/cam0/data.csv" 2048
          nul; part "$d/mav0/cam1/data.csv" 2048; nul; nul; part "$(ls "$d"/*gt*.txt 2>/dev/null | head -1)" 4096
        } >"$seeds/shared/$(basename "$d")"
      done
      { nul; nul; nul; nul; part "$t/V102_groundtruth.csv" 4096; } >"$seeds/shared/asl_groundtruth" ;;
    fuzz_import_kitti)
      for d in "$DATA"/kitti_odometry_stereo_excerpt/*/; do
        { part "$d/calib.txt"; nul; part "$t/KITTI_00_gt_times.txt" 1024; nul; part "$d/poses.txt" 4096; } \
          >"$seeds/shared/$(basename "$d")"
      done ;;
    fuzz_trajectory)
      { part "$t/freiburg1_xyz-rgbdslam.txt" 4096; nul; part "$t/freiburg1_xyz-groundtruth.txt" 4096; } \
        >"$seeds/shared/fr1_xyz"
      { part "$t/V102.txt" 4096; nul; part "$t/V102.txt" 4096; } >"$seeds/shared/v102" ;;
    fuzz_import_pairs)
      for c in "$DATA"/middlebury2014_quarter/*/calib.txt "$DATA"/eth3d_two_view/*/calib.txt; do
        [ -f "$c" ] || continue
        { nul; cat "$c"; nul; part "$t/freiburg1_xyz-groundtruth.txt" 2048; } \
          >"$seeds/shared/$(basename "$(dirname "$c")")"
      done ;;
  esac
}
[ -d "$DATA" ] && shared_seeds

corpus=tests/fuzz/corpus/$target
work=$BUILD/corpus/$target
crashes=$BUILD/crashes/$target
mkdir -p "$corpus" "$work" "$crashes"
start=$(date +%s)
status=0
"$BUILD/tests/fuzz/$target" -runs="$runs" -rss_limit_mb=2048 -timeout=20 -print_final_stats=1 \
  -artifact_prefix="$crashes/" "$@" "$work" "$corpus" "$seeds/generated/$target_seeds" "$seeds/shared" || status=$?
echo "fuzz.sh: $target: $(( $(date +%s) - start )) s, exit $status"
# The committed corpus becomes the smallest set that keeps the coverage of everything seen.
merged=$(mktemp -d)
"$BUILD/tests/fuzz/$target" -merge=1 -rss_limit_mb=2048 -timeout=20 "$merged" "$corpus" "$work" \
  "$seeds/generated/$target_seeds" "$seeds/shared" >/dev/null 2>&1
rm -rf "$corpus" && mv "$merged" "$corpus"
echo "fuzz.sh: $target: corpus $(ls "$corpus" | wc -l) files, $(du -sk "$corpus" | cut -f1) KiB"
exit $status
