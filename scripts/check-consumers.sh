#!/usr/bin/env bash
# Builds and runs the consumer program (common/test/consumer) along every path a project takes to zor:
#   installed     the shared library installed into a scratch prefix, through find_package(zor) and
#                 through pkg-config; checks the SONAME
#   static        a static build (BUILD_SHARED_LIBS=OFF) installed the same way, through find_package(zor)
#                 and pkg-config --static; checks that nothing needs libzor.so at run time
#   subdirectory  a parent project that add_subdirectory()s the tree, configured without GoogleTest; the
#                 parent checks that zor adds its library and nothing else, and installs nothing of zor
#   fetchcontent  the same parent fetching the source archive of a release (scripts/dist.sh) with
#                 FetchContent, asking for the install with ZOR_INSTALL=ON
#   debian        the Debian packages built and linted (scripts/package.sh), installed with apt-get,
#                 used with no further step, then purged; checks that the purge leaves nothing behind
# Every consumer is compiled as C++20, which zor's flags must leave alone. (grep reads its whole input in
# the pipes below: with -q it could stop early and fail the writer under pipefail.)
# Usage: scripts/check-consumers.sh [--build-dir DIR] [path...]   (no path: all of them)
#   --build-dir DIR: the installed path uses this existing build instead of making its own.
# Environment: ZOR_CONSUMERS_BUILD_DIR (default build-consumers) holds the builds this script makes.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
given_build=""
if [ "${1:-}" = "--build-dir" ]; then
    given_build=$(cd "$2" && pwd)
    shift 2
