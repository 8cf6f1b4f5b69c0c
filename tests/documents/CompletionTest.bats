# What bash proposes behind "kennlyctl": the verbs and options of its help, the jobs of the live configurations,
# files.
#
# KENNLY_CTL: the program kennlyctl.
bats_require_minimum_version 1.5.0

load /usr/lib/bats/bats-support/load
load /usr/lib/bats/bats-assert/load

setup() {
    cd "$BATS_TEST_TMPDIR" || exit
    : "${KENNLY_CTL:?}"
    # Stands before kennlyctl: notes what it is asked for, and has it read the files of this test in the place of
    # the live ones.
    mkdir bin
    cat >bin/kennlyctl <<END
#!/bin/sh
echo "\$*" >>"$BATS_TEST_TMPDIR/calls"
file=kennly.xml
case \$* in *--watcher*) file=dogdog.xml ;; esac
exec "$KENNLY_CTL" "\$@" "$BATS_TEST_TMPDIR/\$file"
END
    chmod +x bin/kennlyctl
    PATH=$BATS_TEST_TMPDIR/bin:$PATH
    # shellcheck source=completions/kennlyctl
    . "$BATS_TEST_DIRNAME/../../completions/kennlyctl"
}

# complete_line <word>...: has `output` be what is proposed for the last word of the line, sorted.
complete_line() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    COMPREPLY=(left over)
    run complete_now
}
complete_now() {
    "$(complete -p kennlyctl | sed 's/.*-F \([^ ]*\).*/\1/')"
    [ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort
}

# The options in the help of a verb, each name in a line, sorted.
options_in_help() {
    "$KENNLY_CTL" "$@" --help | awk '$1 ~ /^-/ { print $1 }' | tr , '\n' | LC_ALL=C sort
}
verbs() {
    "$KENNLY_CTL" --help | awk '/^Subcommands:/ { inside = 1; next } inside && NF { print $1 }'
}

# configure <file> <name of a job>...: makes a configuration with these jobs.
configure() {
    local file=$1 name
    shift
    {
        echo "<kennly>"
        for name; do
            echo "<job name='$name' enabled='true'>
                <check type='CheckCommandResult' delay='1'><param value='true'/></check>
                <remedy type='Execute'><param value='true'/></remedy></job>"
        done
        echo "</kennly>"
    } >"$file"
}

@test "the verbs of the help are proposed, and the options that stand before one" {
    complete_line kennlyctl ""
    assert_output "$({ verbs && options_in_help; } | LC_ALL=C sort)"
    complete_line kennlyctl st
    assert_output "$(printf '%s\n' start status stop)"
    complete_line kennlyctl nothing
    assert_output ""
}

@test "each option in the help of each verb is proposed, and no other" {
    assert [ -n "$(verbs)" ]
    for verb in $(verbs); do
        complete_line kennlyctl "$verb" -
        assert_equal "$verb: $output" "$verb: $(options_in_help "$verb")"
    done
    complete_line kennlyctl status --p
    assert_output "$(printf '%s\n' --plugin --prometheus)"
    complete_line kennlyctl nothing -
    assert_output ""
}

@test "the jobs of both trees are proposed where a job is to be named" {
    configure kennly.xml web mail website
    configure dogdog.xml child
    for verb in test block unblock; do
        complete_line kennlyctl $verb ""
        assert_output "$(printf '%s\n' child mail web website)"
        complete_line kennlyctl $verb we
        assert_output "$(printf '%s\n' web website)"
        complete_line kennlyctl $verb --watcher ""
        assert_output child
        complete_line kennlyctl $verb -W ""
        assert_output child
        complete_line kennlyctl $verb web ""
        assert_output "" # one is enough
    done
    complete_line kennlyctl block --reason why ""
    assert_output "$(printf '%s\n' child mail web website)"
}

@test "nothing but a look at the live configurations is needed for that" {
    configure kennly.xml web
    configure dogdog.xml child
    complete_line kennlyctl test ""
    run -0 sort calls
    assert_output "$(printf '%s\n' "check --json" "check --json --watcher")"
}

@test "names of jobs that mean something to a shell are proposed quoted, and never expanded" {
    # shellcheck disable=SC2016 # nothing is to be expanded
    names=('two words' '$(touch expanded)' '`touch expanded`' 'a;b' 'c*' 'back\slash' 'x:y' 'k=v' '"quoted"')
    configure kennly.xml "${names[@]//\"/\&quot;}"
    configure dogdog.xml
    COMP_WORDS=(kennlyctl test "") COMP_CWORD=2
    _kennlyctl
    assert_equal "${#COMPREPLY[@]}" "${#names[@]}"
    for ((i = 0; i < ${#names[@]}; ++i)); do
        # What is proposed is one word for the shell, and that word is the name.
        eval "words=(${COMPREPLY[i]})"
        # shellcheck disable=SC2154 # by eval
        assert_equal "${#words[@]} ${words[0]}" "1 ${names[i]}"
    done
    refute [ -e expanded ]
    complete_line kennlyctl test 'two\ w'
    assert_output 'two\ words'
}

@test "without a live configuration, or with one that does not load, no job is proposed" {
    complete_line kennlyctl test ""
    assert_output ""
    echo "<kennly><job>" >kennly.xml
    configure dogdog.xml
    complete_line kennlyctl test ""
    assert_output ""
}

@test "files are proposed where a file is to be named, and nothing where only the user knows" {
    mkdir files
    touch "files/one.xml" "files/two words.xml"
    for verb in check apply; do
        complete_line kennlyctl $verb files/
        assert_output "$(printf '%s\n' files/one.xml "files/two words.xml")"
        complete_line kennlyctl $verb files/one.xml ""
        assert_output ""
    done
    complete_line kennlyctl apply --wait 5 files/o
    assert_output files/one.xml
    complete_line kennlyctl start --program files/o
    assert_output files/one.xml
    for words in "apply --wait" "block --reason" status blocks start stop; do
        # shellcheck disable=SC2086 # several words
        complete_line kennlyctl $words ""
        assert_output ""
    done
}
