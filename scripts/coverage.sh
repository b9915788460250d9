#!/usr/bin/env bash
# Measures how much of the library the test suite runs: builds the library and its tests with gcc's
# coverage instrumentation (Debug, so every line counts as written), runs the whole suite and reports,
# with gcovr (installed if missing), the line coverage of the library's code in common/source and
# common/include: the total, and for each file its coverage and the lines no test reached ("Missing").
# The report is also kept in build-coverage/coverage.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build test coverage
build=${ZOR_COVERAGE_BUILD_DIR:-build-coverage}

# Counts left by an earlier run would add up with this one's.
if [ -d "$build" ]; then find "$build" -name '*.gcda' -delete; fi
ZOR_BUILD_DIR=$build ZOR_CMAKE_ARGS="-DCMAKE_BUILD_TYPE=Debug -DZOR_COVERAGE=ON -DZOR_BUILD_EXAMPLES=OFF" \
    scripts/run-tests.sh

gcovr --root . --object-directory "$build" --filter 'common/(source|include)/' -j "$(nproc)" \
      --txt "$build/coverage.txt" --print-summary
cat "$build/coverage.txt"
