#!/usr/bin/env bats
# The manual pages: formatted without a complaint, installed, and in agreement with README.md, whose tables
# say which options, attributes, types and log lines there are; that of kennlyctl with its help and its source.
#
# KENNLY_CTL: the program kennlyctl.

load /usr/lib/bats/bats-support/load
load /usr/lib/bats/bats-assert/load

setup_file() {
    export LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80
    project=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
    export project
    # Some systems turn typographic hyphens and quotes back into those that a shell knows. Pages are read
    # as they are without that help.
    export unaided="$BATS_FILE_TMPDIR/unaided"
    mkdir "$unaided"
    : >"$unaided/man.local"
}

# Sets `pages` to the paths of all pages.
list_pages() {
    shopt -s nullglob
    pages=("$project"/man/*.[1-9])
    shopt -u nullglob
    [ ${#pages[@]} -gt 0 ] || fail "there is no page in man/"
}

# The page man/$1 as text, in lines so wide that none is broken.
text_of() {
    [ -f "$project/man/$1" ] || fail "there is no man/$1"
    groff -M "$unaided" -K utf8 -t -man -T utf8 -r LL=20000n -P -cbou "$project/man/$1"
}

# What stands below the heading $1 in the text of a page, which is read: of a section until the next
# section, of a subsection until the next of either.
below() {
    awk -v heading="$1" '
        /^[^ ]/ || (/^   [^ ]/ && !section) { inside = 0 }
        $0 == heading { inside = 1; section = 1; next }
        $0 == "   " heading { inside = 1; section = 0; next }
        inside'
}

# What stands in README.md below the heading $1, with its number signs, until the next heading.
readme_below() {
    awk -v heading="$1" '/^#/ { inside = $0 == heading; next } inside' "$project/README.md"
}

# The rows of the tables in README.md below the heading $1, without those of titles and lines; the first
# character of each is the bar before its first column.
readme_rows() {
    readme_below "$1" | awk '/^\|---/ { table = 1; next } !/^\|/ { table = 0 } table'
}

# The texts between backticks in what is read, one in a line, without blanks at their ends.
backticked() {
    grep -o '`[^`]*`' | sed 's/^` *//; s/ *`$//'
}

@test "man formats each page without a warning" {
    list_pages
    for page in "${pages[@]}"; do
        run man --warnings -E UTF-8 -l -Tutf8 -Z "$page"
        assert_success
        complaints=$(man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
        assert_equal "$complaints" ""
    done
}

@test "mandoc has nothing to say of any page" {
    list_pages
    for page in "${pages[@]}"; do
        run mandoc -T lint -W warning "$page"
        assert_output ""
        assert_success
    done
}

@test "each page is installed into its section, and nothing else is" {
    list_pages
    mkdir "$BATS_TEST_TMPDIR/source"
    cat >"$BATS_TEST_TMPDIR/source/CMakeLists.txt" <<EOF
cmake_minimum_required(VERSION 3.25)
project(manual LANGUAGES NONE)
add_subdirectory("$project/man" man)
EOF
    run cmake -G Ninja -DCMAKE_INSTALL_MANDIR=share/man \
        -S "$BATS_TEST_TMPDIR/source" -B "$BATS_TEST_TMPDIR/build"
    assert_success
    run cmake --install "$BATS_TEST_TMPDIR/build" --prefix "$BATS_TEST_TMPDIR/installed"
    assert_success

    expected=$(for page in "${pages[@]}"; do
        echo "share/man/man${page##*.}/${page##*/}"
    done | sort)
    assert_equal "$(cd "$BATS_TEST_TMPDIR/installed" && find . -type f -printf '%P\n' | sort)" "$expected"
}

@test "each page bears its own name and section, and the version of the program" {
    version=$(sed -n 's/^project(kennly VERSION \([0-9.]*\).*/\1/p' "$project/CMakeLists.txt")
    assert [ -n "$version" ]
    list_pages
    for page in "${pages[@]}"; do
        file=${page##*/}
        name=${file%.*}
        assert_equal "$(grep -c '^\.TH ' "$page")" 1
        read -r _ title section _ program given _ < <(grep '^\.TH ' "$page" | sed 's/\\-/-/g; s/"//g')
        assert_equal "$title $section" "${name^^} ${file##*.}"
        assert_equal "$program $given" "kennly $version"
    done
}

@test "each reference to a page of this manual leads to one" {
    list_pages
    references=0
    for page in "${pages[@]}"; do
        for reference in $(text_of "${page##*/}" | grep -oE '\bkennly[a-z.-]*\([0-9]\)' | sort -u); do
            file=${reference%(*}.${reference: -2:1}
            [ -f "$project/man/$file" ] || fail "${page##*/} leads to $reference, and there is no man/$file"
            references=$((references + 1))
        done
    done
    assert [ "$references" -gt 0 ]
}

@test "what is to be typed is not turned into typographic hyphens and quotes" {
    list_pages
    for page in "${pages[@]}"; do
        # An option begins with a minus sign, not with a hyphen.
        run awk '!/^\.\\"/ && /(^|[^\\[:alnum:]])-[A-Za-z-]/ { print FNR ": " $0 }' "$page"
        assert_output ""
        # In an example no character may be one that is turned into another.
        run awk '/^\.EE/ { example = 0 }
                 example { line = $0; gsub(/\\-/, "", line) }
                 example && line ~ /[-`'\''^~]/ { print FNR ": " $0 }
                 /^\.EX/ { example = 1 }' "$page"
        assert_output ""
    done
}

