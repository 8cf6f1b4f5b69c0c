#!/bin/sh
# build.sh [release|linux32]
#
# Builds the daemon and kennlyctl as they are installed, for this machine or for 32-bit Linux, and nothing else.
# Installs what that needs.
set -eu
cd "$(dirname "$0")/.."

preset=${1:-release}
case $preset in
release) scripts/install-deps.sh ;;
linux32) scripts/install-deps.sh linux32 ;;
*)
    echo "usage: build.sh [release|linux32]" >&2
    exit 2
    ;;
esac
cmake --preset "$preset" -DKENNLY_BUILD_TESTS=OFF >/dev/null
cmake --build "build/$preset" --target kennly kennlyctl
echo "built: build/$preset/src/kennly and build/$preset/src/kennlyctl"
