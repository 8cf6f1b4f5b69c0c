# A configuration on its way to a machine by a tool that validates a file before it puts it into place, under a
# running daemon. What such a tool is told is taken from fleet/rollout.yml.
#
# KENNLY, KENNLY_CTL: the programs.

setup_file() {
    load Fleet
    mkdir "$BATS_FILE_TMPDIR/bin" "$BATS_FILE_TMPDIR/traces"
    ln -s "$KENNLY_CTL" "$BATS_FILE_TMPDIR/bin/kennlyctl"
    place_make
    place mount -t tmpfs none /opt
    place mkdir -p "$config/filetimes" /opt/qrv/data/kennly/heartbeats
    job first | roll_out
    place "$KENNLY" -f >/dev/null 2>&1 &
}

teardown_file() {
    load Fleet
    place_end
}

setup() {
    load Fleet
    job first | roll_out
    eventually 60 runs first
}

config=/opt/qrv/data/kennly/config

# job <name>: a configuration with one job that leaves a trace of each check.
job() {
    cat <<END
<kennly maxloaderrors="1000">
    <job name="$1" enabled="true">
        <check type="CheckCommandResult" delay="1">
            <param value="timeout 10 touch $BATS_FILE_TMPDIR/traces/$1"/>
        </check>
        <remedy type="Execute" delay="1">
            <param value="true"/>
        </remedy>
    </job>
</kennly>
END
}

# Whether the job is checked, and no other.
runs() {
    rm -f "$BATS_FILE_TMPDIR/traces"/*
    eventually 10 test -e "$BATS_FILE_TMPDIR/traces/$1"
    [ "$(ls "$BATS_FILE_TMPDIR/traces")" = "$1" ]
}

# told <key>: what the tasks say the tool is to do.
told() {
    sed -n "s/^ *$1: //p" "$fleet/rollout.yml"
}

# The tool: takes a file from its standard input.
roll_out() {
    stage && enforce
}

# stage [<option of the validation>]: the first task: has the file validated, then puts it into its place.
stage() {
    local file validate
    file=$(mktemp "$BATS_FILE_TMPDIR/tool.XXXXXX")
    cat >"$file"
    validate=$(told validate)
    place env PATH="$BATS_FILE_TMPDIR/bin:$PATH" ${validate/\%s/${1:-} $file} || return
    place cp "$file" "$(told dest).tool"
    place mv "$(told dest).tool" "$(told dest)"
}

# The second task.
enforce() {
    place env PATH="$BATS_FILE_TMPDIR/bin:$PATH" sh -c "cd $(told chdir) && $(told cmd)"
}

# Content and time of the live file.
live() {
    place sh -c "stat -c %y $config/kennly.xml; cat $config/kennly.xml"
}

@test "a new configuration is in force when the tool is done" {
    run roll_out < <(job second)

    assert_success
    assert_line "$config/kennly.xml is replaced"
    assert_line --regexp '^the daemon has taken it up: 1 job, 4 threads, heartbeat .* s ago$'
    runs second
    assert_equal "$(place cat "$config/kennly.xml")" "$(job second)"
}

@test "a file that does not load is refused, and what is live stays" {
    local before
    before=$(live)

    run -2 roll_out < <(job second | sed 's|</job>||')

    assert_output --partial "the daemon would log: err: "
    assert_equal "$(live)" "$before"
    runs first
    run ! place grep second "$(told dest)"
}

@test "so is a file with an error that the daemon would load" {
    local before
    before=$(live)

    run -1 roll_out < <(job second | sed 's|type="Execute"|type="Restart"|')

    assert_output --partial "error: [type-invalid]"
    assert_equal "$(live)" "$before"
    runs first
    run ! place grep second "$(told dest)"
}

@test "the second task refuses such files too, whoever has staged them" {
    local before
    before=$(live)
    job second | sed 's|</job>||' | place sh -c "cat >$(told dest)"

    run -2 enforce

    assert_output --partial "kennlyctl: refused; $config/kennly.xml stays as it is"
    assert_equal "$(live)" "$before"
    runs first
}

@test "a warning is shown and refuses nothing, unless that is asked for" {
    local before
    before=$(live)

    run -1 stage --strict < <(job second | sed 's|enabled=|maxErrors="3" &|')

    assert_output --partial "warning: [unknown-attribute]"
    assert_equal "$(live)" "$before"
    run -0 roll_out < <(job second | sed 's|enabled=|maxErrors="3" &|')
    assert_output --partial "warning: [unknown-attribute]"
    runs second
}

@test "the same file again changes nothing and has nothing reloaded" {
    local before
    before=$(live)

    run -0 roll_out < <(job first)

    assert_output ''
    assert_equal "$(live)" "$before"
}

@test "what the tool could not finish it finishes when it runs again" {
    job second | stage # and is interrupted

    run -0 roll_out < <(job second)

    assert_output --partial "the daemon has taken it up"
    runs second
}

@test "two configurations within one second are both taken up" {
    job second | roll_out
    job third | roll_out
    runs third
}
