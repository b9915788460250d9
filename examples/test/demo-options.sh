#!/usr/bin/env bash
# demo_service's command line: --help prints the usage and exits 0; an unknown option, a stray argument,
# a missing value or a bad value exits 2 with a message naming the problem. None of them runs the demo.
# Usage: demo-options.sh path/to/demo_service
set -uo pipefail
demo=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
failures=0

# expect STATUS TEXT ARGS...: the demo run with ARGS exits with STATUS and prints TEXT, on standard output
# for status 0 and on standard error otherwise.
expect() {
    local want=$1 text=$2 status=0 stream=out
    shift 2
    timeout 60 "$demo" "$@" > out 2> err || status=$?
    [ "$want" -ne 0 ] && stream=err
    if [ "$status" -ne "$want" ] || ! grep -qF -- "$text" "$stream"; then
        echo "FAIL: demo_service $*: status $status (expected $want and \"$text\")"
        cat out err
        failures=$((failures + 1))
    fi
}

expect 0 "Usage: demo_service [OPTION]..." --help
expect 0 "--seconds N" --clients 3 --help
expect 2 "unknown option '--bogus'" --bogus
expect 2 "unexpected argument 'extra'" extra
expect 2 "--seconds needs a value" --seconds
expect 2 "--seconds needs a whole number from 1 to 86400, not 'abc'" --seconds abc
expect 2 "--seconds needs a whole number from 1 to 86400, not '5s'" --seconds 5s
expect 2 "--port needs a whole number from 1 to 65535, not '70000'" --port 70000
expect 2 "--clients needs a whole number from 1 to 1000, not '0'" --clients 0
if [ -e demo-run ]; then
    echo "FAIL: a command line that should only be answered ran the demo"
    failures=$((failures + 1))
fi
[ "$failures" -eq 0 ] && echo "demo_service: every command line answered as expected"
exit "$failures"
