#!/bin/sh
# Makes the kept corpus of a target anew: fuzz-corpus.sh TARGET [BYTES], behind fuzz.sh, whose finds it takes. What stays is
# the least set that reaches the same edges, the smallest input for each, and no long ones: it is run in every check.
set -eu

target=${1:?target}
longest=${2:-1000}    # bytes
cd "$(dirname "$0")/.."
found=${FUZZ_OUT:-/dev/shm/aszel8-fuzz}/$target/found
work=build/afl/corpus/$target       # not in /dev, which afl-showmap takes for devices
program=build/afl/bin/fuzz_$target

rm -rf "$work"
mkdir -p "$work/all" "$work/tmp" tests/corpus
export TMPDIR="$PWD/$work/tmp" AFL_ALLOW_TMP=1 AFL_QUIET=1
for queue in "$found"/*/queue; do
    name=$(basename "$(dirname "$queue")")
    find "$queue" -maxdepth 1 -name 'id*' -size -"$longest"c | while read -r file; do
        cp "$file" "$work/all/$name-$(basename "$file" | cut -c1-9)"
    done
done
# "Aborted" is no find: afl-cmin asks the program for its map's size, which the fuzzer's runtime answers by `exit` before the C
# library of a static program has registered what it then takes down. The size stays the default, which is enough.
afl-cmin -e -m none -t 1000 -i "$work/all" -o "$work/kept" -- "$program" >/dev/null
build/afl/bin/corpus pack "tests/corpus/$target" "$work"/kept/*
ls -l "tests/corpus/$target"
