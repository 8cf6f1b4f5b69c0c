#!/bin/sh
# test-package.sh [release|linux32]
#
# Takes the Debian package in build/packages, which scripts/package.sh has built, has lintian judge it, and tries
# it in machines of their own: installed, at work under systemd with a real system log, upgraded, removed,
# purged; and, with that of this machine, each recipe. Needs root. Installs what that needs, here and in the
# machines.
set -eu
cd "$(dirname "$0")/.."

preset=${1:-release}
case $preset in
release)
    architecture=$(dpkg --print-architecture)
    tests=$(ls tests/package/*.bats)
    ;;
linux32)
    architecture=i386
    tests=tests/package/InstallTest.bats # the recipes do not depend on it
    ;;
*)
    echo "usage: test-package.sh [release|linux32]" >&2
    exit 2
    ;;
esac
if [ "$(id -u)" -ne 0 ]; then
    echo "test-package.sh: only root can boot machines" >&2
    exit 1
fi
scripts/install-deps.sh package-test

version=$(dpkg-parsechangelog --show-field Version)
changes=build/packages/kennly_${version}_$architecture.changes
lintian --allow-root --display-info --pedantic --fail-on error,warning,info,pedantic "$changes"
echo "lintian has nothing to say"

# Of a release alone: what is newer may be there for one architecture and not yet for another.
export KENNLY_MACHINES="$PWD/build/machines/$architecture"
if ! [ -d "$KENNLY_MACHINES/base" ]; then
    mkdir -p "$KENNLY_MACHINES"
    rm -rf "$KENNLY_MACHINES/base.new"
    mmdebstrap --variant=minbase --architectures="$architecture" --include=systemd-sysv,dbus \
        bookworm "$KENNLY_MACHINES/base.new" 'deb http://deb.debian.org/debian bookworm main'
    mv "$KENNLY_MACHINES/base.new" "$KENNLY_MACHINES/base"
fi
export KENNLY_PACKAGES="$PWD/build/packages"
export KENNLY_PACKAGE="kennly_${version}_$architecture.deb"
# Each has machines of its own, and mostly waits.
results=$(mktemp -d)
finish() {
    rm -rf "$results"
    for machine in "$KENNLY_MACHINES"/*.pid; do # of tests that could not end them
        [ ! -e "$machine" ] || pkill -KILL --parent "$(cat "$machine")" || true
    done
}
trap finish EXIT
trap 'exit 1' HUP INT TERM
for test in $tests; do
    {
        bats --print-output-on-failure --timing "$test" >"$results/$(basename "$test")" 2>&1 </dev/null ||
            echo "$test" >>"$results/failed"
    } &
done
wait
cat "$results"/*.bats
if [ -e "$results/failed" ]; then
    echo "test-package.sh: failed: $(xargs <"$results/failed")" >&2
    exit 1
fi
echo "test-package.sh: all tests of the package for $architecture passed"
