# What docs/fleet.md joins to the package, on a machine that has all of it: node_exporter, Prometheus, Alertmanager,
# rsyslog as the one that forwards and as the one that receives. Its commands are done as it says them.
bats_require_minimum_version 1.5.0

setup_file() {
    load Machine
    machine_make fleet libtinyxml2.6.2v5 procps rsyslog rsyslog-relp openssl \
        prometheus prometheus-alertmanager prometheus-node-exporter
    echo 127.0.0.1 localhost >"$KENNLY_MACHINES/fleet/etc/hosts"
    # By itself it looks for others of its kind, which takes an address that is not of this machine alone.
    echo 'ARGS="--cluster.listen-address="' >"$KENNLY_MACHINES/fleet/etc/default/prometheus-alertmanager"
    machine_boot fleet --private-network
    inside fleet apt-get install -q -y --no-install-recommends "/packages/$KENNLY_PACKAGE"
    echo '<kennly><job name="idle" enabled="false"/></kennly>' | inside fleet sh -c "cat >$config/kennly.xml"
    inside fleet systemctl enable --now kennly
}

teardown_file() {
    load Machine
    machine_end fleet
}

setup() {
    load Machine
}

teardown() {
    [ -n "$BATS_TEST_COMPLETED" ] || here journalctl --no-pager --lines 100
}

here() {
    inside fleet "$@"
}

# follow_document <number>: does what the block of commands of that number says.
follow_document() {
    local commands
    commands=$(awk -v wanted="$1" '
        /^```sh$/ { inside = ++count == wanted; next }
        /^```/ { inside = 0 }
        inside' "$BATS_TEST_DIRNAME/../../docs/fleet.md")
    [ -n "$commands" ] || fail "there is no such block"
    here sh -ec "$commands"
}

numbers=/var/lib/prometheus/node-exporter/kennly.prom

# written_since <time>: whether the numbers have been written since.
written_since() {
    [ "$(here stat -c %Y "$numbers")" -gt "$1" ]
}

# The number that Prometheus has, with its labels.
ask() {
    here promtool query instant http://localhost:9090 "$1"
}
has_number() {
    ask "$1" | grep .
}

firing() {
    ask "ALERTS{alertstate=\"firing\",alertname=\"$1\"}" | grep -F "alertname=\"$1\""
}
silent() {
    [ -z "$(ask "ALERTS{alertname=~\"$1\"}")" ]
}

@test "the timer writes the numbers every fifteen seconds, for node_exporter to read, and nothing into the journal" {
    local first
    follow_document 1

    eventually 60 here grep kennly_up "$numbers"
    first=$(here stat -c %Y "$numbers")
    assert_equal "$(here stat -c '%U %a' "$numbers")" "root 644"
    here grep -x 'kennly_up{tree="main"} 1' "$numbers"
    eventually 60 written_since "$first"
    eventually 60 written_since "$((first + 20))"
    here systemctl is-enabled kennly-metrics.timer
    run here journalctl --unit kennly-metrics.service --output cat --quiet
    assert_output ''
}

@test "systemd has nothing to say about the units" {
    run here systemd-analyze verify --man=no /etc/systemd/system/kennly-metrics.service /etc/systemd/system/kennly-metrics.timer
    assert_success
    assert_output ''
}

@test "whoever reads the file finds all of it, also while it is written" {
    here systemctl stop kennly # so that a second look has the program take a second
    run here sh -c 'times= count=0
        while [ "$(printf "%s\n" $times | sort -u | wc -l)" -lt 4 ] && [ $count -lt 3000 ]; do
            times="$times $(stat -c %Y "$0")"
            grep -q "^# TYPE kennly_problems gauge" "$0" || { echo "not all of it"; exit 1; }
            count=$((count + 1))
            sleep 0.05
        done
        [ $count -lt 3000 ]' "$numbers"
    assert_output ''
    assert_success
    here systemctl start kennly
    eventually 60 here grep -x 'kennly_up{tree="main"} 1' "$numbers"
}

@test "a run that fails leaves the file as it was, says why, and does not end the timer" {
    local before
    here systemctl stop kennly-metrics.timer
    before=$(here cat "$numbers")
    assert_regex "$before" 'kennly_up\{tree="main"\} 1'
    here mv /usr/bin/kennlyctl /usr/bin/kennlyctl.away
    here systemctl start kennly-metrics.timer

    eventually 60 here sh -c 'journalctl --unit kennly-metrics.service --output cat | grep -F "kennlyctl: not found"'
    assert_equal "$(here cat "$numbers")" "$before"

    here mv /usr/bin/kennlyctl.away /usr/bin/kennlyctl
    eventually 60 written_since "$(here date +%s)"
}

@test "Prometheus has the rules, and all numbers that they ask for; none of them fires" {
    follow_document 2

    eventually 120 has_number 'kennly_up{tree="main"} == 1'
    for name in kennly_processes kennly_heartbeat_age_seconds kennly_threads kennly_threads_expected kennly_config_loads; do
        has_number "$name{tree=\"main\",instance=\"localhost:9100\",job=\"node\"}"
    done
    # The name of the file is as the rule has it.
    here sh -c "promtool query instant http://localhost:9090 \"\$(sed -n 's/.* - \(node_textfile_mtime_seconds{.*}\) > .*/\1/p' \
        /etc/prometheus/kennly-alerts.yml)\" | grep kennly.prom"
    eventually 60 silent 'Kennly.*'
}

@test "a daemon that is stopped is an alert that reaches Alertmanager, until it is started again" {
    here systemctl stop kennly

    eventually 240 here sh -c 'amtool --alertmanager.url=http://localhost:9093 --output=json alert query KennlyDown |
        grep -F "\"command\":\"kennlyctl status\""'
    run here kennlyctl status
    assert_output --partial "[not-running]"

    here systemctl start kennly
    eventually 120 silent KennlyDown
}

@test "so is a configuration that fails, and what explains it is what the alert says" {
    here sh -c "echo '<kennly maxloaderrors=\"100000\">' >$config/kennly.xml"

    eventually 240 firing KennlyConfigurationFails
    run -2 here kennlyctl check
    assert_output --partial "error: "

    echo '<kennly><job name="idle" enabled="false"/></kennly>' | here sh -c "cat >$config/kennly.xml"
    eventually 120 silent 'Kennly(ConfigurationFails|WorkerLost)'
}

@test "so is a timer that is stopped" {
    here systemctl stop kennly-metrics.timer
    eventually 400 firing KennlyMetricsStale
    here systemctl start kennly-metrics.timer
    eventually 120 silent KennlyMetricsStale
}

@test "a line of the daemon arrives at the central host with its priority" {
    here mkdir /etc/ssl/kennly
    here sh -ec 'cd /etc/ssl/kennly
        openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=authority \
            -keyout ca.key -out ca.pem
        openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=logs.example.com -keyout key.pem -out csr
        echo subjectAltName=DNS:logs.example.com >names
        openssl x509 -req -in csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -out cert.pem -extfile names
        echo 127.0.0.1 logs.example.com >>/etc/hosts
        cp /usr/share/doc/kennly/examples/fleet/rsyslog-*.conf /etc/rsyslog.d'
    here systemctl restart rsyslog

    here sh -c "echo '<kennly><job name=\"central\" enabled=\"false\"/></kennly>' >$config/kennly.xml.new &&
        kennlyctl apply $config/kennly.xml.new"

    eventually 60 here sh -c 'grep -E " debug kennly: .*job not enabled - ignoring job: central$" /var/log/kennly/*.log'
    eventually 60 here grep -F "job not enabled - ignoring job: central" "$log"
}
