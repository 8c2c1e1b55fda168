#!/bin/sh
# Checks the chapter of all messages: its headings are the catalogue's lines, and each section has an example that provokes its
# message, or a paragraph "No example: ..." that says why not. And the picture of messages shows what they look like now.
#
#     check-messages.sh BIN SOURCES
#
# A block "text" is a source, assembled for ZEL8K10 with what a first line "; options: ..." gives; a second word makes it a file
# for the examples behind it; the configuration data of the sample chips is there, too. Of a "console" block, what it shows
# counts: check-manual.sh has compared that with the program.
set -u
bin=$(cd "$1" && pwd) && top=$(cd "$2" && pwd) || exit 1
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT && cd "$work" || exit 1
chapter=$top/docs/manual/message-list.md
cp "$top"/dat/cfgdata/*.cfgdata .
failed=0 provoked=0

complain() {
    printf '%s\n' "$1"
    failed=1
}

sed -n 's/^### //p' "$chapter" >headings
grep -v '^#' "$top/dat/en_msgs.txt" | sed 's/ *$//' | diff - headings || complain "headings: not those of the catalogue"

# Each source in N.as, each console block in N.shown; "No example" in N.none.
awk '/^### / { number = $2 }
     /^No example: ./ { print >(number ".none") }
     /^```text/ { to = NF > 1 ? $2 : number ".as"; printf "" >to; next }
     /^```console/ { to = number ".shown"; next }
     /^```/ { if (to) close(to); to = ""; next }
     to { print >to }' "$chapter"
while read -r number kind text; do
    if [ -e "$number.as" ]; then
        options=$(sed -n '1s/^; options: //p' "$number.as")
        # shellcheck disable=SC2086
        "$bin/aszel8" -mcpu=ZEL8K10 --diagnostics=json $options "$number.as" >shown 2>&1 </dev/null
        grep -q "\"number\":$number," shown || complain "$number isn't provoked: $(cat shown)"
        provoked=$((provoked + 1))
    elif [ -e "$number.shown" ]; then
        grep -q "($number) " "$number.shown" || [ "$kind" = M ] || complain "$number isn't shown"
        provoked=$((provoked + 1))
    else
        [ -e "$number.none" ] || complain "$number has no example: $text"
    fi
    "$bin/aszel8" --explain="$number" | grep -qF "($number) $text" || complain "--explain=$number: other text"
done <headings
sh "$top/scripts/message-picture.sh" "$bin" | cmp - "$top/docs/manual/rich.svg" || complain "rich.svg isn't what message-picture.sh draws"
[ $failed = 0 ] && echo "$provoked messages are provoked, $(($(wc -l <headings) - provoked)) can't be"
exit $failed
