#!/usr/bin/env bash
# Builds the library and its tests and runs them all. Installs missing build dependencies first.
# Environment: ZOR_BUILD_DIR (default build), ZOR_CMAKE_ARGS (extra configure arguments),
#              ZOR_CTEST_ARGS (extra ctest arguments, for example "-L concurrency").
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build test

build=${ZOR_BUILD_DIR:-build}
# shellcheck disable=SC2086
cmake -S . -B "$build" -G Ninja -DZOR_BUILD_TESTS=ON -DZOR_MODULES= ${ZOR_CMAKE_ARGS:-}
cmake --build "$build" -j "$(nproc)"
# shellcheck disable=SC2086
ctest --test-dir "$build" --output-on-failure --no-tests=error -j "$(nproc)" ${ZOR_CTEST_ARGS:-}
