#!/bin/sh
# fuzz.sh [SECONDS]
#
# Feeds the loader of the configuration with files that a fuzzer thinks up, for so many seconds (60), and
# begins with those of tests/fuzz/corpus. What it learns stays in build/fuzz/corpus, so that the next run
# goes on from there. Ends with status 0 when nothing was found; otherwise it tells where the input lies.
set -eu
cd "$(dirname "$0")/.."

usage() {
    echo "usage: fuzz.sh [SECONDS]" >&2
    exit 2
}

[ $# -le 1 ] || usage
seconds=${1:-60}
case $seconds in
*[!0-9]* | 0*) usage ;; # 0 would be for ever
esac
build=build/fuzz
corpus=$build/corpus
found=$build/found

scripts/install-deps.sh check
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
mkdir -p $corpus $found
output=$(mktemp)
trap 'rm -f "$output"' EXIT

# The length leaves room for more than the attributes that one element may have. Ten seconds and 2 GB are
# far more than loads of that size need.
status=0
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 $build/tests/fuzz/kennly_LoadFuzzer \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=16384 \
    -dict=tests/fuzz/kennly.dict -artifact_prefix=$found/ -print_final_stats=1 \
    $corpus tests/fuzz/corpus >"$output" 2>&1 || status=$?

if [ $status -ne 0 ]; then
    grep -v -E '^#[0-9]+[[:space:]]+(NEW|REDUCE|pulse|RELOAD)' "$output" >&2
    input=$(sed -n 's/.*Test unit written to //p' "$output" | tail -n 1)
    echo "fuzz.sh: something was found; the input lies in ${input:-$found}" >&2
    exit 1
fi
executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$output")
rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$output")
echo "$executions executions, $rate a second; $(find $corpus -type f | wc -l) inputs in $corpus; nothing was found"
