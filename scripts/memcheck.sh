#!/usr/bin/env bash
# Runs every test program under valgrind memcheck: any invalid read or write, use of an uninitialised
# value or definite/indirect leak fails the run. Slow (valgrind runs code 20-50 times slower).
# Usage: scripts/memcheck.sh [gtest filter, default all tests]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build test memcheck
filter=${1:-*}

build=${ZOR_MEMCHECK_BUILD_DIR:-build-memcheck}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZOR_BUILD_TESTS=ON -DZOR_BUILD_EXAMPLES=OFF \
      -DZOR_SANITIZE= -DZOR_MODULES= >/dev/null
cmake --build "$build" -j "$(nproc)"

status=0
for program in "$build"/common/test/*Test; do
    [ -x "$program" ] || continue
    name=$(basename "$program")
    log="$build/$name.memcheck.log"
    if valgrind --tool=memcheck --leak-check=full --errors-for-leak-kinds=definite,indirect \
            --show-leak-kinds=definite,indirect --track-origins=yes --error-exitcode=99 \
            --child-silent-after-fork=yes --log-file="$log" \
            "$program" --gtest_filter="$filter" >"$build/$name.out" 2>&1; then
        echo "memcheck: $name clean"
    else
        echo "memcheck: $name FAILED (see $log and $build/$name.out)"
        status=1
    fi
done
exit $status
