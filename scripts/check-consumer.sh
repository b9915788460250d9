#!/usr/bin/env bash
# Installs a built tree into a scratch prefix, then builds and runs the consumer program against it twice:
# once through find_package(zor) and once through pkg-config. Also checks the library's SONAME.
# Usage: scripts/check-consumer.sh BUILD_DIR CONSUMER_SOURCE_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
consumer=$(cd "$2" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
lib=$(find "$scratch/prefix" -name 'libzor.so.1.0.0' | head -n 1)
[ -n "$lib" ] || { echo "libzor.so.1.0.0 was not installed"; exit 1; }
readelf -d "$lib" | grep -q 'Library soname: \[libzor.so.1\]' || { echo "SONAME is not libzor.so.1"; exit 1; }
libdir=$(dirname "$lib")

cmake -S "$consumer" -B "$scratch/cmake-build" -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
LD_LIBRARY_PATH="$libdir" "$scratch/cmake-build/consumer"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
${CXX:-c++} -o "$scratch/pc-consumer" "$consumer/main.cpp" $(pkg-config --cflags --libs zor)
LD_LIBRARY_PATH="$libdir" "$scratch/pc-consumer"
echo "consumer built and ran through find_package and pkg-config; SONAME libzor.so.1"
