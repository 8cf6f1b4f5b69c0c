#!/bin/sh
# Installs the Debian packages that building (always), testing and checking this project need.
#
#   scripts/install-deps.sh [test] [check]
#
# Does nothing when all of them are there. A package index that cannot be updated is a warning, because
# the others may do; a package that cannot be installed is an error that names it.
set -eu

packages="g++ cmake ninja-build libtinyxml-dev"
for group in "$@"; do
    case $group in
    test) packages="$packages libgtest-dev libgmock-dev" ;;
    check) packages="$packages clang clang-format clang-tidy libclang-rt-dev libbenchmark-dev cppcheck gcovr" ;;
    *)
        echo "install-deps.sh: no such group: $group (there are: test, check)" >&2
        exit 2
        ;;
    esac
done

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}\n' "$1" 2>/dev/null | head -n 1)" = installed ]
}

missing=""
for package in $packages; do
    is_installed "$package" || missing="$missing $package"
done
if [ -z "$missing" ]; then
    exit 0
fi
if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps.sh: not root; please install:$missing" >&2
    exit 1
fi

echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
apt-get update -q </dev/null ||
    echo "install-deps.sh: warning: a package index could not be updated; going on without it" >&2
# shellcheck disable=SC2086 # one word for each package
if apt-get install -q -y --no-install-recommends $missing </dev/null; then
    exit 0
fi
failed=""
for package in $missing; do
    is_installed "$package" ||
        apt-get install -q -y --no-install-recommends "$package" </dev/null ||
        failed="$failed $package"
done
if [ -n "$failed" ]; then
    echo "install-deps.sh: error: cannot install:$failed" >&2
    exit 1
fi
