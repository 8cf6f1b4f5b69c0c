#!/bin/sh
# sanitize.sh asan|tsan|linux32-asan
#
# Builds everything under the address and undefined behaviour sanitizers, or under the thread sanitizer;
# runs the unit and stress tests. The system tests and storms are those of the build without sanitizers,
# release or linux32, and run with the programs of this one in the place of its own, which needs root.
set -eu
cd "$(dirname "$0")/.."

preset=${1:-}
case $preset in
asan | tsan)
    kind=$preset
    plain=release
    packages=check
    ;;
linux32-asan)
    kind=asan
    plain=linux32
    packages=linux32
    ;;
*)
    echo "usage: sanitize.sh asan|tsan|linux32-asan" >&2
    exit 2
    ;;
esac
case $kind in
# Whatever ends by a signal shall be seen to do so, and the program's own dispositions are tested.
asan) options=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:verify_asan_link_order=0 ;;
# A shutdown waits for no thread, so that each leaves some to the end of its process.
tsan) options=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:report_thread_leaks=0:atexit_sleep_ms=10 ;;
esac
# The thread sanitizer runs a signal's handler only after the call that the signal interrupted, so that no
# signal ends a wait for the log there.
case $kind in
tsan) left_out='^system/FullLogEndTest$' ;;
*) left_out='^$' ;;
esac

if [ "$(id -u)" -ne 0 ]; then
    echo "sanitize.sh: not root" >&2
    exit 1
fi

scripts/install-deps.sh test $packages
cmake --preset $plain -DKENNLY_BUILD_TESTS=ON >/dev/null
cmake --build build/$plain --target kennly kennlyctl kennly_tests_system kennly_tests_storm kennly_early_pause -- --quiet
cmake --preset "$preset" >/dev/null
cmake --build "build/$preset" --target kennly kennlyctl kennly_tests_unit kennly_tests_stress -- --quiet
ctest --preset "$preset"

# The daemon has no standard error, so that reports go to files.
reports=$PWD/build/$preset/reports
rm -rf "$reports"
mkdir -m 777 "$reports" # some start the daemon as another user
export "$(echo "$kind" | tr '[:lower:]' '[:upper:]')_OPTIONS=$options:log_path=$reports/$kind"
export "KENNLY_TESTS_SANITIZER=$kind"
export "UBSAN_OPTIONS=print_stacktrace=1:log_path=$reports/ubsan"
if [ "$kind" = tsan ]; then # or it loses signals that come early
    export LD_PRELOAD="$PWD/build/release/tests/support/libkennly_early_pause.so"
fi
status=0
# shellcheck disable=SC2016 # expanded inside
unshare --mount sh -c 'mount --bind "build/$1/src/kennly" "build/$2/src/kennly" &&
    mount --bind "build/$1/src/kennlyctl" "build/$2/src/kennlyctl" &&
    exec ctest --preset "$2" --label-regex "system|storm" --exclude-regex "$3"' \
    sh "$preset" $plain "$left_out" || status=$?
for report in "$reports"/*; do
    [ -e "$report" ] || continue
    status=1
    echo "=== $report"
    cat "$report"
done
exit $status
