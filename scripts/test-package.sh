#!/usr/bin/env bash
# test-package.sh [release|linux32]
#
# Takes the Debian package in build/packages, which scripts/package.sh has built, has lintian judge it, and tries
# it in machines of their own: installed, at work under systemd with a real system log, upgraded, removed,
# purged; and, with that of this machine, each recipe. Needs root. Installs what that needs, here and in the
# machines.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-release}
case $preset in
release)
    architecture=$(dpkg --print-architecture)
    tests=(tests/package/*.bats)
    ;;
linux32)
    architecture=i386
    tests=(tests/package/InstallTest.bats) # what the others try does not depend on it
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
# The compiler lays out texts in pieces that overlap, which look misspelt in the program.
lintian --allow-root --display-info --pedantic --fail-on error,warning,info,pedantic \
    --suppress-tags spelling-error-in-binary "$changes"
echo "lintian has nothing to say"

# Of a release alone: what is newer may be there for one architecture and not yet for another.
export KENNLY_MACHINES="$PWD/build/machines/$architecture"
mkdir -p "$KENNLY_MACHINES"
exec 9>"$KENNLY_MACHINES/lock"
if ! flock --nonblock 9; then
    echo "test-package.sh: another run is at work in $KENNLY_MACHINES" >&2
    exit 1
fi
if ! [ -d "$KENNLY_MACHINES/base" ]; then
    rm -rf "$KENNLY_MACHINES/base.new"
    mmdebstrap --variant=minbase --architectures="$architecture" --include=systemd-sysv,dbus \
        bookworm "$KENNLY_MACHINES/base.new" 'deb http://deb.debian.org/debian bookworm main'
    mv "$KENNLY_MACHINES/base.new" "$KENNLY_MACHINES/base"
fi
export KENNLY_PACKAGES="$PWD/build/packages"
export KENNLY_PACKAGE="kennly_${version}_$architecture.deb"

# Each has machines of its own, and mostly waits. In process groups, to be ended with this script.
results=$(mktemp -d)
declare -A processes
# shellcheck source=tests/package/Machine.bash
. tests/package/Machine.bash
finish() {
    for process in "${processes[@]}"; do
        kill -- "-$process" 2>/dev/null || true # most have ended
        wait "$process" || true
    done
    for machine in "$KENNLY_MACHINES"/*.pid; do # of tests that could not end them
        [ ! -e "$machine" ] || machine_end "$(basename "$machine" .pid)"
    done
    rm -rf "$results"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

set -m
for test in "${tests[@]}"; do
    timeout --kill-after=60 2400 bats --print-output-on-failure --timing "$test" \
        >"$results/$(basename "$test")" 2>&1 </dev/null 9>&- &
    processes[$test]=$!
done
set +m
failed=
for test in "${tests[@]}"; do
    wait "${processes[$test]}" || failed="$failed $test"
    cat "$results/$(basename "$test")"
done
processes=()
if [ -n "$failed" ]; then
    echo "test-package.sh: failed:$failed" >&2
    exit 1
fi
echo "test-package.sh: all tests of the package for $architecture passed"
