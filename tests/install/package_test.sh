#!/usr/bin/env bash
# Makes the Debian package with CPack and checks it as dpkg would see it: its control fields (the
# dependencies found by dpkg-shlibdeps among them), the files it holds, and that the `pavo` it
# carries runs from the unpacked package.
#
#   package_test.sh BUILD_DIR WORK_DIR HAS_APP
set -euo pipefail
build=$1 work=$2 has_app=$3
rm -rf "$work" && mkdir -p "$work"
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work" > "$work/cpack.log" || {
  cat "$work/cpack.log" >&2
  exit 1
}
debs=("$work"/mapura_*.deb)
if [ ${#debs[@]} -ne 1 ] || [ ! -f "${debs[0]}" ]; then
  echo "package_test: expected one mapura_*.deb in $work" >&2
  exit 1
fi
deb=${debs[0]}
dpkg-deb --info "$deb" > "$work/info.txt"
grep -E '^ (Package|Version|Architecture|Depends):' "$work/info.txt"
libs=(libopencv-core libavcodec libtbb libmeshoptimizer)
if [ "$has_app" = ON ]; then libs+=(libqt5widgets); fi
for lib in "${libs[@]}"; do
  if ! grep -E '^ Depends:' "$work/info.txt" | grep -q "$lib"; then
    echo "package_test: the package does not depend on $lib" >&2
    exit 1
  fi
done

dpkg-deb --contents "$deb" | awk '{print $NF}' > "$work/contents.txt"
expected=(./usr/bin/pavo ./usr/include/pv/pavo.h "/pv_pavoConfig.cmake" "/pkgconfig/pv_pavo.pc" "/libpv_pavo.so")
if [ "$has_app" = ON ]; then
  expected+=(./usr/bin/mapura ./usr/share/applications/mapura.desktop ./usr/share/icons/hicolor/scalable/apps/mapura.svg)
fi
for f in "${expected[@]}"; do
  if ! grep -q -- "$f" "$work/contents.txt"; then
    echo "package_test: the package lacks $f" >&2
    exit 1
  fi
done

dpkg-deb --extract "$deb" "$work/root"
"$work/root/usr/bin/pavo" version
echo "package_test: passed ($(basename "$deb"), $(wc -l < "$work/contents.txt") entries)"
