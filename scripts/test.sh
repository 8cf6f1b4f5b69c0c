#!/bin/sh
# Builds the program as it is installed, with all its tests, and runs them; ends in CTest's summary.
set -eu
cd "$(dirname "$0")/.."

scripts/install-deps.sh test
cmake --preset release -DKENNLY_BUILD_TESTS=ON >/dev/null
cmake --build build/release
exec ctest --preset release