@test "kennly(8) has each log line, under its priority" {
    lines=$(text_of kennly.8 | below "LOG LINES")
    rows=0
    while IFS='|' read -r _ line priority _; do
        priority=${priority// /}
        tags=$(awk -v priority="$priority" '
            /^   [^ ]/ { inside = $1 == "Priority" && ($2 == priority || $2 == priority ":") }
            inside && /^       [^ ]/' <<<"$lines")
        texts=$(backticked <<<"$line")
        [ -n "$texts" ] || fail "no text in the row: $line"
        while read -r text; do
            grep -qF -- "$text" <<<"$tags" || fail "not in LOG LINES under priority $priority: $text"
        done <<<"$texts"
        rows=$((rows + 1))
    done < <(readme_rows "## What it logs")
    assert [ "$rows" -gt 0 ]
}

@test "kennly(8) has each reason for which a file does not load" {
    reasons=$(readme_below "## What it logs" | awk 'NF == 0 { wanted = 0 } /REASON is/ { wanted = 1 } wanted' |
        tr '\n' ' ' | backticked)
    assert [ -n "$reasons" ]
    tags=$(text_of kennly.8 | below "Reasons for which a file does not load" | grep '^       [^ ]')
    while read -r reason; do
        grep -qxF -- "       $reason" <<<"$tags" || fail "not among the reasons: $reason"
    done <<<"$reasons"
}

@test "kennly(8) has each option" {
    options=$(readme_below "### Options" | grep -oE '`-[A-Za-z]`' | backticked | sort -u)
    assert [ -n "$options" ]
    tags=$(text_of kennly.8 | below OPTIONS)
    for option in $options; do
        grep -qE -- "^       $option( |\$)" <<<"$tags" || fail "not among the OPTIONS: $option"
    done
}

@test "kennly.xml(5) has each attribute of each element, and tells which are required" {
    text=$(text_of kennly.xml.5 | below "ELEMENTS AND ATTRIBUTES")
    rows=0
    while IFS='|' read -r _ element attributes _ default _; do
        case $element in
            *'`'*) heading=$(backticked <<<"$element" | head -n 1) ;;
            *root*) heading="The root" ;;
            *) ;; # the one of the row above
        esac
        marked=''
        [ "${default// /}" != required ] || marked=' \(required\)'
        names=$(backticked <<<"$attributes")
        [ -n "$names" ] || fail "no attribute in a row of $heading"
        tags=$(below "$heading" <<<"$text")
        for name in $names; do
            grep -qE "^       $name$marked(  |\$)" <<<"$tags" || fail "not below '$heading': $name$marked"
        done
        rows=$((rows + 1))
    done < <(readme_rows "## The configuration file")
    assert [ "$rows" -gt 0 ]
}

