# The schema of the configuration accepts whatever is shipped or shown, refuses traps with a reason that
# helps, and says truly what it cannot express: each entry of the lists at its head has a file here.

load /usr/lib/bats/bats-support/load
load /usr/lib/bats/bats-assert/load

ROOT=$BATS_TEST_DIRNAME/../..
SCHEMA=$ROOT/schema/kennly.xsd

# What most files of the tables are made of: one text of it is replaced by another.
CONFIGURATION='<?xml version="1.0" encoding="UTF-8"?>
<!-- one job -->
<kennly maxloaderrors="10">
    <job name="web" enabled="true" maxerrors="3">
        <check type="CheckCommandResult" delay="30" runactionresult="2">
            <param value="timeout 10 check-web"/>
        </check>
        <remedy type="Execute" delay="5" blockaction="/run/web" blockaction2="/run/b" blockaction3="/run/c">
            <param value="systemctl restart nginx"/>
        </remedy>
    </job>
</kennly>'
CHECK_TYPE='type="CheckCommandResult" delay="30" runactionresult="2"'
CHECK_PARAM='<param value="timeout 10 check-web"/>'
REMEDY_PARAM='<param value="systemctl restart nginx"/>'

# Another check and another remedy, whole.
CHECK='<check type="CheckForFileChange" delay="1"><param value="/a"/></check>'
REMEDY='<remedy type="Execute"><param value="true"/></remedy>'
COMMAND_CHECK="$CHECK_TYPE>
            $CHECK_PARAM"

setup_file() {
    [ -z "${KENNLY_CONFIGURATIONS-}" ] || : >"$KENNLY_CONFIGURATIONS"
}

# For what kennlyctl and the daemon say of it: see tests/support/KeptConfigurations.h.
keep() {
    local size
    size=$(stat --format %s "$1")
    [ -z "${KENNLY_CONFIGURATIONS-}" ] || [ "$size" -gt 262144 ] ||
        { echo "$size" && cat "$1"; } >>"$KENNLY_CONFIGURATIONS"
}

validate() {
    keep "$1"
    run xmllint --nonet --noout --schema "$SCHEMA" "$1"
}

assert_validates() {
    validate "$1"
    assert_success
    assert_output "$1 validates"
}

# assert_refused FILE STATUS REASON: xmllint's status is 1 for what is no XML, 3 for what is invalid.
assert_refused() {
    validate "$1"
    assert_failure "$2"
    assert_output --partial "$3"
}

# Writes the configuration with TEXT in the place of PLACE to a file, and has `file` name it.
write_with() {
    local place=$1 text=$2
    [[ $CONFIGURATION == *"$place"* ]] || fail "the configuration has no $place"
    file=$BATS_TEST_TMPDIR/kennly.xml
    printf '%s\n' "${CONFIGURATION/"$place"/"$text"}" >"$file"
}

# The texts that follow belong to this entry of a list at the head of the schema.
entry() {
    printf '%s\n' "$1" >>"$BATS_TEST_TMPDIR/entries"
}

# All entries of the list that begins with these words have been tried, and no others.
assert_all_entries_of() {
    local list="//*[local-name()='documentation'][starts-with(normalize-space(.), '$1')]"
    run xmllint --xpath "string($list)" "$SCHEMA"
    assert_success
    sed -n 's/^- \([^:]*\): .*/\1/p' <<<"$output" >"$BATS_TEST_TMPDIR/listed"
    assert_equal "$(sort "$BATS_TEST_TMPDIR/entries")" "$(sort "$BATS_TEST_TMPDIR/listed")"
}

# A configuration is accepted although it has TEXT in the place of PLACE.
accepts() {
    write_with "$1" "$2"
    assert_validates "$file"
}

# So it is with a CheckForNoFileChange for this path and this greatest age.
accepts_stale_check() {
    accepts "$COMMAND_CHECK" "type=\"CheckForNoFileChange\" delay=\"30\">
            <param value=\"$1\"/><param value=\"$2\"/>"
}

