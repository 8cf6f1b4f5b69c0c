# docs/performance.md: its tables are those of the runs that are kept beside it, and its plots are there; and how
# a run is collected and judged.

bats_require_minimum_version 1.5.0
load /usr/lib/bats/bats-support/load
load /usr/lib/bats/bats-assert/load

ROOT=$BATS_TEST_DIRNAME/../..
PAGE=$ROOT/docs/performance.md
REPORT=$ROOT/benchmarks/report.py
RUNS=("$ROOT"/docs/performance/*.json)

# make_run <file> <short|full> [<figure> <jobs> <ratio>...]: a run in which everything is at its floor, but what
# is named.
make_run() {
    python3 - "$ROOT/benchmarks/goals.json" "$@" <<'END'
import json, sys
goals, path, effort, *others = sys.argv[1:]
ratios = {(f, int(j)): float(r) for f, j, r in zip(others[::3], others[1::3], others[2::3])}
figures = {}
for group in json.load(open(goals)):
    for row in group["rows"]:
        if effort == "full" or not row.get("full"):
            key = row["figure"], row["jobs"]
            floor = 1.5 if key[0] == "detection at once" else 2
            rounds = [{"measured": floor * ratios.get(key, 1), "floor": floor}] * 3
            figures[key] = {"name": key[0], "jobs": key[1], "unit": "s", "rounds": rounds}
machine = {"processor": "a", "processors": 2, "memory": "1 GiB", "kernel": "Linux 6.1"}
run = {"date": "2026-01-01 00:00", "effort": effort, "machine": machine, "figures": list(figures.values())}
json.dump(run, open(path, "w"))
END
}

# without <file> <figure> <jobs>: takes a figure out of a run.
without() {
    python3 - "$@" <<'END'
import json, sys
path, name, jobs = sys.argv[1:]
run = json.load(open(path))
kept = [f for f in run["figures"] if (f["name"], f["jobs"]) != (name, int(jobs))]
assert len(kept) == len(run["figures"]) - 1
run["figures"] = kept
json.dump(run, open(path, "w"))
END
}

@test "the tables are those of the runs beside it" {
    cp "$PAGE" "$BATS_TEST_TMPDIR/page.md"
    run -0 "$REPORT" document "$BATS_TEST_TMPDIR/page.md" "${RUNS[@]}"
    run -0 diff "$PAGE" "$BATS_TEST_TMPDIR/page.md"
}

@test "the page shows two runs at least, all of them full, each of another time" {
    assert [ "${#RUNS[@]}" -ge 2 ]
    run -0 grep -L '"effort": "full"' "${RUNS[@]}"
    assert_output ""
    grep -h '"date":' "${RUNS[@]}" | sort >"$BATS_TEST_TMPDIR/dates"
    run -0 uniq -d "$BATS_TEST_TMPDIR/dates"
    assert_output ""
}

@test "every plot is there, and shows all runs" {
    local plot plots run
    plots=$(grep -o '](performance/[^)]*\.svg)' "$PAGE" | sed 's/^](//; s/)$//')
    assert_equal "$(sort <<<"$plots")" "$(cd "$ROOT/docs" && ls performance/*.svg)"
    for plot in $plots; do
        run -0 xmllint --noout "$ROOT/docs/$plot"
        for run in $(seq ${#RUNS[@]}); do
            assert grep -q ", run $run<" "$ROOT/docs/$plot"
        done
    done
}

@test "a page without a place for some figures is refused, and left as it is" {
    make_run "$BATS_TEST_TMPDIR/run.json" full
    grep -v '<!-- figures: reload -->' "$PAGE" >"$BATS_TEST_TMPDIR/page.md"
    cp "$BATS_TEST_TMPDIR/page.md" "$BATS_TEST_TMPDIR/before.md"
    run ! "$REPORT" document "$BATS_TEST_TMPDIR/page.md" "$BATS_TEST_TMPDIR/run.json"
    assert_output --partial "no place for the figures: reload"
    run -0 diff "$BATS_TEST_TMPDIR/before.md" "$BATS_TEST_TMPDIR/page.md"
}

@test "a ratio that two digits would make look like its goal has three" {
    make_run "$BATS_TEST_TMPDIR/run.json" full "command check" 100 1.203 "command check" 1000 1.198 \
        "check rate" 10 0.98
    cp "$PAGE" "$BATS_TEST_TMPDIR/page.md"
    run -0 "$REPORT" document "$BATS_TEST_TMPDIR/page.md" "$BATS_TEST_TMPDIR/run.json"
    assert grep -q '^| command check, 100 .*: 1\.203, missed |$' "$BATS_TEST_TMPDIR/page.md"
    assert grep -q '^| command check, 1,000 .*: \*\*1\.198\*\* |$' "$BATS_TEST_TMPDIR/page.md"
    assert grep -q '^| command check, 5,000 .*: \*\*1\.00\*\* |$' "$BATS_TEST_TMPDIR/page.md"
    assert grep -q '^| check rate, 10 .*: \*\*0\.98\*\* |$' "$BATS_TEST_TMPDIR/page.md"
}

@test "figures without an end are refused" {
    make_run "$BATS_TEST_TMPDIR/run.json" full
    sed '/<!-- figures: pool -->/,$ { /<!-- end of figures -->/d }' "$PAGE" >"$BATS_TEST_TMPDIR/page.md"
    run ! "$REPORT" document "$BATS_TEST_TMPDIR/page.md" "$BATS_TEST_TMPDIR/run.json"
    assert_output --partial "the figures have no end: pool"
}

@test "plots can be drawn of one run and of two" {
    make_run "$BATS_TEST_TMPDIR/one.json" full
    make_run "$BATS_TEST_TMPDIR/two.json" full "command check" 100 1.5
    mkdir "$BATS_TEST_TMPDIR/plots"
    run -0 "$REPORT" plot "$BATS_TEST_TMPDIR/plots" "$BATS_TEST_TMPDIR/one.json"
    run -0 "$REPORT" plot "$BATS_TEST_TMPDIR/plots" "$BATS_TEST_TMPDIR/one.json" "$BATS_TEST_TMPDIR/two.json"
    assert_equal "$(ls "$BATS_TEST_TMPDIR/plots")" "$(cd "$ROOT/docs/performance" && ls ./*.svg | sed 's/^\.\///')"
    run -0 xmllint --noout "$BATS_TEST_TMPDIR/plots"/*.svg
}

@test "a run at its floors meets every goal" {
    make_run "$BATS_TEST_TMPDIR/run.json" full
    run -0 "$REPORT" judge "$BATS_TEST_TMPDIR/run.json"
    refute_line --regexp 'missed|BAND'
    assert_equal "${#lines[@]}" "$(grep -c '"figure":' "$ROOT/benchmarks/goals.json")"
}

@test "a goal that is missed is told, and fails nothing" {
    make_run "$BATS_TEST_TMPDIR/run.json" short "command check" 100 1.21 "check rate" 100 0.97 detection 1 1.16 \
        start 1000 1.23
    run -0 "$REPORT" judge "$BATS_TEST_TMPDIR/run.json"
    assert_line --regexp '^command check, 100 .* ratio  1\.210 .*≤ 1\.2: missed$'
    assert_line --regexp '^check rate, 100 .* ratio  0\.970 .*≥ 0\.98: missed$'
    assert_line --regexp '^detection, 1 .* ratio  1\.160 .*≤ 2\.3 s: missed$'
    assert_line --regexp '^start, 1,000 .* ratio  1\.230 .*≤ 1\.15 \+ 0\.15 s: missed$'
    assert_equal "$(grep -c 'missed$' <<<"$output")" 4
}

@test "a goal that is just reached is met" {
    make_run "$BATS_TEST_TMPDIR/run.json" short "command check" 100 1.2 "check rate" 100 0.98 detection 1 1.15 \
        start 1000 1.224
    run -0 "$REPORT" judge "$BATS_TEST_TMPDIR/run.json"
    refute_line --regexp 'missed|BAND'
}

@test "what lies outside its band fails, and is named, the longest of all as well" {
    make_run "$BATS_TEST_TMPDIR/run.json" short "load instructions" 1000 1.51 "check rate" 100 0.89 \
        "detection at once" 1 3.4
    run -1 "$REPORT" judge "$BATS_TEST_TMPDIR/run.json"
    assert_output --partial "far from where it has been: check rate, 100; detection at once, 1; detection at once, \
longest, 1; load instructions, 1,000"
}

@test "one round of many outside its band counts where the longest is asked for, and only there" {
    make_run "$BATS_TEST_TMPDIR/run.json" short
    python3 - "$BATS_TEST_TMPDIR/run.json" <<'END'
import json, sys
run = json.load(open(sys.argv[1]))
for figure in run["figures"]:
    if figure["name"] in ("detection", "reload"):
        figure["rounds"][1] = {"measured": 20, "floor": 2}
json.dump(run, open(sys.argv[1], "w"))
END
    run -1 "$REPORT" judge "$BATS_TEST_TMPDIR/run.json"
    assert_output --partial "far from where it has been: detection, longest, 1; reload, longest, 1,000; reload, \
longest, 5,000"
}

@test "a figure that is missing fails, unless only a full run has it" {
    make_run "$BATS_TEST_TMPDIR/run.json" full
    without "$BATS_TEST_TMPDIR/run.json" load 50000
    run -1 "$REPORT" judge "$BATS_TEST_TMPDIR/run.json"
    assert_output "not measured: load, 50,000"

    make_run "$BATS_TEST_TMPDIR/run.json" short
    without "$BATS_TEST_TMPDIR/run.json" load 1000
    run -1 "$REPORT" judge "$BATS_TEST_TMPDIR/run.json"
    assert_output "not measured: load, 1,000"
}

# What the programs leave behind: of each unit, two repetitions that come in any order.
leave_behind() {
    mkdir -p "$BATS_TEST_TMPDIR/left"
    cd "$BATS_TEST_TMPDIR/left"
    echo short >effort
    echo '[{"name": "start", "jobs": 1000, "unit": "s", "rounds": [{"measured": 3, "floor": 2}]}]' >daemon.json
    printf '%s\n' "load 1000 3 5000" "load 1000 6 8000" "load-floor 1000 3 2900" "load-floor 1000 6 4400" \
        >instructions
    python3 - >units.json <<'END'
import json
runs = [("load/1000", 1, 15), ("load-floor/1000", 0, 10), ("load/1000", 0, 13), ("load-floor/1000", 1, 11),
        ("load/2000", 0, 40), ("load/2000", 1, 50), ("load-floor/2000", 1, 20), ("load-floor/2000", 0, 25)]
benchmarks = [{"name": name, "run_name": f"{name}/process_time", "run_type": "iteration",
               "repetition_index": i, "cpu_time": time, "time_unit": "ns"} for name, i, time in runs]
benchmarks.append({"name": "load", "run_name": "load/1000", "run_type": "aggregate", "cpu_time": 99})
print(json.dumps({"benchmarks": benchmarks}))
END
}

figure_of() {
    python3 -c 'import json, sys
for f in json.load(open(sys.argv[1]))["figures"]:
    if f["name"] == sys.argv[2]:
        print(f["jobs"], *((r["measured"], r["floor"]) for r in f["rounds"]))' "$BATS_TEST_TMPDIR/run.json" "$1"
}

@test "a run is collected from all that the programs leave behind" {
    leave_behind
    run -0 "$REPORT" collect "$BATS_TEST_TMPDIR/left" "$BATS_TEST_TMPDIR/run.json"
    assert_equal "$(figure_of start)" "1000 (3, 2)"
    assert_equal "$(figure_of load)" "1000 (13, 10) (15, 11)
2000 (40, 25) (50, 20)"
    assert_equal "$(figure_of "load, each job")" "2000 (0.02, 0.013) (0.025, 0.015)"
    assert_equal "$(figure_of "load instructions")" "1000 (1000.0, 500.0)"
    grep '"effort": "short"' "$BATS_TEST_TMPDIR/run.json"
}

@test "a unit that has failed is told, and no run is made of it" {
    leave_behind
    sed -i 's/"cpu_time": 13/"error_occurred": true, "error_message": "refused"/' units.json
    run -1 "$REPORT" collect "$BATS_TEST_TMPDIR/left" "$BATS_TEST_TMPDIR/run.json"
    assert_output "load/1000: refused"
    assert [ ! -e "$BATS_TEST_TMPDIR/run.json" ]
}
