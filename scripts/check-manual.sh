#!/bin/sh
# Checks the manual against the program: what stands in its fenced blocks is done, chapter by chapter, in an empty directory.
#
#     check-manual.sh BIN CHAPTER...
#
# The word behind the fence says what a block is, a second word names the file that the block becomes.
#   asm       a whole program. It has to assemble without a message, with -mcpu=ZEL8K10 and what a first line
#             "; options: ..." gives.
#   console   commands, behind "$ ", and what they print. A line "..." stands for any lines.
# Any other block with a file name makes that file; all others are left alone. The chip file and the
# configuration data of the sample chip are there from the start. Dates and the build number count for nothing.
set -u
bin=$(cd "$1" && pwd) && home=$(cd "$(dirname "$0")/.." && pwd) || exit 1
shift
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT
export PATH="$bin:$PATH" LC_ALL=C TZ=UTC
unset MAKEFLAGS MAKELEVEL MFLAGS   # the manual's reader isn't run by another make
failed=0 programs=0 commands=0

# The blocks of a chapter, each in a file block.N, and a line for each: N, kind, name or -, line.
split() {
    awk -v to="$1" '
        /^```/ && !inside { inside = 1; n++; kind = substr($1, 4); printf "" >(to "/block." n)
                            print n, (kind == "" ? "-" : kind), (NF > 1 ? $2 : "-"), NR; next }
        /^```/            { inside = 0; close(to "/block." n); next }
        inside            { print >(to "/block." n) }' "$2"
}

# A console block as a script that prints the commands too. A command finds the status of the one before in $?.
script() {
    awk '/^\$ / { print "cat <<\"=====\"\n" $0 "\n====="; print "(exit ${status-0})\n" substr($0, 3) "\nstatus=$?" }' "$1"
}

settle() {
    sed -e 's/[A-Z][a-z][a-z] [A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]\{8\} [0-9]\{4\}/Sat Jan  2 03:04:05 2027/' \
        -e 's/build [0-9]\{14\}/build 20270102030405/' "$1" >"$1.settled"
}

# Whether the lines of the second file are those of the first, with its "..." filled in.
matches() {
    awk 'NR == FNR { want[++n] = $0; next }
         { have[++m] = $0 }
         END {
             p = 1
             for (i = 1; i <= n; i++) {
                 if (want[i] == "...") { skip = 1; continue }
                 while (skip && p <= m && have[p] != want[i]) p++
                 if (p > m || have[p++] != want[i]) exit 1
                 skip = 0
             }
             exit !(skip || p > m)
         }' "$1" "$2"
}

complain() {
    printf '%s\n' "$1"
    failed=1
}

for chapter in "$@"; do
    dir=$work/$(basename "$chapter") && parts=$work/parts && rm -rf "$parts" && mkdir "$dir" "$parts" || exit 1
    cp "$home"/dat/cfgdata/zel8k10.cfgdata "$home"/dat/ini/zel8k10.ini "$dir"
    split "$parts" "$chapter" >"$parts/list"
    while read -r n kind name line; do
        block=$parts/block.$n
        [ "$kind" != asm ] || [ "$name" != - ] || name=example.as
        [ "$name" = - ] || cp "$block" "$dir/$name"
        case $kind in
        asm)
            options=$(sed -n '1s/^; options: //p' "$block")
            # shellcheck disable=SC2086
            (cd "$dir" && aszel8 -mcpu=ZEL8K10 $options -Oexample.obj "$name") >"$parts/out" 2>&1 </dev/null &&
                [ ! -s "$parts/out" ] || complain "$chapter:$line: $(cat "$parts/out")"
            programs=$((programs + 1))
            ;;
        console)
            script "$block" >"$parts/script"
            (cd "$dir" && sh "$parts/script") >"$parts/out" 2>&1 </dev/null
            settle "$block" && settle "$parts/out"
            matches "$block.settled" "$parts/out.settled" ||
                complain "$chapter:$line: $(diff "$block.settled" "$parts/out.settled")"
            commands=$((commands + 1))
            ;;
        esac
    done <"$parts/list"
done
[ $((programs + commands)) -gt 0 ] || complain "no blocks found"
[ $failed = 0 ] && echo "$programs programs and $commands console blocks are as the manual has them"
exit $failed
