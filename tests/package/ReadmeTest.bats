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

@test "five commands lead from nothing to a supervised service and lines in a file" {
    assert_equal "$(names_of_commands | wc -l)" 5
    inside readme mkdir /kennly
    tar --exclude=./build --exclude=./.git -C "$BATS_TEST_DIRNAME/../.." -cf - . | inside readme tar -C /kennly -xf -

    for command in 1 2 3 4; do
        follow_readme readme "$command"
    done
    see_readme_repair readme

    inside readme systemctl is-active kennly
}
