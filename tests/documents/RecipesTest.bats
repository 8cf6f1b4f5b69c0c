bats_require_minimum_version 1.5.0
load /usr/lib/bats/bats-support/load
load /usr/lib/bats/bats-assert/load

# What holds for every recipe, and for the page that shows them. That they work is tried by tests/package.

setup() {
    cd "$BATS_TEST_DIRNAME/../.." || exit
    ls recipes/*.xml
}

# The job elements of standard input, one in a line, blanks squeezed.
jobs() {
    tr -s '[:space:]' ' ' | grep -o '<job .*' | sed 's|</job>|&\n|g' | grep -o '<job .*</job>'
}

page() {
    MANWIDTH=1000 man -l man/kennly-recipes.7 | col -bx
}

# values <path>: of an attribute in all recipes, one in a line, behind the name of the file.
values() {
    local file count number
    for file in recipes/*.xml; do
        count=$(xmllint --xpath "count($1)" "$file")
        for number in $(seq "$count"); do
            echo "$file $(xmllint --xpath "string(($1)[$number])" "$file")"
        done
    done
}

@test "every recipe is installed" {
    local listed
    listed=$(sed -n '/^set(recipes$/,/)/p' recipes/CMakeLists.txt | tail -n +2 | tr -d ' )')

    assert_equal "$listed" "$(basename --multiple --suffix=.xml recipes/*.xml)"
}

@test "every recipe is well-formed, and has a job" {
    for file in recipes/*.xml; do
        run xmllint --noout "$file"
        assert_success
        assert_output ''
        run xmllint --xpath 'count(/kennly/job)' "$file"
        refute_output 0
    done
}

@test "all recipes fit into one configuration: no name is used twice" {
    run -0 values //job/@name
    assert_equal "$(cut -d ' ' -f 2 <<<"$output" | sort | uniq -d)" ''
}

@test "the manual shows the jobs of all recipes as they are, and no others" {
    run -0 diff <(cat recipes/*.xml | jobs | sort) <(page | jobs | sort)
    assert_equal "$(page | jobs | wc -l)" "$(values //job/@name | wc -l)"
}

@test "every check of a command has a time limit" {
    run -0 values '//check[@type="CheckCommandResult"]/param/@value'
    refute_output ''
    while read -r file command; do
        [[ "$command" =~ ^("sh -c '")?"timeout "(-k [0-9]+ )?[0-9]+" " ]] || fail "$file: $command"
    done <<<"$output"
}

@test "every plugin is called so that what is not ok or a warning fails" {
    local wrapper="^sh -c 'timeout -k 5 30 /usr/lib/nagios/plugins/check_[^;']*; \[ \\\$\? -le 1 \]'$"
    run -0 values '//param[contains(@value, "plugins/")]/@value'
    assert [ "${#lines[@]}" -ge 6 ]
    while read -r file command; do
        [[ "$command" =~ $wrapper ]] || fail "$file: $command"
    done <<<"$output"
    run -0 values //@runactionresult
    assert_output ''
}

@test "every remedy is one command, the shell's own characters within single quotes" {
    run -0 values //remedy/param/@value
    refute_output ''
    while read -r file command; do
        [[ "${command//\'*\'/}" != *[\;\&\|\<\>\"\'\$\`\(]* ]] || fail "$file: $command"
    done <<<"$output"
}

@test "every remedy is held back by a file for the machine and one for its job" {
    run -0 values //job/@name
    while read -r file name; do
        assert_equal "$file $(xmllint --xpath "concat(//job[@name='$name']/remedy/@blockaction, ' ',
            //job[@name='$name']/remedy/@blockaction2)" "$file")" \
            "$file /run/kennly.maintenance /run/kennly.$name.maintenance"
    done <<<"$output"
}

# plugin <exit status>: makes a plugin that ends in it, in its own way.
plugin() {
    plugin=$BATS_TEST_TMPDIR/plugin
    rm -f "$plugin"
    case $1 in
    124) echo 'exec sleep 1000' >"$plugin" ;;
    137) echo 'trap "" TERM; while :; do sleep 0.1; done' >"$plugin" ;;
    *) echo "exit $1" >"$plugin" ;;
    esac
    sed -i '1i #!/bin/sh' "$plugin"
    chmod +x "$plugin"
    case $1 in
    126) chmod -x "$plugin" ;;
    127) rm "$plugin" ;;
    esac
}

verdict() {
    if "$@"; then echo healthy; else echo failed; fi
}

@test "the manual's table of exit statuses is that of the wrapper" {
    local wrapper rows=0
    wrapper=$(page | grep -F PLUGIN | sed 's/^ *//')
    assert_equal "$wrapper" "sh -c 'timeout -k 5 30 PLUGIN ...; [ \$? -le 1 ]'"
    wrapper=$(sed 's/-k 5 30/-k 1 1/' <<<"$wrapper") # the same sooner
    while read -r code plain wrapped with2; do
        plugin "$code"
        run "-$code" sh -c "timeout -k 1 1 $plugin"
        assert_equal "$code as it is: $plain" "$code as it is: $(verdict [ "$code" -eq 0 ])"
        assert_equal "$code with the wrapper: $wrapped" \
            "$code with the wrapper: $(verdict sh -c "${wrapper/PLUGIN .../$plugin}")"
        assert_equal "$code with runactionresult: $with2" \
            "$code with runactionresult: $(verdict [ "$code" -ne 2 ])"
        rows=$((rows + 1))
    done < <(page | sed -nE 's/^ +([0-9]+) .* (healthy|failed) +(healthy|failed) +(healthy|failed)$/\1 \2 \3 \4/p')
    assert_equal "$rows" 8
}
