#!/bin/sh
# Runs clang-tidy and cppcheck on the program, and clang-tidy on the demonstration and what tests share,
# given a build directory with compile_commands.json. Tests themselves are left to the compilers:
# GoogleTest's macros would take the analyser ten minutes.
set -eu
cd "$(dirname "$0")/.."

build=${1:-build/release}
git ls-files 'src/*.cpp' 'demo/*.cpp' 'tests/support/*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy -p "$build" --quiet --warnings-as-errors='*' 2>/dev/null ||
    {
        echo "analyse.sh: clang-tidy has found something" >&2
        exit 1
    }
echo "clang-tidy has found nothing"

cppcheck --quiet --enable=warning,style,performance,portability --std=c++17 --language=c++ \
    -D_GNU_SOURCE --suppress=missingIncludeSystem --inline-suppr --error-exitcode=1 \
    -j "$(nproc)" -I src src ||
    {
        echo "analyse.sh: cppcheck has found something" >&2
        exit 1
    }
echo "cppcheck has found nothing"
