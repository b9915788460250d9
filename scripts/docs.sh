#!/usr/bin/env bash
# Builds the HTML API reference with Doxygen (installed if missing) into build-docs/docs/html and fails
# when a public class or operation is left undocumented.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build docs
build=${ZOR_DOCS_BUILD_DIR:-build-docs}
cmake -S . -B "$build" -G Ninja -DZOR_BUILD_TESTS=OFF -DZOR_BUILD_EXAMPLES=OFF -DZOR_MODULES= >/dev/null
cmake --build "$build" --target docs
warnings="$build/docs/warnings.log"
if [ -s "$warnings" ]; then
    echo "docs: Doxygen warnings:"
    cat "$warnings"
    exit 1
fi
echo "docs: $build/docs/html/index.html, no warnings"
