#!/bin/sh
# Assembly text assembles to the same code: for every program among the examples and the case files that assembles without
# an error, what `-A` writes of it is assembled with the same options, and the TEXT and RELOC records are compared.
#
#     roundtrip.sh BIN EXAMPLES CASES
#
# Text can't tell everything. The runs in `exceptions`, each with its reason, have to differ.
set -u
bin=$(cd "$1" && pwd) && examples=$(cd "$2" && pwd) && cases=$(cd "$3" && pwd) || exit 1
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT
failed=0 same=0

exceptions='
encode/relocs.txt -mcpu=ZEL8K10: `defined` of a constant, whose definition is not part of the text
expr/trees.txt -mcpu=ZEL8K10: `mod` and `seg`, for which the text has no words that can be read
parse/operands.txt -mcpu=ZEL8K10 -no_trans -W9: in `bcf x,b,3` the access word leaves no trace
'

# The records with code, as text.
code() {
    "$bin/zelobj" "$1" | awk '/^[A-Z]/ { code = /^TEXT/ } code'
}

# compare NAME OPTION... -- SOURCE...: in the current directory.
compare() {
    name=$1 options=
    shift
    while [ "$1" != -- ]; do
        case $1 in -O?*) ;; *) options="$options $1" ;; esac
        shift
    done
    shift
    "$bin/aszel8" $options -Oa.obj "$@" >a.out 2>&1 || return
    excepted=$(echo "$exceptions" | grep -cF "$name$options: ")
    if "$bin/aszel8" $options -A -Ob.as "$@" >b.out 2>&1 && "$bin/aszel8" $options -Ob.obj b.as >>b.out 2>&1 &&
        code a.obj >a.txt && code b.obj >b.txt && diff a.txt b.txt >>b.out; then
        same=$((same + 1))
        [ "$excepted" = 0 ] || { echo "$name$options: is the same, and no exception any more"; failed=1; }
    elif [ "$excepted" = 0 ]; then
        echo "$name$options: $*"
        cat b.out
        failed=1
    fi
}

cp "$examples"/* "$work" && cd "$work" || exit 1
for source in *.as; do
    compare "$source" -mcpu=ZEL8K10 -- "$source"
done

# The plain files of a case, and its runs of the assembler, one a line: options, --, sources.
for case in "$cases"/*/*.txt; do
    rm -rf "$work/case" && mkdir "$work/case" && cd "$work/case" || exit 1
    awk '
        /^--- / {
            into = ""
            if ($2 == "file" && NF == 3 && $3 !~ /[\/$]/) into = $3
            if ($2 == "run" && $3 != "tool" && !/[@'"'"']/) {
                options = sources = ""
                for (i = 3; i <= NF; i++)
                    if ($i ~ /^-/) options = options " " $i
                    else sources = sources " " $i
                if (sources != "" && options !~ / -([AaCcLl]|O( |$))/) print options " --" sources >"runs"
            }
            next
        }
        into != "" { print >into }' "$case"
    [ -f runs ] || continue
    while read -r arguments; do
        compare "${case#"$cases"/}" $arguments
    done <runs
done
echo "$same programs came back the same"
[ "$same" -ge 10 ] || failed=1
exit $failed
