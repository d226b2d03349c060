#!/usr/bin/env bash
# Builds Mapura and starts it on a virtual camera that plays a sample recording, so that "Input",
# "Live", "Start" scans a room without a camera and "KTR" can open the same file.
#
# The sample (samples/room_hd720.ktr, about 20 s of HD720) is made once with `pavo synth`.
# PAVO_VIRTUAL_CAMERA set beforehand picks another recording; extra arguments go to the program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh -DMAPURA_BUILD_TESTS=OFF -DMAPURA_BUILD_BENCH=OFF
BUILD_DIR=${MAPURA_BUILD_DIR:-build}
PAVO="$BUILD_DIR/sdk/tools/pavo/pavo"

SAMPLE="$PWD/samples/room_hd720.ktr"
if [ -z "${PAVO_VIRTUAL_CAMERA:-}" ]; then
  if [ ! -s "$SAMPLE" ]; then
    mkdir -p samples
    echo "run.sh: making the sample recording $SAMPLE (once)"
    # Written in a side folder first (with its ground-truth files), so an interrupted run leaves
    # no half recording behind.
    partial="$PWD/samples/.partial"
    rm -rf "$partial" && mkdir -p "$partial"
    if "$PAVO" synth room -o "$partial/room_hd720.ktr" --frames 600 --fps 30 --resolution HD720; then
      mv "$partial"/room_hd720.gt.* samples/ && mv "$partial/room_hd720.ktr" "$SAMPLE"
    else
      echo "run.sh: no sample recording could be made; Mapura starts without the virtual camera" >&2
    fi
    rm -rf "$partial"
  fi
  if [ -s "$SAMPLE" ]; then export PAVO_VIRTUAL_CAMERA="$SAMPLE"; fi
fi
if [ -n "${PAVO_VIRTUAL_CAMERA:-}" ]; then echo "run.sh: virtual camera plays $PAVO_VIRTUAL_CAMERA"; fi

# Mapura keeps its scans under the documents folder ("PAVO/Meshes", created by the program), which
# must exist.
DOCUMENTS="$HOME/Documents"
if command -v xdg-user-dir >/dev/null && [ -f "${XDG_CONFIG_HOME:-$HOME/.config}/user-dirs.dirs" ]; then
  DOCUMENTS=$(xdg-user-dir DOCUMENTS)
fi
mkdir -p "$DOCUMENTS"

exec "$BUILD_DIR/app/mapura" "$@"
