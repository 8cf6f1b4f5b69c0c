bats_require_minimum_version 1.5.0

# The two units that watch each other, with the recipes for them as they are shipped. A heartbeat has to be
# 90 seconds old before anything is done, so each of these takes about two minutes.

setup_file() {
    load Machine
    machine_make units libtinyxml2.6.2v5 procps rsyslog
    machine_boot units --private-network
    inside units apt-get install -q -y --no-install-recommends "/packages/$KENNLY_PACKAGE"
    for file in kennly dogdog; do
        inside units cp "/usr/share/doc/kennly/examples/two-units-$file.xml" "$config/$file.xml"
    done
    inside units systemctl enable --now kennly kennly-watcher
}

teardown_file() {
    load Machine
    machine_end units
}

setup() {
    load Machine
    eventually 60 both_beat
}

teardown() {
    show_log_of_failure units
}

process_of() {
    inside units systemctl show --property=MainPID --value "$1"
}

# age <heartbeat>: in seconds.
age() {
    inside units sh -c 'echo $(($(date +%s) - $(stat -c %Y "$0")))' "$heartbeats/$1"
}

older_than() {
    [ "$(age "$1")" -gt "$2" ] || {
        echo "$1 is $(age "$1") seconds old"
        return 1
    }
}

both_beat() {
    [ "$(age child)" -le 2 ] && [ "$(age watcherchild)" -le 2 ]
}

# How often the remedy of a job, which has the name of the unit, has been started.
restarts() {
    inside units cat "$log" | grep -cF ":  : $1 check failed - running remedy: timeout 60 systemctl restart $1" || true
}

# restarted <unit> <process>: whether it runs, and not as that process any more.
restarted() {
    [ "$(inside units systemctl is-active "$1")" = active ] && [ "$(process_of "$1")" != "$2" ] &&
        ! inside units kill -0 "$2"
}

@test "a watcher that hangs is restarted by the other unit" {
    local hung other
    hung=$(process_of kennly-watcher)
    other=$(process_of kennly)
    inside units kill -STOP "$hung"

    eventually 200 restarted kennly-watcher "$hung"

    eventually 60 both_beat
    [ "$(restarts kennly-watcher)" -ge 1 ]
    assert_equal "$(restarts kennly)" 0
    assert_equal "$(process_of kennly)" "$other"
}

@test "a daemon that hangs is restarted by its watcher once maintenance is over" {
    local hung other
    hung=$(process_of kennly)
    other=$(process_of kennly-watcher)
    inside units touch /run/kennly.maintenance
    inside units kill -STOP "$hung"
    eventually 200 older_than child 115 # which two looks have seen
    assert_equal "$(restarts kennly)" 0
    assert_equal "$(process_of kennly)" "$hung"

    inside units rm /run/kennly.maintenance

    eventually 60 restarted kennly "$hung"
    eventually 60 both_beat
    assert_equal "$(process_of kennly-watcher)" "$other"
}

@test "one that was stopped alone is started again by the other" {
    local before
    before=$(restarts kennly-watcher)
    inside units systemctl stop kennly-watcher
    run inside units systemctl is-active kennly-watcher
    assert_output inactive

    eventually 200 inside units systemctl is-active kennly-watcher

    eventually 60 both_beat
    [ "$(restarts kennly-watcher)" -gt "$before" ]
}
