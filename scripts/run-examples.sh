#!/usr/bin/env bash
# Builds every example program (reusing a build directory) and runs each in a scratch directory of its
# own with a time limit. Fails if one fails or runs out of time. Installs missing build dependencies first.
# Environment: ZOR_BUILD_DIR (default build), ZOR_CMAKE_ARGS (extra configure arguments, for example
#              "-DZOR_SANITIZE=address,undefined"), ZOR_EXAMPLE_TIMEOUT (seconds per example, default 120).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build

build=${ZOR_BUILD_DIR:-build}
# shellcheck disable=SC2086
cmake -S . -B "$build" -G Ninja -DZOR_BUILD_EXAMPLES=ON -DZOR_MODULES= ${ZOR_CMAKE_ARGS:-} >/dev/null
examples=()
for source in examples/*.cpp; do examples+=("$(basename "$source" .cpp)"); done
cmake --build "$build" -j "$(nproc)" --target "${examples[@]}"

declare -A args=([demo_service]="--seconds 2")  # examples that run for a while unless told otherwise
bin=$(cd "$build/examples" && pwd)
failed=0
for name in "${examples[@]}"; do
    dir=$(mktemp -d /tmp/zor-example.XXXXXX)
    start=$SECONDS
    status=0
    # shellcheck disable=SC2086
    (cd "$dir" && timeout "${ZOR_EXAMPLE_TIMEOUT:-120}" "$bin/$name" ${args[$name]:-} > output 2>&1) ||
        status=$?
    echo "== $name ${args[$name]:-}: exit status $status after $((SECONDS - start)) s"
    sed 's/^/   /' "$dir/output"
    [ "$status" -eq 0 ] || failed=1
    rm -rf "$dir"
done
[ "$failed" -eq 0 ] && echo "every example ran and exited 0" || echo "an example FAILED"
exit "$failed"
