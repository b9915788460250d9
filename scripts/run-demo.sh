#!/usr/bin/env bash
# Builds the library and the demo service, then runs the demo. Installs missing build dependencies first.
# Arguments are passed to the demo (for example --seconds 10).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build

build=${ZOR_BUILD_DIR:-build-demo}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZOR_BUILD_TESTS=OFF -DZOR_BUILD_EXAMPLES=ON \
      -DZOR_MODULES= >/dev/null
cmake --build "$build" -j "$(nproc)" --target demo_service
exec "$build/examples/demo_service" --workdir "$build/demo-run" "$@"
