# Lines of the daemon on their way to a central host, with two real rsyslogd: the one that forwards has the socket
# of a machine, the one that receives is the host.

setup_file() {
    load Fleet
    cd "$BATS_FILE_TMPDIR" || exit
    make_authority ca
    make_authority other
    make_certificate ca logs.example.com logs
    make_certificate ca web1.example.com web1
    make_certificate ca web1.example.org namesake
    make_certificate other web1.example.com stranger
    mkdir -p received
    place_make
}

teardown_file() {
    load Fleet
    place_end
}

setup() {
    load Fleet
    cd "$BATS_FILE_TMPDIR" || exit
    rm -rf received/* spool ./*.log
    mkdir spool
}

teardown() {
    stop_rsyslog forward
    stop_rsyslog receive
    [ -n "$BATS_TEST_COMPLETED" ] || tail -n 50 ./*.log received/kennly/*
}

# make_authority <name>
make_authority() {
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "/CN=$1" \
        -keyout "$1.key" -out "$1.pem"
}

# make_certificate <authority> <host> <directory>: what rsyslog is to find in /etc/ssl/kennly on a host.
make_certificate() {
    mkdir -p "$3/kennly"
    openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj "/CN=$2" -keyout "$3/kennly/key.pem" -out "$3.csr"
    openssl x509 -req -in "$3.csr" -CA "$1.pem" -CAkey "$1.key" -CAcreateserial -days 2 -out "$3/kennly/cert.pem" \
        -extfile <(echo "subjectAltName=DNS:$2")
    cp ca.pem "$3/kennly/ca.pem"
}

# rsyslog <forward|receive> <directory with the certificates>: starts it with the file that is shipped, with
# /etc/ssl and /var/log of its own, and returns when it is at work.
rsyslog() {
    local directory=$PWD
    cat >"$1.conf"
    place unshare --mount sh -c "mount --bind '$directory/$2' /etc/ssl && mount --bind '$directory/received' /var/log &&
        exec rsyslogd -n -f '$directory/$1.conf' -i '$directory/$1.pid'" >>"$1.log" 2>&1 &
    eventually 30 test -s "$1.pid"
}

receive() {
    rsyslog receive logs <<<"include(file=\"$fleet/rsyslog-receive.conf\")"
    eventually 30 place sh -c 'grep -q ":$(printf %04X 6514) .* 0A " /proc/net/tcp'
}

# forward [<directory with the certificates> [<name of the machine>]]
forward() {
    rsyslog forward "${1:-web1}" <<END
global(workDirectory="$PWD/spool" localHostname="${2:-web1.example.com}")
module(load="imuxsock" sysSock.use="off")
input(type="imuxsock" socket="$PWD/socket")
include(file="$fleet/rsyslog-forward.conf")
# What a machine has of its own.
action(type="omfile" file="$PWD/own.log")
END
    eventually 30 test -S socket
}

stop_rsyslog() {
    [ -s "$1.pid" ] || return 0
    place sh -c 'kill "$(cat "$0")"' "$PWD/$1.pid"
    eventually 60 test ! -e "$1.pid"
}

# say <priority> <text>: as the daemon does.
say() {
    place logger --socket "$PWD/socket" --priority "local4.$1" --tag kennly "4711: C : $2"
}

# received <text>: whether there is a line, alone, that ends in it.
received() {
    [ "$(grep -c -- " $1\$" received/kennly/web1.example.com.log)" -eq 1 ]
}

@test "a line arrives in the file of its machine, with its time, its priority and its name" {
    receive
    forward

    say err "no check defined in job: web"
    say debug "web check failed - running remedy: true"
    place logger --socket "$PWD/socket" --priority local4.err --tag other "of another program"
    place logger --socket "$PWD/socket" --priority daemon.err --tag kennly "of another facility"
    say info "the last one"

    eventually 60 received "the last one"
    run cat received/kennly/web1.example.com.log
    local time='[0-9-]{10}T[0-9:.]{15}[+-][0-9:]{5}'
    assert_equal "${#lines[@]}" 3
    assert_regex "${lines[0]}" "^$time web1.example.com err kennly: 4711: C : no check defined in job: web$"
    assert_regex "${lines[1]}" "^$time web1.example.com debug kennly: 4711: C : web check failed - running remedy: true$"
    # The machine's own files have all of them.
    run grep -c . own.log
    assert_output 5
}

@test "what is said while the host is away arrives when it is back" {
    receive
    forward
    say err "before"
    eventually 60 received "before"
    stop_rsyslog receive
    for number in $(seq 20); do
        say err "meanwhile $number"
    done
    eventually 60 grep -q "meanwhile 20" own.log

    receive

    for number in $(seq 20); do
        eventually 120 received "meanwhile $number"
    done
}

@test "what waits for the host outlives a restart of the machine's rsyslog" {
    forward
    for number in $(seq 20); do
        say err "meanwhile $number"
    done
    eventually 60 grep -q "meanwhile 20" own.log
    eventually 60 grep -q "error opening connection" forward.log
    stop_rsyslog forward
    ls spool/kennly-forward.*

    receive
    forward

    # What it was about to send when it was stopped may be lost.
    for number in $(seq 10 20); do
        eventually 120 received "meanwhile $number"
    done
}

# refused <log>: whether a certificate was not good enough.
refused() {
    grep -i "certificate\|authenticat\|authoriz" "$1"
}

@test "a host that cannot prove its name gets nothing" {
    rsyslog receive web1 <<<"include(file=\"$fleet/rsyslog-receive.conf\")"
    forward

    say err "for the host alone"

    eventually 60 refused forward.log
    run ! test -e received/kennly
}

@test "a machine that cannot prove its name is not listened to" {
    local machine
    receive
    for machine in stranger namesake; do
        forward "$machine"

        say err "of a $machine"

        eventually 60 refused receive.log
        run ! test -e received/kennly
        stop_rsyslog forward
        rm -r spool forward.log receive.log
        mkdir spool
        stop_rsyslog receive
        receive
    done
}

@test "a machine cannot write where its name leads" {
    receive
    forward web1 ../../web1
    say err "from afar"

    eventually 60 grep -r "from afar" received
    assert_equal "$(find received -type f)" received/kennly/.._.._web1.log
}
