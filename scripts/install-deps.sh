#!/usr/bin/env bash
# Installs, from Debian's packages, whatever the named tasks need and this machine lacks, and says what
# it does. Tasks: build, test, bench, fuzz, docs, format, tidy, coverage, package, memcheck. With no task,
# "build test".
# Usage: scripts/install-deps.sh [task...]
set -euo pipefail

packages_for() {
    case "$1" in
        build) echo "cmake g++ ninja-build make pkg-config ccache binutils" ;;
        test) echo "cmake g++ ninja-build make pkg-config ccache binutils libgtest-dev libgmock-dev iproute2" ;;
        bench) echo "libbenchmark-dev libspdlog-dev libpoco-dev libevent-dev libssl-dev" ;;
        fuzz) echo "clang libclang-rt-14-dev" ;;
        docs) echo "doxygen graphviz" ;;
        format) echo "clang-format" ;;
        tidy) echo "cmake g++ ninja-build clang-tidy" ;;
        coverage) echo "gcovr" ;;
        package) echo "build-essential dpkg-dev debhelper lintian file" ;;
        memcheck) echo "valgrind" ;;
        *) echo "unknown task: $1" >&2; exit 2 ;;
    esac
}

tasks=("$@")
[ ${#tasks[@]} -gt 0 ] || tasks=(build test)

wanted=()
for task in "${tasks[@]}"; do
    for package in $(packages_for "$task"); do wanted+=("$package"); done
done

missing=()
for package in $(printf '%s\n' "${wanted[@]}" | sort -u); do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing+=("$package")
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "install-deps: everything for '${tasks[*]}' is already installed"
    exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
# Another apt-get on the machine holds the lock for a while at most: wait for it rather than fail.
$sudo apt-get update -qq -o DPkg::Lock::Timeout=300
$sudo apt-get install -y -qq -o DPkg::Lock::Timeout=300 --no-install-recommends "${missing[@]}" >/dev/null
echo "install-deps: installed ${missing[*]}"
