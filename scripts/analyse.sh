#!/bin/sh
# Runs clang-tidy on all sources, given a build directory with compile_commands.json.
set -eu
cd "$(dirname "$0")/.."

build=${1:-build/release}
git ls-files '*.cpp' | grep -v '^benchmarks/' |
    xargs -P "$(nproc)" -n 4 clang-tidy -p "$build" --quiet --warnings-as-errors='*' 2>/dev/null ||
    {
        echo "analyse.sh: clang-tidy has found something" >&2
        exit 1
    }
echo "clang-tidy has found nothing"
