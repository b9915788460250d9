#!/usr/bin/env bash
# Installs the peer libraries from Debian, builds every benchmark in Release, runs each (with five
# repetitions unless other Google Benchmark arguments are given) and prints one table (operation, zor, peer, ratio peer/zor, target). The table is also written, with the machine
# and the date, to bench/RESULTS.md.
# Usage: scripts/bench.sh [extra Google Benchmark arguments, e.g. --benchmark_min_time=0.2]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build bench

build=${ZOR_BENCH_BUILD_DIR:-build-bench}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZOR_BUILD_BENCH=ON -DZOR_BUILD_TESTS=OFF \
      -DZOR_BUILD_EXAMPLES=OFF -DZOR_MODULES= >/dev/null
cmake --build "$build" -j "$(nproc)"

# Repetitions with random interleaving steady the figures on a busy machine; the table shows medians.
args=("$@")
[ ${#args[@]} -gt 0 ] || args=(--benchmark_repetitions=5 --benchmark_enable_random_interleaving=true
                               --benchmark_report_aggregates_only=true)

rows=$(mktemp)
trap 'rm -f "$rows"' EXIT
for program in "$build"/bench/*Bench; do
    [ -x "$program" ] || continue
    echo "== $(basename "$program")"
    ZOR_BENCH_MARKDOWN="$rows" "$program" --benchmark_color=false "${args[@]}" 2>/dev/null | sed -n '/^case /,$p'
done

results=bench/RESULTS.md
{
    echo "# Benchmark results"
    echo
    echo "Made by \`scripts/bench.sh\` on $(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores,"
    echo "$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//'), $(uname -sr)."
    echo "Ratio is peer time / zor time: above 1 means zor is faster. Each case ran in one process beside"
    echo "its peer, interleaved at random; figures are medians of the repetitions (\`${args[*]}\`)."
    echo
    echo "| operation | zor | peer | ratio | target | verdict |"
    echo "|---|---|---|---|---|---|"
    cat "$rows"
    [ -f bench/NOTES.md ] && cat bench/NOTES.md
} > "$results"
echo
echo "== all results (also in $results)"
sed -n "/^| operation/,\$p" "$results"
