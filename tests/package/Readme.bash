# What README says, to be done as it says it. To be loaded by bats files, beside Machine.

# The commands by which README installs the package.
commands_of_readme() {
    sed -n '/^## Install it/,/^## /{ /^```sh/,/^```$/{ /^```/d; p } }' "$BATS_TEST_DIRNAME/../../README.md"
}

# The first line of each.
names_of_commands() {
    commands_of_readme | sed "/<<'END'/,/^END/{ /<<'END'/!d }"
}

# command_of_readme <number>: the whole command; the number 3 is the one that writes a file.
command_of_readme() {
    if [ "$1" -eq 3 ]; then
        commands_of_readme | sed -n "/<<'END'/,/^END/p"
    else
        names_of_commands | sed -n "$1p"
    fi
}

# follow_readme <machine> <number>: does what README says, in the directory where README says it.
follow_readme() {
    inside "$1" sh -c "cd /kennly && $(command_of_readme "$2")"
}

# see_readme_repair <machine>: the last command does harm, and goes on showing the log until it is interrupted.
see_readme_repair() {
    follow_readme "$1" 5 >"$BATS_TEST_TMPDIR/seen" 2>/dev/null 3>&- &
    eventually 60 grep -E ' kennly: [0-9]+:  : cron check failed - running remedy: timeout 60 systemctl restart cron$' \
        "$BATS_TEST_TMPDIR/seen"
    inside "$1" sh -c 'kill $(pidof tail)'
    eventually 30 inside "$1" systemctl is-active cron
}
