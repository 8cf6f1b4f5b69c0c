#!/bin/sh
# soak.sh MINUTES [SEED]
#
# Builds the program as it is installed and has all storms rage over it at once, for so many minutes.
# Each prints its figures; ends with status 0 when nothing was lost. A seed repeats the random choices of
# an earlier run.
set -eu
cd "$(dirname "$0")/.."

usage() {
    echo "usage: soak.sh MINUTES [SEED]" >&2
    exit 2
}

case $# in
1 | 2) ;;
*) usage ;;
esac
for number in "$@"; do
    case $number in
    '' | *[!0-9]* | 0*) usage ;;
    esac
done
seconds=$(($1 * 60))
seed=${2:-$(od -An -N3 -tu4 /dev/urandom | tr -d ' ')}
build=build/release

scripts/install-deps.sh test
cmake --preset release -DKENNLY_BUILD_TESTS=ON >/dev/null
cmake --build $build --target kennly_tests_storm

storms="Start Shutdown Reload Heartbeat"
results=$(mktemp -d)
processes=
trap 'kill $processes 2>/dev/null; rm -rf "$results"; exit 130' INT TERM
trap 'rm -rf "$results"' EXIT
for name in $storms; do
    "$build/tests/storm/storm_${name}Storm" --seconds=$seconds --seed="$seed" >"$results/$name" 2>&1 &
    processes="$processes $!"
done
echo "all storms rage for $1 minutes, seed $seed, until $(date -d "+$seconds seconds" +%H:%M)"

failed=
for name in $storms; do
    process=${processes# }
    process=${process%% *}
    processes=${processes#* "$process"}
    wait "$process" || failed="$failed $name"
    echo "=== $name"
    cat "$results/$name"
done
if [ -n "$failed" ]; then
    echo "soak.sh: failed:$failed" >&2
    exit 1
fi
echo "nothing was lost"
