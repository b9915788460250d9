#!/usr/bin/env bash
# Builds the HTML API reference with Doxygen (installed if missing) into build-docs/docs/html. Doxygen
# itself fails the build on any warning (WARN_AS_ERROR), such as a public class or operation left
# undocumented; the warnings are then printed.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build docs
build=${ZOR_DOCS_BUILD_DIR:-build-docs}
cmake -S . -B "$build" -G Ninja -DZOR_BUILD_TESTS=OFF -DZOR_BUILD_EXAMPLES=OFF -DZOR_DOCS=ON -DZOR_MODULES= \
      >/dev/null
if ! cmake --build "$build" --target docs; then
    echo "docs: Doxygen warnings:"
    cat "$build/docs/warnings.log"
    exit 1
fi
echo "docs: $build/docs/html/index.html, no warnings"
