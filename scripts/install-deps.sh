#!/usr/bin/env bash
# Installs every Debian package Mapura, the PAVO SDK, their tests and benchmarks need.
# Idempotent: packages already present are left alone; one `apt-get update` at most.
set -euo pipefail

PACKAGES=(
  # toolchain
  build-essential cmake ninja-build pkg-config git ccache clang-format clang libclang-rt-14-dev
  # Qt 5
  qtbase5-dev qtbase5-dev-tools libqt5opengl5-dev libqt5svg5-dev libqt5xml5 libqt5test5
  libqt5concurrent5
  # OpenGL
  libgl-dev libgl1-mesa-dri libglx-mesa0 mesa-utils
  # SDK libraries
  libopencv-dev libopencv-contrib-dev libeigen3-dev libceres-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev ffmpeg
  libmeshoptimizer-dev libtbb-dev libv4l-dev
  # crash reports
  libbackward-cpp-dev libdw-dev
  # tests and benchmarks
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  xvfb xauth imagemagick assimp-utils desktop-file-utils
  # fonts compiled into the resource bundle
  fonts-roboto fonts-liberation2
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#PACKAGES[@]} packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "install-deps: installing ${#missing[@]} packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
