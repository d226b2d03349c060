#!/usr/bin/env bash
# Installs the build into a fresh prefix and uses it as an SDK user would, from outside the tree:
# the installed `pavo` synthesizes a recording, and a small program built once through
# find_package(pv_pavo) and once through pkg-config scans it (depth, tracking, mesh).
#
#   install_test.sh BUILD_DIR CONSUMER_SOURCE_DIR WORK_DIR LIBDIR HAS_APP
set -euo pipefail
build=$1 consumer=$2 work=$3 libdir=$4 has_app=$5
prefix="$work/prefix"
rm -rf "$work" && mkdir -p "$work"
cmake --install "$build" --prefix "$prefix" > "$work/install.log"

expect_file() {
  if [ ! -f "$prefix/$1" ]; then
    echo "install_test: $1 was not installed" >&2
    exit 1
  fi
}
for f in bin/pavo "$libdir/libpv_pavo.so" include/pv/pavo.h include/pv/camera.h \
  "$libdir/cmake/pv_pavo/pv_pavoConfig.cmake" "$libdir/cmake/pv_pavo/pv_pavoConfigVersion.cmake" \
  "$libdir/pkgconfig/pv_pavo.pc"; do
  expect_file "$f"
done
if [ "$has_app" = ON ]; then
  expect_file bin/mapura
  expect_file share/icons/hicolor/scalable/apps/mapura.svg
  expect_file share/applications/mapura.desktop
  desktop-file-validate "$prefix/share/applications/mapura.desktop"
fi
# Nothing installed may point into the build or source tree: not the package files, not the
# programs' library search path.
tree=$(cd "$consumer/../../.." && pwd)
if grep -rl -e "$build" -e "$tree" "$prefix/$libdir/cmake" "$prefix/$libdir/pkgconfig"; then
  echo "install_test: the files above name the build or source tree" >&2
  exit 1
fi
if readelf -d "$prefix/bin/pavo" | grep -E 'R(UN)?PATH' | grep -e "$build" -e "$tree"; then
  echo "install_test: the installed pavo looks for libraries in the build tree" >&2
  exit 1
fi

# The installed tool, on its own: a short synthesized recording.
"$prefix/bin/pavo" version
"$prefix/bin/pavo" synth room -o "$work/room.ktr" --frames 12 --resolution VGA --seed 3 > "$work/synth.log"

# The program's sources are copied out of the tree, so that only the installed SDK can serve them.
cp -r "$consumer" "$work/src"

# 1. CMake package.
cmake -S "$work/src" -B "$work/cmake-build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix" \
  > "$work/cmake-configure.log"
cmake --build "$work/cmake-build" > "$work/cmake-build.log"
loaded=$(ldd "$work/cmake-build/scan_recording" | grep libpv_pavo || true)
if [[ "$loaded" != *" => $prefix/"* ]]; then
  echo "install_test: the program does not load the installed libpv_pavo: ${loaded:-not at all}" >&2
  exit 1
fi
"$work/cmake-build/scan_recording" "$work/room.ktr" "$work/cmake.ply"

# 2. pkg-config.
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
pkg-config --exists --print-errors "pv_pavo >= 0.1"
# shellcheck disable=SC2046  # the flags are words
c++ -std=c++17 -O1 "$work/src/scan_recording.cpp" -o "$work/scan_recording_pc" $(pkg-config --cflags --libs pv_pavo)
LD_LIBRARY_PATH="$(pkg-config --variable=libdir pv_pavo)" "$work/scan_recording_pc" "$work/room.ktr" "$work/pc.ply"

echo "install_test: passed"
