#!/usr/bin/env bash
# Builds every libFuzzer target (clang, AddressSanitizer, UndefinedBehaviorSanitizer) and runs each for
# the given number of seconds (default 60) on a scratch copy of its seed corpus in fuzz/corpus/<Name>/.
# A crash fails the run; its input is kept under build-fuzz/crashes/ to become a regression test.
# Usage: scripts/fuzz.sh [seconds]
# Environment: ZOR_FUZZ_SEED fixes libFuzzer's random seed, so that a short run explores the same way
#              each time (CI sets it; left unset, every run explores afresh).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
scripts/install-deps.sh build fuzz

build=${ZOR_FUZZ_BUILD_DIR:-build-fuzz}
cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZOR_FUZZ=ON \
      -DZOR_SANITIZE=address,undefined -DZOR_BUILD_TESTS=OFF -DZOR_BUILD_EXAMPLES=OFF -DZOR_MODULES= >/dev/null
cmake --build "$build" -j "$(nproc)"

mkdir -p "$build/crashes"
status=0
for fuzzer in "$build"/fuzz/*Fuzz; do
    [ -x "$fuzzer" ] || continue
    name=$(basename "$fuzzer" Fuzz)
    corpus=$(mktemp -d)
    [ -d "fuzz/corpus/$name" ] && cp -r "fuzz/corpus/$name/." "$corpus/"
    echo "fuzz: $name for ${seconds}s"
    if ! "$fuzzer" -max_total_time="$seconds" -rss_limit_mb=2048 -print_final_stats=0 -seed="${ZOR_FUZZ_SEED:-0}" \
            -artifact_prefix="$build/crashes/$name-" "$corpus" >"$build/$name.log" 2>&1; then
        echo "fuzz: $name FAILED (see $build/$name.log)"
        tail -n 40 "$build/$name.log"
        status=1
    fi
    rm -rf "$corpus"
done
exit $status
