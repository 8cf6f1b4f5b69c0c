# docs/fleet.md: what it shows are the files as they are, and what its table says of the alerts are the rules.

setup() {
    load Fleet
    document=$project/docs/fleet.md
}

# block <file>: the block that follows the first mention of a file at the end of a line.
block() {
    awk -v mention="(../$1):" '
        substr($0, length($0) - length(mention) + 1) == mention { wanted = 1; next }
        /^```/ && wanted && !inside { inside = 1; next }
        /^```/ && inside { exit }
        inside' "$document"
}

@test "the files it shows are those that are shipped" {
    local shown file
    shown=$(grep -o '(\.\./fleet/[^)]*):$' "$document" | sed 's/^(\.\.\///; s/):$//')
    assert_equal "$(wc -w <<<"$shown")" 4
    for file in $shown; do
        run -0 diff <(block "$file") "$project/$file"
    done
}

@test "every file that is shipped is spoken of, and installed" {
    local file name
    for file in "$fleet"/*; do
        name=$(basename "$file")
        case $name in
        CMakeLists.txt) continue ;;
        kennly-metrics.*) grep -F 'kennly-metrics.*' "$document" ;;
        *) grep -F "$name" "$document" ;;
        esac
        grep -qw -- "$name" "$fleet/CMakeLists.txt"
    done
}

@test "every link leads to a file" {
    local link
    for link in $(grep -o '](\.\./[^)]*)' "$document" | sed 's/^](//; s/)$//'); do
        test -e "$project/docs/$link"
    done
}

# alert|after|command of each rule, in their order; conditions in commands left out.
rules() {
    awk -v OFS='|' '
        function flush() { if (alert) print alert, after, command }
        /^      - alert: / { flush(); alert = $3; after = ""; command = "" }
        /^        for: / { after = $2 }
        /^          command: / { sub(/^ *command: /, ""); gsub(/\{\{[^}]*\}\}( --watcher)?/, ""); command = $0 }
        END { flush() }' "$fleet/kennly-alerts.yml"
}

@test "the table of alerts has all rules, with their times and commands" {
    run sed -nE 's/^\| `(Kennly[A-Za-z]*)` \| ?([0-9a-z]*) \| .* \| `([^`]*)` \|$/\1|\2|\3/p' "$document"
    refute_output ''
    assert_equal "$output" "$(rules)"
}
