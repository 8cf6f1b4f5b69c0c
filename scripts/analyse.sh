#!/bin/sh
# Runs clang-tidy and cppcheck on the program, and clang-tidy on the demonstration, the benchmarks and what tests
# share. Tests themselves are left to the compilers: GoogleTest's macros would take the analyser ten minutes.
set -eu
cd "$(dirname "$0")/.."

scripts/install-deps.sh test check bench
build=build/analysis # for the commands by which all of these are compiled
cmake --preset release -DKENNLY_BUILD_BENCHMARKS=ON -B $build >/dev/null
git ls-files 'src/*.cpp' 'demo/*.cpp' 'benchmarks/*.cpp' 'tests/support/*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy -p $build --quiet --warnings-as-errors='*' 2>/dev/null ||
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
