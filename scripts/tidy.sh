#!/usr/bin/env bash
# Runs clang-tidy with the project's .clang-tidy over the library's sources (common/source/*.cpp and the
# headers of common/ they include), one file per core at a time, and fails on any finding. Each finding
# is printed once, then the number of findings per file.
# Usage: scripts/tidy.sh [source file...]   (default: every common/source/*.cpp)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh tidy
build=${ZOR_TIDY_BUILD_DIR:-build-tidy}
# Configuring is enough: clang-tidy reads the compile commands and the generated version header.
cmake -S . -B "$build" -G Ninja -DZOR_BUILD_TESTS=OFF -DZOR_BUILD_EXAMPLES=OFF -DZOR_DOCS=OFF -DZOR_MODULES= \
      >/dev/null
sources=("$@")
[ ${#sources[@]} -gt 0 ] || sources=(common/source/*.cpp)
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

# A file that does not compile is reported by clang-tidy as an error finding, so its status adds nothing.
# shellcheck disable=SC2016  # the inner shell expands its own arguments
printf '%s\0' "${sources[@]}" | xargs -0 -P "$(nproc)" -I{} \
    sh -c 'clang-tidy -p "$1" --quiet "$2" > "$3/$(basename "$2").log" 2>&1 || true' _ "$build" {} "$logs"

# A header's finding comes once from every source that includes it: keep one of each.
findings=$(cat "$logs"/*.log | grep -E '^[^ :]+:[0-9]+:[0-9]+: (warning|error):' | sed "s|^$PWD/||" |
           sort -u || true)
if [ -n "$findings" ]; then
    echo "$findings"
    echo "tidy: findings per file:"
    echo "$findings" | cut -d: -f1 | uniq -c
    echo "tidy: $(echo "$findings" | wc -l) findings in ${#sources[@]} sources"
    exit 1
fi
echo "tidy: ${#sources[@]} sources, no findings"
