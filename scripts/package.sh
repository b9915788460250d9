#!/usr/bin/env bash
# Builds the Debian packages libzor1 and libzor-dev the Debian way, dpkg-buildpackage -us -uc -b over
# debian/, from the source archive of scripts/dist.sh (so the work tree stays clean), and checks them with
# lintian, which must report no error. The packages, their debug symbols and the .changes file are left in
# OUTDIR; `apt-get install ./OUTDIR/libzor1_*.deb ./OUTDIR/libzor-dev_*.deb` installs them.
# Usage: scripts/package.sh [OUTDIR]   (default build-deb)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build package
out=${1:-build-deb}
mkdir -p "$out"
out=$(cd "$out" && pwd)
work=$out/work
trap 'rm -rf "$work"' EXIT
rm -rf "$work" "$out"/*.deb "$out"/*.changes "$out"/*.buildinfo
mkdir -p "$work"
archive=$(scripts/dist.sh "$work")
tar -xzf "$archive" -C "$work"
src=$(find "$work" -mindepth 1 -maxdepth 1 -type d -name 'zor-*')
# A release bumps both: the packages' version is the library's.
if [ "$(dpkg-parsechangelog -l debian/changelog -S Version)" != "${src##*/zor-}" ]; then
    echo "package: debian/changelog's version is not the project's VERSION (${src##*/zor-})" >&2
    exit 1
fi

# debhelper gives the build a home of its own, so ccache is told where its cache is. The source sits at
# the same path in every run, and paths under it are hashed as relative ones: repeated builds hit.
ccache_dir=$(ccache -k cache_dir 2>/dev/null || true)
echo "package: dpkg-buildpackage -us -uc -b (log in $out/build.log)"
if ! (cd "$src" && CCACHE_DIR=$ccache_dir CCACHE_BASEDIR=$src DEB_BUILD_OPTIONS="parallel=$(nproc)" \
        dpkg-buildpackage -us -uc -b) > "$out/build.log" 2>&1; then
    tail -n 40 "$out/build.log"
    echo "package: the build failed" >&2
    exit 1
fi
mv "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$out"/

changes=$(find "$out" -maxdepth 1 -name 'zor_*.changes' | head -n 1)
# lintian warns on stderr when it runs as root; what counts is its tags on stdout.
lintian --fail-on error --display-info "$changes" 2>/dev/null | tee "$out/lintian.log" || {
    echo "package: lintian reports errors" >&2
    exit 1
}
echo "package: lintian: $(grep -c '^E:' "$out/lintian.log" || true) errors," \
     "$(grep -c '^W:' "$out/lintian.log" || true) warnings, $(grep -c '^I:' "$out/lintian.log" || true) notes"
ls "$out"/*.deb
