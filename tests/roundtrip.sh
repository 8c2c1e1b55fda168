#!/bin/sh
# Assembly text assembles to the same code: for every program among the examples and the case files that assembles without
# an error, what `-A` writes of it is assembled with the same options, and the records of psects, code and declarations are
# compared. So with `-O` on top, where the optimiser must leave its own work alone.
#     roundtrip.sh BIN EXAMPLES CASES
set -u
bin=$(cd "$1" && pwd) && examples=$(cd "$2" && pwd) && cases=$(cd "$3" && pwd) || exit 1
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT
failed=0 same=0

# Runs that have to differ, each with what text can't tell.
exceptions='
encode/relocs.txt -mcpu=ZEL8K10: `defined` of a constant, whose definition is not part of the text
expr/trees.txt -mcpu=ZEL8K10: `mod` and `seg`, for which the text has no words that can be read
optim/pa.txt -mcpu=ZEL8K10 --opt=space: procedural abstraction finds more in what it has made
parse/operands.txt -mcpu=ZEL8K10 -no_trans -W9: in `bcf x,b,3` the access word leaves no trace
'

records='TEXT|X?PSECT|PSECTLIM|PSECTBOUND|COND_EXPR|FNCONF|FNALIGN|SIGNAT|DABS'
code() { "$bin/zelobj" "$1" | awk "/^[A-Z]/ { code = /^($records) / } code"; }

# compare NAME OPTIONS SOURCES [-O]: in the current directory.
compare() {
    "$bin/aszel8" $2 ${4-} -Oa.obj $3 >a.out 2>&1 || return
    if "$bin/aszel8" $2 ${4-} -A -Oback.as $3 >b.out 2>&1 && "$bin/aszel8" $2 ${4-} -Ob.obj back.as >>b.out 2>&1 &&
        code a.obj >a.txt && code b.obj >b.txt && diff a.txt b.txt >>b.out; then
        same=$((same + 1))
    elif ! echo "$exceptions" | grep -qF "$1$2: "; then
        echo "$1$2 ${4-}: $3"
        cat b.out
        failed=1
    fi
}

cp "$examples"/*.as "$examples"/*.inc "$work" && cd "$work" || exit 1
for source in *.as; do
    compare "$source" " -mcpu=ZEL8K10" "$source"
    compare "$source" " -mcpu=ZEL8K10" "$source" -O
done

# The plain files of a case, and its runs of the assembler, one a line: options|sources.
for case in "$cases"/*/*.txt; do
    rm -rf "$work/case" && mkdir "$work/case" && cd "$work/case" || exit 1
    awk '
        /^--- / {
            into = $2 == "file" && NF == 3 && $3 !~ /[\/$]/ ? $3 : ""
            if ($2 != "run" || $3 == "tool" || $3 == "shell" || /[@'"'"']/) next
            options = sources = ""
            for (i = 3; i <= NF; i++)
                if ($i !~ /^-/) sources = sources " " $i
                else if ($i !~ /^-O./) options = options " " $i
            if (sources != "" && options !~ / -([AaCc]|O( |$)|-errata)/) print options "|" sources >"runs"
            next
        }
        into != "" { print >into }' "$case"
    [ -f runs ] || continue
    while IFS="|" read -r options sources; do
        compare "${case#"$cases"/}" "$options" "$sources"
        compare "${case#"$cases"/}" "$options" "$sources" -O
    done <runs
done
echo "$same programs came back the same"
[ "$same" -ge 20 ] || failed=1
exit $failed
