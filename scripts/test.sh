#!/bin/sh
# test.sh [release|linux32]
#
# Builds the program as it is installed, for this machine or for 32-bit Linux, with all its tests, and runs
# them; ends in CTest's summary. With linux32, programs of both kinds have to read each other's records.
set -eu
cd "$(dirname "$0")/.."

preset=${1:-release}
case $preset in
release) scripts/install-deps.sh test ;;
linux32) scripts/install-deps.sh test linux32 ;;
*)
    echo "usage: test.sh [release|linux32]" >&2
    exit 2
    ;;
esac
cmake --preset release -DKENNLY_BUILD_TESTS=ON >/dev/null
if [ "$preset" = linux32 ]; then
    cmake --build build/release --target kennly
    cmake --preset linux32 -DKENNLY_BUILD_TESTS=ON \
        -DKENNLY_OTHER_PROGRAM="$PWD/build/release/src/kennly" >/dev/null
fi
cmake --build "build/$preset"
exec ctest --preset "$preset"
