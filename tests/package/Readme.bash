# What README says, to be done as it says it. To be loaded by bats files.

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