# WRONG is invalid for REASON, and RIGHT in the same place is valid. The place is that of RIGHT in the
# configuration, or of PLACE.
trap_instead_of() {
    local right=$1 wrong=$2 reason=$3 place=${4:-$1}
    write_with "$place" "$wrong"
    assert_refused "$file" 3 "$reason"
    accepts "$place" "$right"
}

# The same for WRONG that is not even XML.
not_xml_instead_of() {
    local right=$1 wrong=$2 reason=$3 place=${4:-$1}
    write_with "$place" "$wrong"
    assert_refused "$file" 1 "parser error : $reason"
    accepts "$place" "$right"
}

# repeat COUNT TEXT
repeat() {
    printf "%.0s$2" $(seq "$1")
}

@test "the schema is valid, and accepts the least that there is" {
    printf '<kennly/>' >"$BATS_TEST_TMPDIR/least.xml"
    assert_validates "$BATS_TEST_TMPDIR/least.xml"
}

@test "every element, attribute, type and value of the schema is explained" {
    local kinds="contains(' element attribute complexType simpleType enumeration unique ',
                          concat(' ', local-name(), ' '))"
    run xmllint --xpath "count(//*[$kinds])" "$SCHEMA"
    assert [ "$output" -gt 30 ]
    run xmllint --xpath "count(//*[$kinds][not(normalize-space(
        *[local-name()='annotation']/*[local-name()='documentation']))])" "$SCHEMA"
    assert_output 0
}

@test "every configuration that is shipped or shown in the demonstration is valid" {
    local folder configuration
    for folder in samples recipes demo/recovery demo/repair; do
        for configuration in "$ROOT/$folder"/*.xml; do
            assert_validates "$configuration"
        done
    done
}

@test "every configuration in the README is valid" {
    awk -v to="$BATS_TEST_TMPDIR" '
        /^```/ { file = $0 == "```xml" ? to "/block" ++count ".xml" : ""; next }
        file { print > file }' "$ROOT/README.md"
    assert [ -s "$BATS_TEST_TMPDIR/block1.xml" ]
    local block
    for block in "$BATS_TEST_TMPDIR"/block*.xml; do
        assert_validates "$block"
    done
}

@test "editors may be told of the schema in the file" {
    accepts '<kennly ' '<kennly xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
        xsi:noNamespaceSchemaLocation="file:///usr/share/kennly/kennly.xsd" '
}

@test "what is right is accepted in each of its forms" {
    local word
    for word in true TRUE True tRuE false FALSE; do
        accepts 'enabled="true"' "enabled=\"$word\""
    done
    for word in CheckForFileChange CheckSocketListening CheckListeningSocketResponse; do
        accepts "$CHECK_TYPE" "type=\"$word\" delay=\"30\""
    done
    accepts 'type="Execute"' 'type="ExecuteAlways"'
    accepts ' maxloaderrors="10"' ''
    accepts ' maxerrors="3"' ''
    accepts ' runactionresult="2"' ''
    accepts ' delay="5" blockaction="/run/web" blockaction2="/run/b" blockaction3="/run/c"' ''
    accepts 'name="web"' 'name=".web"'
    accepts 'name="web"' 'name="café: front page"'
    accepts 'systemctl restart nginx' 'sh -c &quot;test -e /a &amp;&amp; test 1 &lt; 2&quot;'

    # A remedy may stand before its check.
    accepts '</job>' "</job><job name=\"turned around\" enabled=\"true\">$REMEDY$CHECK</job>"
}

@test "what the schema is stricter about is refused with a reason" {
    local unexpected='This element is not expected' missing='is required but missing'
    local unknown='is not allowed' number="is not a valid value of the atomic type 'Seconds'"
    local count="is not a valid value of the atomic type 'Count'"
    local least="[facet 'minInclusive']" most="[facet 'maxInclusive']"
    local pattern="[facet 'pattern']" type="[facet 'enumeration']"

    entry 'letter case'
    trap_instead_of '<param value' '<Param value' "Element 'Param': $unexpected"
    trap_instead_of 'type="Execute"' 'type="execute"' "attribute 'type': $type"
    trap_instead_of "$CHECK_TYPE" 'type="CHECKCOMMANDRESULT" delay="30"' "attribute 'type': $type"
    trap_instead_of '</job>' '</job><JOB name="b" enabled="false"/>' "Element 'JOB': $unexpected"

    entry 'root of another name'
    local job="${CONFIGURATION#*10\">}"
    CONFIGURATION=ROOT trap_instead_of "<kennly>$job" "<watchdog>${job/\/kennly/\/watchdog}" \
        "Element 'watchdog': No matching global declaration available" ROOT

    entry 'namespaces'
    trap_instead_of '<kennly ' '<kennly xmlns="urn:kennly" ' \
        "Element '{urn:kennly}kennly': No matching global declaration available"

    entry 'unknown elements'
    trap_instead_of '</job>' '</job><jobs/>' "Element 'jobs': $unexpected. Expected is ( job )"
    trap_instead_of '</check>' '</check><action/>' "Element 'action': $unexpected"
    trap_instead_of "$CHECK_PARAM" "<command/>" "Element 'command': $unexpected. Expected is ( param )"
    trap_instead_of "$REMEDY_PARAM" '<param value="a"><b/></param>' "content is not allowed"

    entry 'unknown attributes'
    trap_instead_of 'maxloaderrors="10"' 'maxLoadErrors="10"' "attribute 'maxLoadErrors' $unknown"
    trap_instead_of 'maxerrors="3"' 'maxErrors="3"' "attribute 'maxErrors' $unknown"
    trap_instead_of ' runactionresult="2"' ' runActionResult="2"' "attribute 'runActionResult' $unknown"
    trap_instead_of 'delay="5"' 'Delay="5"' "attribute 'Delay' $unknown"
    trap_instead_of 'blockaction="' 'block-action="' "attribute 'block-action' $unknown"
    trap_instead_of 'blockaction3="/run/c"' 'blockaction4="/run/c"' "attribute 'blockaction4' $unknown"
    trap_instead_of "$CHECK_PARAM" '<param value="a" name="b"/>' "attribute 'name' $unknown"

    entry 'text between elements'
    trap_instead_of "$CHECK_PARAM" 'check-web' "Character content other than whitespace is not allowed"
    trap_instead_of '</job>' '</job>;' "Character content other than whitespace is not allowed"

    entry 'numbers'
    trap_instead_of 'delay="30"' 'delay="5m"' "'5m' $number"
    trap_instead_of 'delay="30"' 'delay="1.5"' "'1.5' $number"
    trap_instead_of 'delay="30"' 'delay="0x10"' "'0x10' $number"
    trap_instead_of 'delay="30"' 'delay=""' "'' $number"
    trap_instead_of 'delay="5"' 'delay="5s"' "'5s' $number"
    trap_instead_of 'maxerrors="3"' 'maxerrors="three"' "'three' $count"
    trap_instead_of 'maxloaderrors="10"' 'maxloaderrors="ten"' "'ten' $count"
    trap_instead_of 'delay="2147483647"' 'delay="2147483648"' "attribute 'delay': $most" 'delay="30"'
    trap_instead_of 'delay="2147483647"' 'delay="2147483648"' "attribute 'delay': $most" 'delay="5"'
    trap_instead_of 'maxerrors="2147483647"' 'maxerrors="2147483648"' "attribute 'maxerrors': $most" \
        'maxerrors="3"'
    trap_instead_of 'maxloaderrors="2147483647"' 'maxloaderrors="2147483648"' \
        "attribute 'maxloaderrors': $most" 'maxloaderrors="10"'

    entry 'negative numbers'
    trap_instead_of 'delay="30"' 'delay="-1"' "attribute 'delay': $least"
    trap_instead_of 'delay="5"' 'delay="-1"' "attribute 'delay': $least"
    trap_instead_of 'maxerrors="3"' 'maxerrors="-1"' "attribute 'maxerrors': $least"
    trap_instead_of 'maxloaderrors="10"' 'maxloaderrors="-1"' "attribute 'maxloaderrors': $least"

    entry 'runactionresult'
    trap_instead_of 'runactionresult="255"' 'runactionresult="256"' "attribute 'runactionresult': $most" \
        'runactionresult="2"'
    trap_instead_of 'runactionresult="2"' 'runactionresult="-1"' "attribute 'runactionresult': $least"
    trap_instead_of 'runactionresult="2"' 'runactionresult="critical"' \
        "'critical' is not a valid value of the atomic type 'ExitStatus'"

    entry 'enabled'
    trap_instead_of 'enabled="true"' 'enabled="yes"' "attribute 'enabled': $pattern"
    trap_instead_of 'enabled="true"' 'enabled="1"' "attribute 'enabled': $pattern"
    trap_instead_of 'enabled="true"' 'enabled=" true"' "attribute 'enabled': $pattern"
    trap_instead_of 'enabled="false"' 'enabled="no"' "attribute 'enabled': $pattern" 'enabled="true"'
    trap_instead_of ' enabled="true"' '' "The attribute 'enabled' $missing"

    entry 'check without a delay'
    trap_instead_of ' delay="30"' '' "The attribute 'delay' $missing"

    entry 'second check or remedy'
    trap_instead_of '</check>' "</check>$CHECK" "Element 'check': $unexpected"
    trap_instead_of '</remedy>' "</remedy>$REMEDY" "Element 'remedy': $unexpected"

    entry 'missing check or remedy'
    local begin='</job><job name="b" enabled="true">'
    local lacks="Element 'job': Missing child element(s). Expected is"
    trap_instead_of "$begin$CHECK$REMEDY</job>" "$begin$REMEDY</job>" "$lacks ( check )" '</job>'
    trap_instead_of "$begin$CHECK$REMEDY</job>" "$begin$CHECK</job>" "$lacks ( remedy )" '</job>'
    trap_instead_of "$begin$CHECK$REMEDY</job>" "$begin</job>" "$lacks one of ( check, remedy )" '</job>'

    entry 'type'
    trap_instead_of 'type="Execute"' 'type="Restart"' "attribute 'type': $type The value 'Restart'"
    trap_instead_of 'type="CheckCommandResult"' 'type="CheckCommand"' "attribute 'type': $type"
    trap_instead_of 'type="Execute"' 'type="CheckCommandResult"' "attribute 'type': $type"
    trap_instead_of ' type="Execute"' '' "The attribute 'type' $missing"
    trap_instead_of ' type="CheckCommandResult"' '' "The attribute 'type' $missing"

    entry 'number of params'
    trap_instead_of "$CHECK_PARAM" '' "Element 'check': Missing child element(s). Expected is ( param )"
    trap_instead_of "$CHECK_PARAM$CHECK_PARAM" "$CHECK_PARAM$CHECK_PARAM$CHECK_PARAM" \
        "Element 'param': $unexpected" "$CHECK_PARAM"
    trap_instead_of "$REMEDY_PARAM" '' "Element 'remedy': Missing child element(s). Expected is ( param )"
    trap_instead_of "$REMEDY_PARAM" "$REMEDY_PARAM$REMEDY_PARAM" "Element 'param': $unexpected"

    entry 'empty value'
    trap_instead_of "$CHECK_PARAM" '<param value=""/>' "attribute 'value': $pattern"
    trap_instead_of "$CHECK_PARAM" '<param value="  &#9;&#10;"/>' "attribute 'value': $pattern"
    trap_instead_of "$REMEDY_PARAM" '<param/>' "The attribute 'value' $missing"
    trap_instead_of "$REMEDY_PARAM" '<param>reboot</param>' "The attribute 'value' $missing"

    entry 'block file'
    trap_instead_of 'blockaction="/run/web"' 'blockaction=""' "attribute 'blockaction': $pattern"
    trap_instead_of 'blockaction="/run/web"' 'blockaction="web"' "attribute 'blockaction': $pattern"
    trap_instead_of 'blockaction="/run/web"' 'blockaction=" /run/web"' "attribute 'blockaction': $pattern"
    trap_instead_of 'blockaction="/run/web"' 'blockaction="/run/web "' "attribute 'blockaction': $pattern"
    trap_instead_of 'blockaction="/run/web"' 'blockaction="/"' "attribute 'blockaction': $pattern"
    trap_instead_of 'blockaction2="/run/b"' 'blockaction2="~/b"' "attribute 'blockaction2': $pattern"
    trap_instead_of 'blockaction3="/run/c"' 'blockaction3="./c"' "attribute 'blockaction3': $pattern"

    entry 'same name twice'
    local twin="enabled=\"false\">$CHECK$REMEDY</job>"
    trap_instead_of "</job><job name=\"WEB\" $twin" "</job><job name=\"web\" $twin" \
        "Duplicate key-sequence ['web'] in unique identity-constraint 'unique-job-names'" '</job>'

    entry 'name of a job'
    trap_instead_of ' name="web"' '' "The attribute 'name' $missing"
    trap_instead_of 'name="web"' 'name=""' "attribute 'name': [facet 'minLength']"
    trap_instead_of 'name="a-b"' 'name="a/b"' "attribute 'name': $pattern" 'name="web"'
    trap_instead_of 'name="web"' 'name="../kennly.xml"' "attribute 'name': $pattern"
    trap_instead_of 'name="a."' 'name="."' "attribute 'name': $pattern" 'name="web"'
    trap_instead_of 'name="..."' 'name=".."' "attribute 'name': $pattern" 'name="web"'
    trap_instead_of "name=\"$(repeat 255 a)\"" "name=\"$(repeat 256 a)\"" \
        "attribute 'name': [facet 'maxLength']" 'name="web"'

    assert_all_entries_of 'Where the schema is stricter'
}

@test "what only the daemon's own parser reads is refused as no XML" {
    entry 'bare ampersand'
    not_xml_instead_of 'a &amp;&amp; b' 'a && b' 'xmlParseEntityRef: no name' 'timeout 10 check-web'
    not_xml_instead_of '?x=1&amp;y=2' '?x=1&y=2' "EntityRef: expecting ';'" 'timeout 10 check-web'

    entry 'less-than sign in a value'
    not_xml_instead_of 'read x &lt;/a' 'read x </a' "Unescaped '<' not allowed in attributes values" \
        'timeout 10 check-web'

    entry 'value without quotes'
    not_xml_instead_of 'delay="30"' 'delay=30' "AttValue: \" or ' expected"

    entry 'attributes without a blank between them'
    not_xml_instead_of 'delay="5" blockaction=' 'delay="5"blockaction=' 'attributes construct error'

    entry 'second root'
    not_xml_instead_of '</kennly>' '</kennly><kennly/>' 'Extra content at the end of the document'

    entry 'text after the root'
    not_xml_instead_of '</kennly>' '</kennly> end' 'Extra content at the end of the document'

    entry 'two hyphens in a comment'
    not_xml_instead_of '<!-- one job -->' '<!-- one -- job -->' 'Double hyphen within comment'

    entry 'bytes that are not UTF-8'
    not_xml_instead_of 'name="café"' $'name="caf\xe9"' 'Input is not proper UTF-8' 'name="web"'
    CONFIGURATION=${CONFIGURATION#*$'\n'} not_xml_instead_of 'name="café"' $'name="caf\xe9"' \
        'Input is not proper UTF-8' 'name="web"'

    assert_all_entries_of 'What no other parser reads'
}

@test "what the schema cannot express is accepted" {
    entry 'number of params by type'
    accepts "$CHECK_PARAM" "$CHECK_PARAM$CHECK_PARAM"
    accepts "$CHECK_TYPE" 'type="CheckForNoFileChange" delay="30"'

    entry 'attributes by type'
    accepts "$CHECK_TYPE" 'type="CheckForFileChange" delay="30" runactionresult="2"'

    entry 'placeholders'
    accepts 'type="CheckCommandResult"' 'type="CheckSocketListening"'
    accepts 'type="CheckCommandResult"' 'type="CheckListeningSocketResponse"'

    entry 'greatest age'
    accepts_stale_check /run/x 5m
    accepts_stale_check /run/x long

    entry 'age and reload'
    accepts_stale_check /opt/qrv/data/kennly/heartbeats/watcherchild 2

    entry 'path in a param'
    local unfit
    for unfit in '~/state' '$HOME/state' 'state' '/run/*.pid' ' /run/x'; do
        accepts_stale_check "$unfit" 60
    done

    entry 'wildcard in a block file'
    accepts 'blockaction="/run/web"' 'blockaction="/run/*.maintenance"'

    entry 'files that are not there'
    accepts_stale_check /nowhere/at/all 60

    entry 'commands that cannot work'
    accepts 'systemctl restart nginx' 'systemclt restart nginx'
    accepts 'systemctl restart nginx' 'cd /srv'

    entry 'commands that always pass'
    accepts 'timeout 10 check-web' 'timeout 10 check-web;'
    accepts 'timeout 10 check-web' 'timeout 10 check-web &amp;'

    entry 'commands in a row'
    accepts 'systemctl restart nginx' 'rm /run/stale; systemctl restart nginx'
    accepts 'timeout 10 check-web' 'check-host; check-web'

    entry 'command that never ends'
    accepts 'timeout 10 check-web' 'sleep infinity'

    entry 'runactionresult of 0'
    accepts 'runactionresult="2"' 'runactionresult="0"'

    entry 'runactionresult and missing command'
    accepts 'timeout 10 check-web' '/nowhere/check-web'

    entry 'delay of 0'
    accepts 'delay="30"' 'delay="0"'

    entry 'delay of an hour'
    accepts 'delay="30"' 'delay="3600"'

    entry 'remedy delay and maxerrors'
    accepts 'delay="5"' 'delay="60"'

    entry 'maxloaderrors of 0'
    accepts 'maxloaderrors="10"' 'maxloaderrors="0"'

    entry 'too many jobs'
    local job="<job name=\"%s\" enabled=\"true\">$CHECK$REMEDY</job>"
    accepts '</job>' "</job>$(printf "$job" $(seq 6000))"

    entry 'name in bytes'
    accepts 'name="web"' "name=\"$(repeat 255 é)\""

    entry 'name in both files'
    write_with "$CHECK_TYPE" 'type="CheckForFileChange" delay="30"'
    cp "$file" "$BATS_TEST_TMPDIR/dogdog.xml"
    assert_validates "$file"
    assert_validates "$BATS_TEST_TMPDIR/dogdog.xml"

    entry 'heartbeat of the own tree'
    accepts_stale_check /opt/qrv/data/kennly/heartbeats/child 60

    entry 'line end in a value'
    accepts 'timeout 10 check-web' $'check-web\ncheck-mail'

    entry 'document type'
    accepts '<kennly ' '<!DOCTYPE kennly [<!ENTITY program "check-web">]>
<kennly '

    entry 'other encodings'
    write_with 'encoding="UTF-8"' 'encoding="UTF-16"'
    iconv -f UTF-8 -t UTF-16 "$file" >"$BATS_TEST_TMPDIR/utf-16.xml"
    assert_validates "$BATS_TEST_TMPDIR/utf-16.xml"

    assert_all_entries_of 'What the schema cannot express'
}
