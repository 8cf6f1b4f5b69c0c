#!/bin/sh
# make-seeds.sh
#
# Writes the files of the corpus that stand at the limits of src/config/FileInspection.h: the deepest and
# the widest that may be loaded, and each with one more. To be run again when a limit changes.
set -eu
cd "$(dirname "$0")/../.."

corpus=tests/fuzz/corpus

limit() {
    number=$(sed -n "s/^inline constexpr int $1 = \([0-9]*\);.*/\1/p" src/config/FileInspection.h)
    [ -n "$number" ] || {
        echo "make-seeds.sh: src/config/FileInspection.h does not tell $1" >&2
        exit 1
    }
    echo "$number"
}

levels() {
    printf '<k>%.0s' $(seq "$1")
    printf '</k>%.0s' $(seq "$1")
}

attributes() {
    printf '<k'
    printf ' a%d=""' $(seq "$1")
    printf '/>'
}

nesting=$(limit MaxNesting)
width=$(limit MaxAttributes)
levels "$nesting" >$corpus/deepest.xml
levels $((nesting + 1)) >$corpus/too-deep.xml
attributes "$width" >$corpus/widest.xml
attributes $((width + 1)) >$corpus/too-wide.xml
