#!/bin/sh
# package.sh [release|linux32]
#
# Builds the Debian package kennly, for this machine or for 32-bit Linux, in build/packages. Installs what
# that needs.
set -eu
cd "$(dirname "$0")/.."

preset=${1:-release}
native=$(dpkg --print-architecture)
if [ "$native" != amd64 ] && [ "$native" != i386 ]; then
    echo "package.sh: there are packages for amd64 and i386; this machine is $native" >&2
    exit 1
fi
case $preset in
release)
    scripts/install-deps.sh package
    architecture=$native
    checks=
    ;;
linux32)
    scripts/install-deps.sh package linux32
    architecture=i386
    checks=--no-check-builddeps # they would have to be compilers for i386
    ;;
*)
    echo "usage: package.sh [release|linux32]" >&2
    exit 2
    ;;
esac

version=$(dpkg-parsechangelog --show-field Version)
if ! grep -q "^project(kennly VERSION $version " CMakeLists.txt; then
    echo "package.sh: $version, the version of debian/changelog, is not the one of CMakeLists.txt" >&2
    exit 1
fi

# dpkg-buildpackage leaves its results beside the source, and what it builds with in the midst of it.
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
mkdir "$place/kennly"
tar --exclude=./build --exclude=./.git -cf - . | tar -C "$place/kennly" -xf -
(cd "$place/kennly" && dpkg-buildpackage --build=binary --unsigned-source --unsigned-changes \
    --host-arch="$architecture" $checks)

mkdir -p build/packages
rm -f build/packages/kennly*_"$architecture".*
mv "$place"/kennly*_"$architecture".* build/packages
echo "built:"
ls -1 build/packages/kennly*_"$architecture".*