@test "kennly.xml(5) has each type of check and remedy" {
    text=$(text_of kennly.xml.5)
    for kind in Check Remed; do
        headings=$(grep -xF -e "### ${kind}s" -e "### ${kind}ies" "$project/README.md")
        types=$(readme_rows "$headings" | cut -d '|' -f 2 | backticked)
        assert [ -n "$types" ]
        section='CHECK TYPES'
        [ $kind = Check ] || section='REMEDY TYPES'
        titles=$(below "$section" <<<"$text" | grep -E '^ {3}( {4})?[^ ]')
        for type in $types; do
            grep -qE "^ +([A-Za-z]+, )*$type(,|\$)" <<<"$titles" || fail "not in $section: $type"
        done
    done
}

# Cuts the XML examples out of the page man/$1 and leaves each in a file of its own in the directory $2.
# An example begins with a line that begins with a tag, and ends with the end of that element.
cut_out_examples() {
    mkdir "$2"
    text_of "$1" | awk -v directory="$2" '
        !inside && /^ *<[A-Za-z]/ {
            name = $1
            gsub(/[^A-Za-z]/, "", name)
            inside = 1
            file = directory "/" ++count ".xml"
        }
        inside && /^[^ ]/ { exit }
        inside { print >file }
        inside && index($0, "</" name ">") { inside = 0 }
        END { if (inside) { print "an example does not end: " file; exit 1 } }'
    cut_out=$(find "$2" -type f | wc -l)
    assert_equal "$cut_out" "$(grep -A 1 '^\.EX' "$project/man/$1" | grep -c '^<')"
    assert [ "$cut_out" -gt 0 ]
}

@test "each XML example is well-formed, and what the daemon takes without losing anything" {
    # What is wrong, and an XPath expression for all that is wrong that way.
    faults=(
        "unknown element"
        "//*[not(self::kennly or self::job or self::check or self::remedy or self::param)]"
        "job that is left out"
        "//job[not(@name) or not(@enabled='true') or count(check)!=1 or count(remedy)!=1]"
        "name given twice"
        "//job[@name=preceding::job/@name]"
        "misplaced element"
        "//job[parent::* and not(parent::kennly)] | //param[parent::job or parent::kennly]"
        "unknown check"
        "//check[not(starts-with(@type,'Check'))] |
         //check[not(contains('CommandResult ForFileChange ForNoFileChange',substring(@type,6)))]"
        "unknown remedy"
        "//remedy[not(@type='Execute' or @type='ExecuteAlways')]"
        "number of parameters"
        "//remedy[count(param)!=1] | //check[count(param)!=1+(@type='CheckForNoFileChange')]"
        "empty parameter"
        "//param[not(string(@value))]"
        "check without a pause"
        "//check[not(@delay>0)]"
        "number"
        "(//@delay|//@maxerrors|//@maxloaderrors|//@runactionresult)[.='' or translate(.,'0123456789','')!='']"
        "block file"
        "//@*[starts-with(name(),'blockaction') and not(starts-with(.,'/'))]"
        "attribute of the root"
        "//kennly/@*[name()!='maxloaderrors']"
        "attribute of a job"
        "//job/@*[name()!='name' and name()!='enabled' and name()!='maxerrors']"
        "attribute of a check"
        "//check/@*[name()!='type' and name()!='delay' and name()!='runactionresult']"
        "attribute of a remedy"
        "//remedy/@*[name()!='type' and name()!='delay' and name()!='blockaction' and
                     name()!='blockaction2' and name()!='blockaction3']"
        "attribute of a param"
        "//param/@*[name()!='value']"
    )
    for page in kennly.8 kennly.xml.5; do
        examples="$BATS_TEST_TMPDIR/$page"
        cut_out_examples "$page" "$examples"
        for example in "$examples"/*.xml; do
            run xmllint --noout "$example"
            assert_success
            assert_output ""
            for ((i = 0; i < ${#faults[@]}; i += 2)); do
                run xmllint --xpath "count(${faults[i + 1]})" "$example"
                [ "$output" = 0 ] || fail "${faults[i]}: $output in $(cat "$example")"
            done
        done
    done
    run grep -lE '^ *<kennly' "$BATS_TEST_TMPDIR"/kennly.xml.5/*.xml
    assert_success # one of them is a whole file
}

# ---- kennlyctl(8), whose verbs and options are those of its help, and whose codes those of its source

# The verbs that the help lists.
verbs() {
    "$KENNLY_CTL" --help | awk '/^Subcommands:/ { inside = 1; next } inside && NF { print $1 }'
}

# The options of a verb in its help, in lines such as "-W,--watcher"; without a verb, those of the program.
options_in_help() {
    "$KENNLY_CTL" "$@" --help | awk '$1 ~ /^-/ { print $1 }' | sort
}

# What stands in the first column of the table below the heading $1 of kennlyctl(8); columns are three blanks apart.
rows_of_table() {
    text_of kennlyctl.8 | below "$1" | sed -nE 's/^ {7}([^ ]+) {3,}[^ ].*/\1/p'
}

