#!/usr/bin/env bash
# Installs what the arm64 build of the PAVO SDK needs (scripts/test-arm64.sh calls it): Debian's
# cross compiler and qemu-user on this machine, and an arm64 Debian 12 root holding the SDK's
# libraries, used as the compiler's sysroot and as qemu's library prefix.
#
# Why a separate root rather than multiarch (`dpkg --add-architecture arm64` and the `:arm64` -dev
# packages): libopencv-dev, libgoogle-glog-dev and libgflags-dev (which libceres-dev needs) are not
# "Multi-Arch: same", so installing their arm64 versions removes the amd64 ones the main build uses.
# mmdebstrap unpacks Debian's arm64 packages into a folder instead, without touching this system's
# package set.
#
# Idempotent: the root is made once (about 1.2 GB, 3-4 minutes to download) and made again only when
# its package list changes. MAPURA_ARM64_SYSROOT chooses where it lives; the script prints its path
# on the last line.
set -euo pipefail

SYSROOT=${MAPURA_ARM64_SYSROOT:-/opt/mapura/sysroot-arm64}
HOST_PACKAGES=(g++-aarch64-linux-gnu qemu-user mmdebstrap)
SYSROOT_PACKAGES=(
  libc6-dev libstdc++-12-dev
  libopencv-dev libopencv-contrib-dev libeigen3-dev libceres-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev
  libmeshoptimizer-dev libtbb-dev libv4l-dev
  libgtest-dev libgmock-dev
)

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

missing=()
for p in "${HOST_PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then missing+=("$p"); fi
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "install-deps-arm64: installing ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
fi

# The root is unpacked again only when the list of its packages changes.
wanted="${SYSROOT_PACKAGES[*]}"
stamp="$SYSROOT/.mapura-packages"
if [ ! -f "$stamp" ] || [ "$(cat "$stamp")" != "$wanted" ]; then
  # The same mirror this machine installs from (Debian's own where it has no deb822 list).
  mirror="http://deb.debian.org/debian"
  if [ -f /etc/apt/sources.list.d/debian.sources ]; then mirror=/etc/apt/sources.list.d/debian.sources; fi
  # Made beside its final place and moved there at the end, so an interrupted run leaves no half root.
  partial="$SYSROOT.partial"
  $SUDO rm -rf "$partial"
  $SUDO mkdir -p "$(dirname "$SYSROOT")"
  echo "install-deps-arm64: unpacking the arm64 root into $SYSROOT (once)" >&2
  includes=$(IFS=,; echo "${SYSROOT_PACKAGES[*]}")
  $SUDO mmdebstrap --quiet --variant=extract --mode=root --architectures=arm64 --include="$includes" \
    bookworm "$partial" "$mirror" >&2
  echo "$wanted" | $SUDO tee "$partial/.mapura-packages" >/dev/null
  $SUDO rm -rf "$SYSROOT"
  $SUDO mv "$partial" "$SYSROOT"
fi

# The packages are unpacked, not installed, and the root is not at /: what their maintainer scripts
# would do and the absolute paths that name this machine's folders are fixed here (each step leaves
# a fixed root as it is).
# BLAS and LAPACK are chosen through alternatives; take ATLAS, as this machine's own libraries do.
libdir="$SYSROOT/usr/lib/aarch64-linux-gnu"
for lib in libblas.so.3 libblas.so liblapack.so.3 liblapack.so; do
  if [ -e "$libdir/atlas/$lib" ] && [ ! -e "$libdir/$lib" ]; then $SUDO ln -s "atlas/$lib" "$libdir/$lib"; fi
done
# Absolute links (libz.so -> /lib/...) become relative to the root.
while IFS= read -r link; do
  $SUDO ln -sfnr "$SYSROOT$(readlink "$link")" "$link"
done < <(find "$SYSROOT/usr" "$SYSROOT/lib" -type l -lname '/*')
# Exported CMake targets that link libraries by absolute path (Ceres names BLAS and LAPACK so) find
# them under the root's prefix instead.
find "$libdir/cmake" -name '*[Tt]argets*.cmake' -exec \
  $SUDO sed -i -E '/INTERFACE_LINK_LIBRARIES/ s#([";])/usr/lib/#\1${_IMPORT_PREFIX}/lib/#g' {} +

echo "$SYSROOT"
