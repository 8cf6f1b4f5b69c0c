# From nothing to a service that is supervised and lines in a file: what README says, on a Debian 12 that has
# nothing but systemd.
bats_require_minimum_version 1.5.0

setup() {
    load Machine
    load Readme
    machine_make readme
    machine_boot readme
}

teardown() {
    machine_end readme
}

# follow_readme <number>
follow_readme() {
    inside readme sh -c "cd /kennly && $(command_of_readme "$1")"
}

@test "five commands lead from nothing to a supervised service and lines in a file" {
    assert_equal "$(names_of_commands | wc -l)" 5
    inside readme mkdir /kennly
    tar --exclude=./build --exclude=./.git -C "$BATS_TEST_DIRNAME/../.." -cf - . | inside readme tar -C /kennly -xf -

    for command in 1 2 3 4; do
        follow_readme "$command"
    done
    # The last one goes on until it is interrupted.
    follow_readme 5 >"$BATS_TEST_TMPDIR/seen" 2>/dev/null 3>&- &
    eventually 60 grep -E ' kennly: [0-9]+:  : cron check failed - running remedy: timeout 60 systemctl restart cron$' \
        "$BATS_TEST_TMPDIR/seen"
    inside readme sh -c 'kill $(pidof tail)'

    eventually 30 inside readme systemctl is-active cron
    inside readme systemctl is-active kennly
}
