#!/bin/sh
# Draws the manual's picture of messages on a terminal, from what the assembler says.
#
#     message-picture.sh BIN >docs/manual/rich.svg
set -eu
bin=$(cd "$1" && pwd)
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT && cd "$work"
cat >rich.as <<'END'
put	macro	value
	movlw	value
	endm
	psect	text,class=CODE,reloc=2
	put	300
	mvowf	5,c
	call	nowhere
END
{ "$bin/aszel8" -mcpu=ZEL8K10 --warn=truncation --diagnostics=rich --color=always rich.as 2>&1 || :; } | awk '
function escaped(s) { gsub(/&/, "\\&amp;", s); gsub(/</, "\\&lt;", s); gsub(/>/, "\\&gt;", s); gsub(/ /, "\\&#160;", s); return s }
# Tabs lead to the next of eight columns, and colours take none.
function untabbed(s,    out, i, c) {
    for (i = 1; i <= length(s); i++) {
        c = substr(s, i, 1)
        if (c == "\033") { for (; c != "m"; c = substr(s, ++i, 1)) out = out c; out = out c }
        else if (c == "\t") do { out = out " "; column++ } while (column % 8)
        else { out = out c; column++ }
    }
    if (column > widest) widest = column
    return out
}
BEGIN { fill["1;31"] = "#e5534b"; fill["1;35"] = "#c77dbb"; fill["1;36"] = "#3fa7b5"; fill["0"] = "#d0d7de" }
{
    column = 0
    n = split(untabbed($0), part, /\033\[/)
    text = "<tspan>" escaped(part[1])
    for (i = 2; i <= n; i++) {
        m = index(part[i], "m"); code = substr(part[i], 1, m - 1)
        text = text "</tspan><tspan fill=\"" fill[code] "\">" escaped(substr(part[i], m + 1))
    }
    line[NR] = text "</tspan>"
}
END {
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\">\n", widest * 8.43 + 28, NR * 19 + 22
    print "<rect width=\"100%\" height=\"100%\" rx=\"6\" fill=\"#1f2428\"/>"
    print "<g font-family=\"DejaVu Sans Mono, Menlo, Consolas, monospace\" font-size=\"14\" fill=\"#d0d7de\">"
    for (i = 1; i <= NR; i++) printf "<text x=\"14\" y=\"%d\">%s</text>\n", i * 19 + 6, line[i]
    print "</g>\n</svg>"
}'