fi
paths=("$@")
[ ${#paths[@]} -gt 0 ] || paths=(installed static subdirectory fetchcontent debian)
builds=$(realpath -m "${ZOR_CONSUMERS_BUILD_DIR:-build-consumers}")
consumer=$root/common/test/consumer
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() { echo "check-consumers: $*" >&2; exit 1; }

# Configures and builds the library alone in the given directory, with the given extra arguments.
build_library() {
    local dir=$1
    shift
    cmake -S . -B "$dir" -G Ninja -DZOR_BUILD_TESTS=OFF -DZOR_BUILD_EXAMPLES=OFF -DZOR_MODULES= "$@" \
          >/dev/null
    cmake --build "$dir" -j "$(nproc)" >/dev/null
}

# Fails unless every program named needs libzor.so.1 at run time (shared) or does not need it (static).
check_needed() {
    local kind=$1
    shift
    for program in "$@"; do
        if readelf -d "$program" | grep 'NEEDED.*\[libzor\.so' >/dev/null; then
            [ "$kind" = shared ] || fail "$program needs libzor.so although zor was linked statically"
            readelf -d "$program" | grep 'NEEDED.*\[libzor\.so\.1\]' >/dev/null ||
                fail "$program does not need libzor.so.1"
        else
            [ "$kind" = static ] || fail "$program does not need the shared libzor"
        fi
    done
}

# Builds the consumer through find_package(zor) and through pkg-config and runs both. With a prefix, the
# consumer is pointed at it; without one it must find zor where the system keeps it, with nothing set.
# The first argument, shared or static, says which library the consumers must have been linked with.
consume() {
    local kind=$1 prefix=${2:-} name
    name=$(basename "${prefix:-system}")
    local env=() cmake_args=() pc_static=()
    if [ -n "$prefix" ]; then
        local pcdir
        pcdir=$(dirname "$(find "$prefix" -name zor.pc | head -n 1)")
        env=(LD_LIBRARY_PATH="$(dirname "$pcdir")" PKG_CONFIG_PATH="$pcdir")
        cmake_args=(-DCMAKE_PREFIX_PATH="$prefix")
    fi
    if [ "$kind" = static ]; then pc_static=(--static); fi

    cmake -S "$consumer" -B "$scratch/$name-cmake" "${cmake_args[@]}" >/dev/null
    cmake --build "$scratch/$name-cmake" >/dev/null
    env "${env[@]}" "$scratch/$name-cmake/consumer"

    local flags version
    flags=$(env "${env[@]}" pkg-config --cflags --libs "${pc_static[@]}" zor)
    version=$(env "${env[@]}" pkg-config --modversion zor)
    # shellcheck disable=SC2086
    ${CXX:-c++} -std=c++20 -DZOR_CONSUMER_CXX20 -DZOR_PACKAGE_VERSION="\"$version\"" \
        -o "$scratch/$name-pc" "$consumer/main.cpp" $flags
    env "${env[@]}" "$scratch/$name-pc"
    check_needed "$kind" "$scratch/$name-cmake/consumer" "$scratch/$name-pc"
}

# Installs a build into a scratch prefix, checks what kind of library it holds and consumes it.
check_install() {
    local build=$1 prefix=$scratch/prefix-$2
    cmake --install "$build" --prefix "$prefix" >/dev/null
    local shared static
    shared=$(find "$prefix" -name 'libzor.so*' | head -n 1)
    static=$(find "$prefix" -name 'libzor.a' | head -n 1)
    if [ -n "$shared" ]; then
        [ -z "$static" ] || fail "a shared build installed libzor.a as well"
        local lib
        lib=$(find "$prefix" -name 'libzor.so.1.*' -type f | head -n 1)
        readelf -d "$lib" | grep 'Library soname: \[libzor\.so\.1\]' >/dev/null ||
            fail "the SONAME is not libzor.so.1"
        consume shared "$prefix"
    else
        [ -n "$static" ] || fail "$build installed no library"
        consume static "$prefix"
    fi
}

check_installed() {
    local build=$given_build
    if [ -z "$build" ]; then
        build=$builds/shared
        build_library "$build"
    fi
    check_install "$build" installed
}

check_static() {
    build_library "$builds/static" -DBUILD_SHARED_LIBS=OFF
    [ -f "$builds/static/libzor.a" ] || fail "BUILD_SHARED_LIBS=OFF made no libzor.a"
    check_install "$builds/static" static
}

# Configures, builds and installs the parent project with the given arguments and runs its consumer. The
# files of the install are listed, one a line, in $scratch/NAME-installed.
check_parent() {
    local name=$1
    shift
    local build=$builds/$name prefix=$scratch/prefix-$name
    rm -rf "$build"
    # GoogleTest is installed on this machine: disabling it shows that zor does not look for it.
    cmake -S "$consumer/parent" -B "$build" -G Ninja --no-warn-unused-cli \
          -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON "$@" >/dev/null
    cmake --build "$build" -j "$(nproc)" >/dev/null
    "$build/consumer"
    cmake --install "$build" --prefix "$prefix" >/dev/null
    (cd "$prefix" && find . ! -type d | sed 's|^\./||' | sort) > "$scratch/$name-installed"
}

check_subdirectory() {
    check_parent subdirectory -DPARENT_ZOR_DIR="$root"
    if [ "$(cat "$scratch/subdirectory-installed")" != "bin/consumer" ]; then
        fail "subdirectory: zor added itself to the parent's install:" \
             "$(cat "$scratch/subdirectory-installed")"
    fi
}

check_fetchcontent() {
    local archive
    archive=$(scripts/dist.sh "$scratch")
    check_parent fetchcontent -DPARENT_ZOR_ARCHIVE="$archive" -DZOR_INSTALL=ON
    for file in 'bin/consumer' 'include/zor/Logger\.h' 'include/zor/ZorVersion\.h' 'lib[^ ]*/libzor\.so\.1' \
                'lib[^ ]*/pkgconfig/zor\.pc' 'lib[^ ]*/cmake/zor/zorConfig\.cmake'; do
        grep -qx "$file" "$scratch/fetchcontent-installed" ||
            fail "fetchcontent: ZOR_INSTALL=ON did not install $file"
    done
}

check_debian() {
    scripts/install-deps.sh package
    for package in libzor1 libzor-dev; do
        if dpkg-query -W "$package" >/dev/null 2>&1; then
            fail "$package is on this machine already; this check would remove it"
        fi
    done
    local out=$builds/debian
    scripts/package.sh "$out"
    local debs=("$out"/libzor1_*.deb "$out"/libzor-dev_*.deb)

    # What the packages will create, and which of their directories exist before they come.
    local listing=$scratch/package-files before=$scratch/dirs-before
    for deb in "${debs[@]}"; do dpkg-deb --fsys-tarfile "$deb" | tar -t; done | sed 's|^\.||; s|/$||' |
        grep -v '^$' | sort -u > "$listing"
    while read -r path; do
        if [ -d "$path" ]; then echo "$path"; fi
    done < "$listing" > "$before"

    # Another apt-get on the machine holds the lock for a while at most: wait for it rather than fail.
    apt=(apt-get -y -qq -o DPkg::Lock::Timeout=300)  # global: the exit trap uses it
    [ "$(id -u)" -eq 0 ] || apt=(sudo "${apt[@]}")
    export DEBIAN_FRONTEND=noninteractive
    trap '"${apt[@]}" purge libzor1 libzor-dev >/dev/null 2>&1 || true; rm -rf "$scratch"' EXIT
    "${apt[@]}" install "${debs[@]}" >/dev/null
    consume shared
    "${apt[@]}" purge libzor1 libzor-dev >/dev/null

    if dpkg-query -W libzor1 >/dev/null 2>&1 || dpkg-query -W libzor-dev >/dev/null 2>&1; then
        fail "dpkg still knows the packages after the purge"
    fi
    while read -r path; do
        if grep -qxF "$path" "$before"; then
            [ -d "$path" ] || fail "the purge removed $path, which existed before the install"
        elif [ -e "$path" ] || [ -L "$path" ]; then
            fail "the purge left $path behind"
        fi
    done < "$listing"
    if ldconfig -p | grep 'libzor\.so' >/dev/null; then
        fail "the linker cache still names libzor after the purge"
    fi
    echo "check-consumers: debian: packages installed, used with no further step, purged without a trace"
}

for path in "${paths[@]}"; do
    case "$path" in
        installed | static | subdirectory | fetchcontent | debian) ;;
        *) fail "unknown path: $path (installed, static, subdirectory, fetchcontent, debian)" ;;
    esac
    echo "== consumer: $path"
    "check_$path"
done
echo "check-consumers: ${paths[*]}: every consumer built and ran"
