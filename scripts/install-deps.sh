#!/bin/sh
# Installs the Debian packages that building (always), testing and checking this project need, its benchmarks,
# its packaging, and building for 32-bit Linux on a 64-bit machine.
#
#   scripts/install-deps.sh [test] [check] [bench] [package] [package-test] [linux32]
#
# Does nothing when all of them are there. A package index that cannot be updated is a warning, because
# the others may do; a package that cannot be installed is an error that names it.
set -eu

native=$(dpkg --print-architecture)
packages="g++ cmake ninja-build libtinyxml-dev libcli11-dev nlohmann-json3-dev"
second=
for group in "$@"; do
    case $group in
    test) packages="$packages libgtest-dev libgmock-dev googletest bats bats-assert libxml2-utils man-db mandoc"
        packages="$packages prometheus rsyslog rsyslog-relp openssl iproute2 procps python3 gnuplot-nox" ;;
    check) packages="$packages clang clang-format clang-tidy libclang-rt-dev cppcheck gcovr git" ;;
    bench) packages="$packages libbenchmark-dev valgrind python3 gnuplot-nox" ;;
    package) packages="$packages build-essential debhelper" ;;
    package-test) packages="$packages dpkg-dev lintian bats bats-assert libxml2-utils mmdebstrap arch-test systemd-container procps" ;;
    linux32)
        packages="$packages g++-multilib binutils-i686-linux-gnu libtinyxml-dev:i386"
        second=i386
        ;;
    *)
        echo "install-deps.sh: no such group: $group (there are: test, check, bench, package, package-test, linux32)" >&2
        exit 2
        ;;
    esac
done
if [ -n "$second" ] && [ "$native" != amd64 ]; then
    echo "install-deps.sh: linux32 is for machines of the architecture amd64; this one is $native" >&2
    exit 1
fi

is_installed() {
    case $1 in
    *:*) architecture=${1#*:} ;;
    *) architecture=$native ;; # one of another architecture alone does not do
    esac
    # shellcheck disable=SC2016 # dpkg-query expands it
    dpkg-query -W -f '${Architecture} ${db:Status-Status}\n' "$1" 2>/dev/null |
        grep -qx -e "$architecture installed" -e "all installed"
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

install() {
    apt-get install -q -y --no-install-recommends "$@" </dev/null
}

echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
if [ -n "$second" ] && ! dpkg --print-foreign-architectures | grep -qx "$second"; then
    echo "Adding the architecture $second to those of dpkg"
    dpkg --add-architecture "$second"
fi
apt-get update -q </dev/null ||
    echo "install-deps.sh: warning: a package index could not be updated; going on with those there are" >&2
# shellcheck disable=SC2086 # one word for each package
if install $missing; then
    exit 0
fi

# A suite one of whose indexes fails is left out with all of them, so the one of a second architecture may
# have taken those of the first along. Only now, because packages of both have to be of the same version,
# which they are more often when a suite is there for both or for neither.
if [ -n "$second" ]; then
    apt-get update -q -o APT::Architectures::="$native" -o APT::Get::List-Cleanup=0 </dev/null ||
        echo "install-deps.sh: warning: a package index of $native could not be updated either" >&2
fi
failed=""
for package in $missing; do
    is_installed "$package" || install "$package" || failed="$failed $package"
done
if [ -n "$failed" ]; then
    echo "install-deps.sh: error: cannot install:$failed" >&2
    exit 1
fi
