# The alerts of fleet/kennly-alerts.yml: that Prometheus takes them, that they are raised and cleared when they are
# to be, and that the numbers which they ask for are those that kennlyctl writes.
#
# KENNLY, KENNLY_CTL: the programs.

setup() {
    load Fleet
    rules=$fleet/kennly-alerts.yml
    cases=$fleet/kennly-alerts-test.yml
    cd "$BATS_TEST_TMPDIR" || exit
}

teardown() {
    place_end
}

alerts() {
    sed -n 's/^ *- alert: //p' "$rules"
}

# rule <alert>: the lines of one.
rule() {
    awk -v alert="$1" '/^      - alert: / { inside = $3 == alert } /^$/ { inside = 0 } inside' "$rules"
}

# cases_of <alert>: a file of cases with those in which the alert is raised.
cases_of() {
    sed '/^tests:$/q' "$cases"
    awk -v alert="$1" '
        function flush() { if (text ~ "alertname: " alert "\n +eval_time") printf "%s", text; text = "" }
        /^  - name: / { flush() }
        { text = text $0 "\n" }
        END { flush() }' <(sed '1,/^tests:$/d' "$cases")
}

# try_rule <sed script>...: tries an alert alone, changed by the script, with the cases in which it is raised.
try_rule() {
    { printf 'groups:\n  - name: kennly\n    rules:\n' && rule "$alert" | sed "$@"; } >kennly-alerts.yml
    promtool check rules kennly-alerts.yml || return 125
    promtool test rules kennly-alerts-test.yml
}

@test "Prometheus takes the rules, and the configuration around them" {
    promtool check rules "$rules"
    cd "$fleet"
    promtool check config prometheus.yml
}

@test "all alerts are raised in time, cleared when it is over, and silent when all is well" {
    run promtool test rules "$cases"
    assert_success
}

@test "of each alert the cases notice if it is too early, too late, never raised or never cleared" {
    local alert changed
    for alert in $(alerts); do
        cases_of "$alert" >kennly-alerts-test.yml
        run -0 try_rule ''
        # The expression of a rule is one line, or what follows >- in deeper lines.
        rule "$alert" | awk '
            /^        expr: >-$/ { folded = 1; next }
            /^        expr: / { sub(/^        expr: /, ""); print; next }
            folded && /^          / { sub(/^ */, ""); print; next }
            { folded = 0 }' | tr '\n' ' ' >expression
        grep -q kennly "expression"
        rule "$alert" >rule.txt
        expression=$(cat expression)

        run -1 try_with "vector(0) > 1"
        run -1 try_with "last_over_time(($expression)[1h:15s])"
        if grep -q '^        for: ' rule.txt; then
            run -1 try_rule "s/^        for: .*/&15s/"
            run -1 try_rule "/^        for: /d"
        fi
    done
}

# try_with <expression>: the alert with another one.
try_with() {
    awk -v expression="$1" '
        /^        expr:/ { print "        expr: " expression; skip = 1; next }
        skip && /^          / { next }
        { skip = 0; print }' rule.txt >changed
    { printf 'groups:\n  - name: kennly\n    rules:\n' && cat changed; } >kennly-alerts.yml
    promtool check rules kennly-alerts.yml || return 125
    promtool test rules kennly-alerts-test.yml
}

@test "of each alert it is tried that it is silent when all is well" {
    local silent
    silent=$(awk '/^  - name: / { first = /all is well$/ } first' "$cases" | sed -n 's/^ *- {alertname: \([A-Za-z]*\),.*/\1/p')
    assert_equal "$silent" "$(alerts)"
}

@test "each alert says how grave it is, and which verb of kennlyctl explains it" {
    local alert verb options
    for alert in $(alerts); do
        run rule "$alert"
        assert_output --regexp 'severity: (critical|warning)'
        assert_output --regexp 'summary: ".*on \{\{ \$labels.instance \}\}'
        read -r verb options < <(sed -n 's/^ *command: kennlyctl //p' <<<"$output" | sed 's/{{[^}]*}}//g')
        run -0 "$KENNLY_CTL" "$verb" --help
        [ -z "$options" ] || assert_output --regexp "(^|[ ,])$options( |$|,)"
    done
}

# labels: of metrics, their names and those of their labels: "kennly_up tree".
labels() {
    sed -nE 's/^(kennly_[a-z_]*)\{([^}]*)\}.*/\1 \2/p' | sed -E 's/="([^"\\]|\\.)*"//g; s/\b(instance|job)(,|$)//g; s/,$//' |
        sort -u
}

@test "the numbers that are asked for are those that kennlyctl writes of a running daemon" {
    local data=/opt/qrv/data/kennly
    place_make
    place mount -t tmpfs none /opt
    place mkdir -p $data/config $data/heartbeats
    place sh -c "cat >$data/config/kennly.xml" <<'END'
<kennly maxloaderrors="10">
    <job name="the &quot;web&quot;" enabled="true">
        <check type="CheckCommandResult" delay="1"><param value="timeout 600 sleep 500"/></check>
        <remedy type="Execute"><param value="true"/></remedy>
    </job>
</kennly>
END
    place "$KENNLY" -f >/dev/null 2>&1 &
    eventually 60 has_number 'kennly_job_check_running_seconds{tree="main",job_name="the \"web\""}'

    place "$KENNLY_CTL" status --prometheus >metrics
    promtool check metrics <metrics
    place "$KENNLY_CTL" status --watcher --prometheus >>metrics # which is a problem

    for name in $(grep -o '\bkennly_[a-z_]*' "$rules" | sort -u); do
        grep "^# TYPE $name gauge" metrics
    done
    run comm -13 <(labels <metrics) <(sed -n "s/^ *- {series: '\(.*\)', values.*/\1/p" "$cases" | labels)
    assert_output ''
    # The others exist only while something is wrong.
    codes=$(grep -o 'code="[^"]*"' "$rules" | cut -d '"' -f 2 | sort -u)
    [ -n "$codes" ]
    for code in $codes; do
        grep -F "\"$code\"" "$project/src/status/Problems.cpp"
    done
}

has_number() {
    place "$KENNLY_CTL" status --prometheus | grep -F -- "$1"
}

@test "numbers that cannot be written are a failure" {
    run -73 sh -c "'$KENNLY_CTL' status --prometheus 2>&1 >/dev/full"
    assert_output "kennlyctl: cannot write to standard output"
}
