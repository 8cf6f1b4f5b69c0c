bats_require_minimum_version 1.5.0

# The two trees that watch each other, with the samples as they are shipped.

setup_file() {
    load Machine
    machine_make trees cron libtinyxml2.6.2v5 openssh-server procps rsyslog
    machine_boot trees --private-network
    inside trees apt-get install -q -y --no-install-recommends "/packages/$KENNLY_PACKAGE"
    for file in kennly dogdog; do
        inside trees cp "$config/$file.xml.sample" "$config/$file.xml"
    done
    inside trees /usr/sbin/kennly -w 3>&-
}

teardown_file() {
    load Machine
    machine_end trees
}

setup() {
    load Machine
}

teardown() {
    show_log_of_failure trees
}

all_beat() {
    [ "$(inside trees find "$heartbeats" -newermt '-3 seconds' -type f | xargs -n 1 basename | sort | xargs)" = \
        "child parent watcherchild watcherparent" ]
}

process_of() {
    inside trees pgrep -x -f "$1"
}

# hang_and_see_replaced <tree> <parent> <child> <child of the other tree> <role of that> <job>: each process by its
# command line. The tree that is started anew has no option -w, because the other one runs already.
hang_and_see_replaced() {
    local parent child other
    eventually 30 all_beat
    parent=$(process_of "$2")
    child=$(process_of "$3")
    other=$(process_of "$4")
    inside trees kill -STOP "$child"
    eventually 30 eval '! all_beat'

    eventually 150 all_beat

    run ! inside trees kill -0 "$parent"
    run ! inside trees kill -0 "$child"
    assert_equal "$(process_of "$4")" "$other"
    inside trees cat "$log" |
        grep -F ":$5: $6 check failed - running remedy: /usr/libexec/kennly/restart-tree $1 /usr/sbin/kennly"
}

@test "a main tree whose child hangs is restarted by the watcher tree" {
    hang_and_see_replaced main '/usr/sbin/kennly -w' '/usr/sbin/kennly -w -Z' '/usr/sbin/kennly -w -W -Z' WC child
    process_of '/usr/sbin/kennly'
    process_of '/usr/sbin/kennly -Z'
}

@test "a watcher tree whose child hangs is restarted by the main tree" {
    hang_and_see_replaced watcher '/usr/sbin/kennly -w -W' '/usr/sbin/kennly -w -W -Z' '/usr/sbin/kennly -Z' \
        'C ' watcherchild
    process_of '/usr/sbin/kennly -W'
    process_of '/usr/sbin/kennly -W -Z'
}