# The texts in quotes in the files given that can be nothing but codes: what stands behind a severity or a level,
# and words of small letters joined by hyphens.
codes_in() {
    cat "$@" | sed 's|//.*||' | tr -s '[:space:]' ' ' |
        grep -oE '(Severity|Level)::[A-Z][a-z]+, "[a-z-]+"|"[a-z]+(-[a-z]+)+"' | grep -oE '"[^"]+"' | tr -d '"' | sort -u
}

@test "kennlyctl(8) has each verb of the help, in its synopsis and with a section, and no other" {
    assert [ -n "$(verbs)" ]
    synopsis=$(text_of kennlyctl.8 | below SYNOPSIS | awk '$2 ~ /^[a-z]/ { print $2 }')
    assert_equal "$synopsis" "$(verbs)"
    sections=$(text_of kennlyctl.8 | awk '/^[^ ]/ { inside = $0 == "VERBS" } inside && /^   [^ ]/ { print $1 }')
    assert_equal "$sections" "$(verbs)"
}

@test "kennlyctl(8) has each option of each verb, and no other" {
    for verb in $(verbs); do
        expected=$(options_in_help "$verb" | grep -vx -- '-h,--help')
        tags=$(text_of kennlyctl.8 | below "$verb" |
            sed -nE 's/^       (-[A-Za-z], )?(--[a-z-]+).*/\1\2/p' | tr -d ' ' | sort)
        assert_equal "$verb: $tags" "$verb: $expected"
        # In the synopsis each has one of its names.
        names=$(text_of kennlyctl.8 | below SYNOPSIS | grep " kennlyctl $verb " | grep -oE -- '-[-A-Za-z]+' | sort)
        assert_equal "$verb: $names" "$verb: $(cut -d , -f 1 <<<"$expected" | sort)"
    done
    assert_equal "$(options_in_help)" "$(printf '%s\n' --version -h,--help | sort)"
    text_of kennlyctl.8 | below VERBS | grep -F -- '-h, --help'
    text_of kennlyctl.8 | below SYNOPSIS | grep -F -- '--version'
}

