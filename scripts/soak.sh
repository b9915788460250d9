#!/usr/bin/env bash
# Runs the demo service's components at full load for the given time (default 60 s): half of it with the
# logger asynchronous, half synchronous, both with log rotation, the action manager and the pool, an
# epoll echo server with 32 clients and file-system changes journalled at every tick. Every second it
# samples the resident memory, descriptors and threads of the process. It fails if a run loses a log
# line, a job or an echo (the demo checks that itself), or if memory, descriptors or threads grow after
# the warm-up. An hour: scripts/soak.sh 3600
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
half=$(( seconds / 2 > 5 ? seconds / 2 : 5 ))
# The demo logs about 17 lines a second: a file limit of a quarter of a run's lines separates the log a
# few times without dropping a backup, so every line can still be counted at the end.
log_lines=$(( half * 17 / 4 + 10 ))
scripts/install-deps.sh build

build=${ZOR_SOAK_BUILD_DIR:-build-soak}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZOR_BUILD_TESTS=OFF -DZOR_BUILD_EXAMPLES=ON \
      -DZOR_SANITIZE= -DZOR_MODULES= >/dev/null
cmake --build "$build" -j "$(nproc)" --target demo_service
demo=$(cd "$build/examples" && pwd)/demo_service

# Samples "rss_kb descriptors threads" of a process once a second until it ends.
sample() {
    local pid=$1 out=$2
    while kill -0 "$pid" 2>/dev/null; do
        local rss threads fds
        rss=$(awk '/^VmRSS:/ {print $2}' "/proc/$pid/status" 2>/dev/null || true)
        threads=$(awk '/^Threads:/ {print $2}' "/proc/$pid/status" 2>/dev/null || true)
        fds=$(ls "/proc/$pid/fd" 2>/dev/null | wc -l)
        [ -n "$rss" ] && echo "$rss $fds $threads" >> "$out"
        sleep 1
    done
}

# Fails when a column's largest value after the warm-up (the first fifth of the samples, at least 3)
# exceeds its largest warm-up value: by more than 25 % + 2 MiB for memory, at all for the counts.
check_growth() {
    awk -v name="$2" '
        { rss[NR] = $1; fds[NR] = $2; thr[NR] = $3 }
        END {
            warm = int(NR / 5); if (warm < 3) warm = 3
            if (NR <= warm) { print name ": too few samples (" NR ")"; exit 0 }
            for (i = 1; i <= warm; i++) { if (rss[i] > r0) r0 = rss[i]; if (fds[i] > f0) f0 = fds[i]; if (thr[i] > t0) t0 = thr[i] }
            for (i = warm + 1; i <= NR; i++) { if (rss[i] > r1) r1 = rss[i]; if (fds[i] > f1) f1 = fds[i]; if (thr[i] > t1) t1 = thr[i] }
            printf "%s: %d samples; memory %d -> %d KiB, descriptors %d -> %d, threads %d -> %d\n", name, NR, r0, r1, f0, f1, t0, t1
            if (r1 > r0 * 1.25 + 2048 || f1 > f0 || t1 > t0) { print name ": GROWTH after warm-up"; exit 1 }
        }' "$1"
}

status=0
workdir=$(mktemp -d /tmp/zor-soak.XXXXXX)
for mode in async sync; do
    samples="$workdir/$mode.samples"
    args=(--seconds "$half" --workdir "$workdir/$mode" --clients 32 --churn --log-lines "$log_lines")
    [ "$mode" = sync ] && args+=(--sync-log)
    echo "== soak: $mode logger, $half s"
    "$demo" "${args[@]}" > "$workdir/$mode.out" &
    pid=$!
    sample "$pid" "$samples" &
    sampler=$!
    if ! wait "$pid"; then
        echo "soak: the $mode run lost work or left threads or descriptors behind"
        status=1
    fi
    wait "$sampler" || true
    cat "$workdir/$mode.out"
    check_growth "$samples" "$mode" || status=1
done
[ $status -eq 0 ] && rm -rf "$workdir" || echo "soak: output kept in $workdir"
exit $status
