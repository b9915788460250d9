#!/usr/bin/env bash
# Checks every C++ file git tracks against the project's .clang-format and fails on any difference,
# naming each file with the number of places to change. `scripts/check-format.sh --fix` rewrites them.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh format
mapfile -t files < <(git ls-files '*.cpp' '*.h')
if [ "${1:-}" = "--fix" ]; then
    clang-format -i "${files[@]}"
    exit 0
fi
failed=0
for file in "${files[@]}"; do
    count=$(clang-format --dry-run "$file" 2>&1 | grep -c 'warning:' || true)
    if [ "$count" -gt 0 ]; then
        echo "check-format: $file: $count places differ from .clang-format"
        failed=$((failed + 1))
    fi
done
if [ "$failed" -gt 0 ]; then
    echo "check-format: $failed of ${#files[@]} files need clang-format (scripts/check-format.sh --fix)"
    exit 1
fi
echo "check-format: ${#files[@]} files match .clang-format"
