#!/bin/sh
# Counts which lines and branches of both programs the unit tests run, in a build of its own, and fails when
# there are too few. Branches that only an exception takes do not count, nor do verbs of kennlyctl that have
# system tests alone. The report is build/coverage/report/index.html.
set -eu
cd "$(dirname "$0")/.."

scripts/install-deps.sh test check
cmake --preset coverage >/dev/null
cmake --build build/coverage --target kennly_tests_unit -- --quiet
find build/coverage -name '*.gcda' -delete
ctest --preset coverage
mkdir -p build/coverage/report
exec gcovr --root . --filter src/ --exclude 'src/ctl/(Apply|Check|Start|Stop|Test)Verb' \
    --exclude src/ctl/Surroundings --exclude-throw-branches \
    --exclude-unreachable-branches --print-summary --fail-under-line 95 --fail-under-branch 90 \
    --html-details build/coverage/report/index.html build/coverage
