#!/usr/bin/env bash
# Checks that the shared library exports every operation its public headers define inline: a program
# that calls one out of line, or looks it up with dlsym, must find it in libzor.so. Compiles all public
# headers with every inline function kept, and lists the zor functions missing from the library's
# dynamic symbol table.
# Usage: scripts/check-exports.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
library=$(find "$build" -maxdepth 1 -name 'libzor.so.*' -type f | head -n 1)
[ -n "$library" ] || { echo "no shared libzor in $build"; exit 1; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for header in common/include/*.h ZorVersion.h; do echo "#include \"$(basename "$header")\""; done >"$scratch/all.cpp"
${CXX:-c++} -std=c++17 -fkeep-inline-functions -Icommon/include -I"$build/generated/zor" \
    -c "$scratch/all.cpp" -o "$scratch/all.o"
# Mangled names: members and free functions of namespace zor, const or not.
zor_functions() { grep -E '^_ZN(K)?3zor' | sort -u; }
nm --defined-only "$scratch/all.o" | awk '$2 ~ /^[TW]$/ {print $3}' | zor_functions >"$scratch/inline"
nm -D --defined-only "$library" | awk '{print $3}' | zor_functions >"$scratch/exported"
missing=$(comm -23 "$scratch/inline" "$scratch/exported")
if [ -n "$missing" ]; then
    echo "inline operations that $(basename "$library") does not export:"
    echo "$missing" | c++filt | sed 's/^/  /'
    exit 1
fi
echo "every inline operation of the public headers is exported by $(basename "$library")"
