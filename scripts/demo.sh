#!/bin/sh
# Builds the daemon and kennlyctl, and shows them at work in a private namespace: nothing on this machine changes.
# Ends by itself, with status 0 when everything it tells of has happened.
set -eu
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset release -DKENNLY_BUILD_TESTS=OFF -DKENNLY_BUILD_BENCHMARKS=OFF \
    -B build/demo >/dev/null
cmake --build build/demo
exec build/demo/demo/kennly-demo
