#!/bin/sh
# Takes the conditions of tests/exec/mutations.txt away, one at a time, and tells for which of them nothing fails.
#
#     scripts/mutate.sh [PROGRAMS [WORD]]      at most so many programs of each kind, default 200; lines with WORD only
#
# Works in a copy of the tree, in a folder of its own that goes at the end. A mutant costs the compilation of one file and a
# link of aszel8 alone; then the cases of the optimiser are run, and programs of both kinds, few at a time, until one differs.
set -eu
cd "$(dirname "$0")/.."
list=$PWD/tests/exec/mutations.txt
programs=${1:-200} word=${2:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

git ls-files -z | xargs -0 tar -cf - | tar -xf - -C "$work"
launcher=$(command -v ccache || true)
export CCACHE_BASEDIR="$work" CCACHE_NOHASHDIR=1   # the folder has another name each time
cmake -S "$work" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O0 -w" \
    ${launcher:+"-DCMAKE_CXX_COMPILER_LAUNCHER=$launcher"} >"$work/log"
bin=$work/build/bin

build() { cmake --build "$work/build" -j 2 --target "$@" >"$work/log" 2>&1; }

# What fails, or nothing.
failure() {
    (cd "$work" && "$bin/runcases" --bin "$bin" tests/cases/optim) >"$work/log" 2>&1 || { echo 'a case'; return; }
    seed=1
    while [ $seed -le "$programs" ]; do
        for kind in hand compiled; do
            "$bin/exec_compare" --kind=$kind --reports 0 --seed $seed --count 20 >"$work/log" 2>&1 ||
                { echo "a program, $kind, from $seed"; return; }
        done
        seed=$((seed + 20))
    done
}

# Replaces $2 in file $1 with $3; fails unless it is there once.
replace() {
    TEXT=$2 NEW=$3 awk '
        BEGIN { text = ENVIRON["TEXT"]; new = ENVIRON["NEW"] }
        at = index($0, text) { n++; $0 = substr($0, 1, at - 1) new substr($0, at + length(text)) }
        { print }
        END { exit n != 1 }' "$1" >"$work/mutant"
}

build aszel8 exec_compare runcases zelobj zelrun || { tail -20 "$work/log"; exit 2; }
without=$(failure)
[ -z "$without" ] || { echo "fails without a mutation: $without"; tail -5 "$work/log"; exit 2; }

file='' mutants=0 survivors=0 gone=0
while IFS= read -r line; do
    case $line in
    '#'* | '') continue ;;
    '= '*) file=${line#= }; continue ;;
    esac
    case "$file $line" in *"$word"*) ;; *) continue ;; esac
    if ! replace "$file" "${line%% => *}" "${line#* => }"; then
        echo "NOT THERE  $file: ${line%% => *}"
        gone=$((gone + 1))
        continue
    fi
    cp "$work/mutant" "$work/$file"
    mutants=$((mutants + 1))
    if ! build aszel8; then
        echo "NO BUILD   $file: $line"
    elif found=$(failure) && [ -n "$found" ]; then
        echo "fails      $file: $line  ($found)"
    else
        echo "SURVIVES   $file: $line"
        survivors=$((survivors + 1))
    fi
    cp "$file" "$work/$file"
done <"$list"
echo "$mutants mutants, $survivors survive, $gone not there"
[ $survivors -eq 0 ] && [ $gone -eq 0 ]
