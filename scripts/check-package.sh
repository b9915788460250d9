#!/usr/bin/env bash
# Makes the Debian package from a built tree, unpacks it into a scratch root (nothing is installed on the
# machine) and builds and runs the out-of-tree consumer against that root, through find_package(zor) and
# through pkg-config.
# Usage: scripts/check-package.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(cd "$1" && pwd)
scripts/install-deps.sh package
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

(cd "$build" && cpack -G DEB -B "$scratch/package" >/dev/null)
deb=$(find "$scratch/package" -maxdepth 1 -name '*.deb' | head -n 1)
[ -n "$deb" ] || { echo "cpack made no .deb"; exit 1; }
dpkg-deb -x "$deb" "$scratch/root"
prefix="$scratch/root/usr/local"
lib=$(find "$prefix" -name 'libzor.so.1.0.0' | head -n 1)
[ -n "$lib" ] || { echo "the package holds no libzor.so.1.0.0"; exit 1; }
libdir=$(dirname "$lib")
for part in include/zor/Locks.h include/zor/ZorVersion.h; do
    [ -f "$prefix/$part" ] || { echo "the package lacks $part"; exit 1; }
done
[ -f "$libdir/cmake/zor/zorConfig.cmake" ] && [ -f "$libdir/pkgconfig/zor.pc" ] ||
    { echo "the package lacks the CMake package or zor.pc"; exit 1; }

consumer=common/test/consumer
cmake -S "$consumer" -B "$scratch/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
LD_LIBRARY_PATH="$libdir" "$scratch/cmake-build/consumer"
# shellcheck disable=SC2046
${CXX:-c++} -o "$scratch/pc-consumer" "$consumer/main.cpp" \
    $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs zor)
LD_LIBRARY_PATH="$libdir" "$scratch/pc-consumer"
echo "package $(basename "$deb") unpacked and used by the consumer through find_package and pkg-config"
