#!/bin/sh
# bench.sh [--full [--record NAME]]
#
# Builds the daemon as it is installed and measures it and its units against floors that are measured in the
# same run: in less than five minutes or, with --full, in little more than an hour, with more rounds and a hundred
# reloads. Writes the figures to build/bench/results.json, prints each with its goal, and fails when a ratio lies
# far outside of where it has always been. With --record, the figures then become docs/performance/NAME.json, and
# docs/performance.md shows all runs that lie there. Wants the machine for itself.
set -eu
cd "$(dirname "$0")/.."

usage() {
    echo "usage: bench.sh [--full [--record NAME]]" >&2
    exit 2
}

effort=short
record=
case ${1-} in
'') ;;
--full) effort=full && shift ;;
*) usage ;;
esac
if [ $effort = full ] && [ "${1-}" = --record ]; then
    record=${2-}
    case $record in
    '' | -* | *[!A-Za-z0-9-]*) usage ;;
    esac
    shift 2
fi
[ $# -eq 0 ] || usage

build=build/bench
figures=$build/figures
results=$build/results.json
page=docs/performance
programs=$build/benchmarks

scripts/install-deps.sh bench
cmake --preset release -DKENNLY_BUILD_TESTS=OFF -DKENNLY_BUILD_DEMO=OFF -DKENNLY_BUILD_BENCHMARKS=ON \
    -B $build >/dev/null
cmake --build $build --target kennly_benchmarks -- --quiet
rm -rf $figures
mkdir -p $figures
echo $effort >$figures/effort
export TMPDIR="$PWD/$figures" # for what an interruption would leave behind

# quietly <command>: tells what it has said only when it fails, or takes longer than anything should.
# In the foreground, or an interruption at the terminal would not reach the command.
quietly() {
    timeout --foreground 1200 "$@" >$figures/output 2>&1 || {
        cat $figures/output >&2
        echo "bench.sh: failed: $*" >&2
        exit 1
    }
}

echo "the units, in processor time"
case $effort in
short) set -- --benchmark_repetitions=5 --benchmark_min_time=0.05 '--benchmark_filter=-50000' ;;
full) set -- --benchmark_repetitions=25 --benchmark_min_time=0.2 ;;
esac
quietly $programs/kennly-bench-units "$@" --benchmark_enable_random_interleaving=true \
    --benchmark_out=$figures/units.json --benchmark_out_format=json

# Of two runs, what the longer one has on top: a program's start and end are in both.
echo "the units, in instructions"
count() {
    unit=$1
    jobs=$2
    shift 2
    for times in "$@"; do
        quietly valgrind --tool=callgrind --callgrind-out-file=/dev/null \
            $programs/kennly-bench-count "$unit" "$times"
        echo "$unit $jobs $times $(sed -n 's/.*refs: *//p' $figures/output | tr -d ,)" >>$figures/instructions
    done
}
for unit in load load-floor; do
    count $unit 1000 3 6
done
for unit in registry registry-floor; do
    count $unit 1000 300 600
done
for unit in pool pool-floor; do
    count $unit 1 300 600
done

echo "the daemon"
if [ $effort = full ]; then
    set -- --full
else
    set --
fi
$programs/kennly-bench-daemon "$@" --output $figures/daemon.json

echo
benchmarks/report.py collect $figures $results
benchmarks/report.py judge $results
if [ -n "$record" ]; then
    mkdir -p $page
    cp $results "$page/$record.json"
    benchmarks/report.py document $page.md $page/*.json
    benchmarks/report.py plot $page $page/*.json
fi
