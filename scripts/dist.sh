#!/usr/bin/env bash
# Makes the source archive of a release, OUTDIR/zor-VERSION.tar.gz with everything under zor-VERSION/:
# every file git tracks or would track, as it is in the work tree now (so uncommitted changes are in it).
# Prints the archive's path. The Debian packages and the FetchContent check are built from it.
# Usage: scripts/dist.sh [OUTDIR]   (default build-dist)
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-build-dist}
version=$(sed -n 's/^project(zor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || { echo "dist: no version in CMakeLists.txt" >&2; exit 1; }
mkdir -p "$out"
archive=$(cd "$out" && pwd)/zor-$version.tar.gz
# Files deleted in the work tree but not yet in git are left out.
git ls-files -z --cached --others --exclude-standard |
    while IFS= read -r -d '' file; do [ -e "$file" ] && printf '%s\0' "$file"; done |
    tar -czf "$archive" --null -T - --transform "s|^|zor-$version/|" --owner=0 --group=0 --sort=name
echo "$archive"
