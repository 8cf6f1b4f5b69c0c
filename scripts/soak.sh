#!/bin/sh
# soak.sh MINUTES [SEED]
#
# Builds the program as it is installed and has all storms rage over it at once, for so many minutes.
# Tells once a minute how much time is left; each storm prints its figures in the end. Ends with status 0
# when nothing was lost. A seed repeats the random choices of an earlier run.
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
    '' | *[!0-9]*) usage ;;
    esac
done
case $1 in
0*) usage ;; # no time at all, or a number with another meaning
esac
seconds=$(($1 * 60))
seed=${2:-$(od -An -N3 -tu4 /dev/urandom | tr -d ' ')}
build=build/release

scripts/install-deps.sh test
cmake --preset release -DKENNLY_BUILD_TESTS=ON >/dev/null
cmake --build $build --target kennly_tests_storm

storms="Start Shutdown Reload Heartbeat"
results=$(mktemp -d)
processes=
clock=
end_all() {
    for process in $processes $clock; do
        kill "$process" 2>/dev/null || true # it may have ended
    done
}
trap 'end_all; exit 130' INT TERM
trap 'rm -rf "$results"' EXIT
for name in $storms; do
    "$build/tests/storm/storm_${name}Storm" --seconds=$seconds --seed="$seed" >"$results/$name" 2>&1 &
    processes="$processes $!"
done
echo "all storms rage for $1 minutes, seed $seed, until $(date -d "+$seconds seconds" +%H:%M)"

tell_time_left() {
    nap=
    trap 'kill $nap 2>/dev/null; exit' TERM # left over, it would hold the output open
    left=$(($1 - 1))
    while [ $left -gt 0 ]; do
        sleep 60 &
        nap=$!
        wait $nap
        echo "$left min left"
        left=$((left - 1))
    done
}
tell_time_left "$1" &
clock=$!

failed=
for name in $storms; do
    processes=${processes# }
    process=${processes%% *}
    wait "$process" || failed="$failed $name"
    processes=${processes#"$process"} # only now: an interruption ends those that are left
    echo "=== $name"
    cat "$results/$name"
done
kill $clock 2>/dev/null || true # it may have told all
if [ -n "$failed" ]; then
    echo "soak.sh: failed:$failed" >&2
    exit 1
fi
echo "nothing was lost"