@test "kennlyctl(8) has each code of what check finds, and no other" {
    codes=$(codes_in "$project"/src/lint/*Rules.cpp "$project"/src/lint/{JobSelection,Lint}.cpp)
    assert [ "$(wc -l <<<"$codes")" -gt 60 ]
    assert_equal "$(rows_of_table "WHAT CHECK FINDS" | sort)" "$codes"
}

@test "kennlyctl(8) has each code of what status finds, and no other" {
    codes=$(codes_in "$project/src/status/Problems.cpp")
    assert [ "$(wc -l <<<"$codes")" -gt 10 ]
    assert_equal "$(rows_of_table "WHAT STATUS FINDS" | sort)" "$codes"
}

@test "kennlyctl(8) has each metric of status, with its labels, and no other" {
    source=$project/src/ctl/StatusMetrics.cpp
    names=$(grep -oE '"kennly_[a-z_]+"' "$source" | tr -d '"' | sort -u)
    assert [ "$(wc -l <<<"$names")" -gt 8 ]
    assert_equal "$(rows_of_table METRICS | sort)" "$names"
    labels=$(grep -oE '[,{][a-z_]+=\\"|"code=|,level=' "$source" | grep -oE '[a-z_]+' | sort -u)
    assert_equal "$(text_of kennlyctl.8 | below METRICS | grep -oE 'tree|role|job_name|code|level' | sort -u)" "$labels"
}

@test "kennlyctl(8) has each member of what status writes as an object, and no other" {
    members=$(grep -oE '\{"[a-z_]+",' "$project/src/ctl/StatusJson.cpp" | tr -d '{",' | sort -u)
    assert [ "$(wc -l <<<"$members")" -gt 40 ]
    named=$(sed -n '/^\.SH "MEMBERS OF THE OBJECT"/,/^\.TE/p' "$project/man/kennlyctl.8" | grep -oE '\\fB[a-z_]+|^[a-z_]+(, [a-z_]+)*$' |
        sed 's/\\fB//' | tr -d ' ' | tr ',' '\n' | sort -u)
    assert_equal "$named" "$members"
}

@test "kennlyctl(8) has each exit status, and no other" {
    statuses=$({
        sed -nE 's/.* Exit[A-Za-z]+ = ([0-9]+);.*/\1/p' "$project/src/ctl/ExitStatus.h"
        sed -nE 's/.* statusOf[A-Za-z]+ = ([0-9]+);.*/\1/p' "$project"/src/ctl/*.cpp
    } | sort -n)
    assert [ "$(wc -l <<<"$statuses")" -gt 9 ]
    assert_equal "$(rows_of_table "EXIT STATUS")" "$statuses"
}

@test "README has each exit status of kennlyctl, and no other" {
    assert_equal "$(readme_rows "### Exit statuses of kennlyctl" | cut -d '|' -f 2 | tr -d ' ')" \
        "$(rows_of_table "EXIT STATUS")"
}

@test "each problem that README explains is one that status finds" {
    codes=$(rows_of_table "WHAT STATUS FINDS"; rows_of_table "WHAT CHECK FINDS")
    named=$(readme_below "## When something is wrong" | grep -oE '\[[a-z]+(-[a-z]+)*\] ' | tr -d '[] ')
    assert [ -n "$named" ]
    for code in $named; do
        grep -qx -- "$code" <<<"$codes" || fail "no such code: $code"
    done
}

@test "what README shows of check is what check says" {
    cd "$BATS_TEST_TMPDIR"
    cat >new.xml <<'END'
<kennly>
    <job name="report" enabled="true">
        <check type="CheckCommandResult" delay="5">
            <param value="cd /srv && test -e report"/>
        </check>
        <remedy type="Execute" blockAction="/run/report.maintenance">
            <param value="cd /srv; timeout 60 make report"/>
        </remedy>
    </job>
    <job name="web" enabled="yes">
        <check type="CheckCommandResult" delay="5"><param value="timeout 5 true"/></check>
        <remedy type="Execute"><param value="true"/></remedy>
    </job>
</kennly>
END
    shown=$(readme_below "## When something is wrong" | sed -n '/^```/,/^```/{ /^```/d; p }')
    command=$(sed -n '1s/^\$ kennlyctl //p' <<<"$shown")
    assert [ -n "$command" ]
    # shellcheck disable=SC2086 # several words
    run "$KENNLY_CTL" $command
    assert_output "$(tail -n +2 <<<"$shown")"
}
