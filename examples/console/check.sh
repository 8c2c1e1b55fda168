#!/bin/sh
# check.sh BIN CHIP FOLDER: builds the product plainly and with -O, runs its tests, and compares both sessions.
set -eu
bin=$(cd "$1" && pwd) chip=$2
rm -rf "$3" && mkdir -p "$3"
out=$(cd "$3" && pwd)
cd "$(dirname "$0")"
for options in "" -O; do
    make -s CHIP="$chip" OPT="$options" BIN="$bin" OUT="$out/made$options" all check coverage >"$out/log$options" 2>&1 ||
        { cat "$out/log$options"; exit 1; }
    grep -e warning -e error "$out/log$options" && exit 1
done
cmp "$out/made/session.out" "$out/made-O/session.out"
