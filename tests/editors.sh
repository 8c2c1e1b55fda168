#!/bin/sh
# The editors' files know every word of the instruction table and no other, and colour what they should, where the editor is there.
#
#     editors.sh SOURCES
set -u
top=$(cd "$1" && pwd) failed=0
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT
complain() {
    echo "$1"
    failed=1
}

awk '/ op_rows\[\] = \{/, /^\};/' "$top/src/code/oprows.h" | grep -o '\(plain\|instr\|word\)("[a-z_0-9][a-z_0-9]*"' | cut -d'"' -f2 |
    sort -u >"$work/table"
sed -n 's/^syn keyword zel8[A-SU-Z][a-z]* //p' "$top/editors/vim/syntax/zel8.vim" | tr ' ' '\n' | sort -u >"$work/vim"
grep -o '(?:[a-z_0-9|]*)(?!' "$top/editors/vscode/syntaxes/zel8.tmLanguage.json" | tr -d '(?:)!' | tr '|' '\n' | sort -u >"$work/vscode"
[ "$(wc -l <"$work/table")" -gt 150 ] || complain "no instruction table found"
for editor in vim vscode; do
    diff "$work/table" "$work/$editor" >"$work/diff" || complain "$editor, < missing, > too many: $(grep '^[<>]' "$work/diff" | tr '\n' ' ')"
done

if command -v vscode-tmgrammar-test >/dev/null; then
    (cd "$top/editors/vscode" && vscode-tmgrammar-test -g syntaxes/zel8.tmLanguage.json tests/example.as) >"$work/out" 2>&1 ||
        complain "$(cat "$work/out")"
fi
if command -v vim >/dev/null; then
    cat >"$work/check.vim" <<END
set nocompatible
set rtp^=$top/editors/vim
filetype on
syntax on
edit $top/editors/vscode/tests/example.as
let got = []
for [line, column] in [[2, 5], [2, 41], [6, 13], [6, 21], [10, 4], [10, 13], [10, 21], [14, 5], [14, 29]]
  call add(got, synIDattr(synID(line, column, 1), 'name'))
endfor
call writefile([&filetype . ' ' . join(got)], '$work/got')
qall!
END
    vim -N -u NONE -es -S "$work/check.vim" </dev/null >/dev/null 2>&1
    want="zel8 zel8Directive zel8Comment zel8Directive zel8Number zel8Label zel8Instruction zel8Operator zel8Label zel8Operand"
    [ "$(cat "$work/got")" = "$want" ] || complain "vim: $(cat "$work/got")"
fi
exit $failed
