#!/bin/bash
# The program's options, the man page, the manual and the completion agree: every long option of the program's table is told in
# all three, and what the completion offers is taken by the program.
#
#     options.sh BIN SOURCES
set -u
bin=$(cd "$1" && pwd) && top=$(cd "$2" && pwd) || exit 1
for tool in aszel8 zel8 zellink zelobj zelrun zelsim; do
    [ -x "$bin/$tool" ] || { echo "no $tool in $bin" && exit 1; }
done
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT && cd "$work" || exit 1
PATH=$bin:$PATH
source "$top/completions/aszel8.bash"
failed=0

complain() {
    echo "$1"
    failed=1
}

# Completes the last word of a line; the whole words that come out, one a line.
offers() {
    COMP_LINE="aszel8 $1" COMP_POINT=$((${#1} + 7)) COMP_WORDBREAKS=" " COMPREPLY=()
    _aszel8 aszel8 2>/dev/null
    printf '%s\n' "${COMPREPLY[@]}"
}

words=$(sed -n '/long_rows\[\] = {/,/^}/s/^    {"\([a-z-]*=*\)",.*/\1/p' "$top/src/cmdline.cpp")
[ "$(wc -w <<<"$words")" -ge 14 ] || complain "no table of long options found"
for word in $words; do
    word=${word/#errata/errata=}
    grep -q "^| .*\`--$word" "$top/docs/manual/command-line.md" || complain "manual: no --$word"
    tr -d '\\' <"$top/docs/aszel8.1" | grep -q -- "--$word" || complain "man page: no --$word"
    offers -- | grep -qx -- "--$word" || complain "completion: no --$word"
done

# The same for the tools: table, tool, chapter.
while read -r table tool chapter; do
    words=$(sed -n '/^} rows\[\] = {/,/^}/s/^    {"\(-[a-zA-Z0#,-]*=*[a-z]*\)",.*/\1/p' "$top/tools/$tool/$table.cpp")
    [ "$(wc -w <<<"$words")" -ge 7 ] || complain "no table of options of $tool found"
    for word in $words; do
        grep -q -- "^| .*\`$word" "$top/docs/manual/$chapter.md" || complain "manual: no $word of $tool"
        tr -d '\\' <"$top/docs/$tool.1" | grep -q -- "$word" || complain "man page: no $word of $tool"
        grep -q -- "$word" "$top/completions/$tool.bash" || complain "completion: no $word of $tool"
        "$tool" --help | grep -q -- "  .*$word" || complain "help: no $word of $tool"
    done
done <<<"options zellink linking
main zelobj products
options zel8 driver
script zelsim simulating"

printf '\tnop\n' >t.as
for chip in $(offers -mcpu=z); do
    aszel8 "$chip" t.as || complain "completion: $chip"
done
[ "$(offers -mcpu=z | wc -l)" = 4 ] || complain "completion: not the four chips"
for option in $(offers -- | grep -v =) $(offers --cmode=) $(offers --opt=) $(offers --qvdebug= | grep -v 'out:\|num:\|debug:$'); do
    rm -f qvk_package.zip
    aszel8 -mcpu=ZEL8K10 "$option" t.as >out 2>&1 || complain "completion: $option: $(cat out)"
    [[ $option = --ver || $option = --help || $option = --keywords ]] || [ ! -s out ] || complain "completion: $option: $(cat out)"
done
[ "$(touch b.asm c.c; mkdir d; offers '' | sort | tr '\n' ' ')" = "b.asm d/ t.as " ] || complain "completion: sources"
[ "$(touch my.ini; offers -Cm)" = -Cmy.ini ] || complain "completion: -Cfile"
[ "$(offers --opt=debug,sp | tr '\n' ' ')" = "--opt=debug,space --opt=debug,speed " ] || complain "completion: lists"
# Fish and zsh take the options out of the help.
if command -v fish >/dev/null; then
    got=$(fish -c "source $top/completions/zel8.fish; complete -C 'zellink --m'; complete -C 'zelrun --st'; complete -C 'zel8 -mcpu='
        complete -C 'zel8 hea'; complete -C 'zel8 header ZEL8K1'" |
        tr '\n\t' '  ')
    [ "$got" = "--map= tell what lies where --steps end after so many instructions, else 2000000 \
-mcpu=ZEL8K10 -mcpu=ZEL8K20 -mcpu=ZEL8K30 -mcpu=ZEL8K40 header the include file of a chip ZEL8K10 " ] || complain "fish: $got"
fi
exit $failed
