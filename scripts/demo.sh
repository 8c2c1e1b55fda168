#!/bin/sh
# Assembles every example, shows the object file of one, links it and runs it in the simulator.
set -eu
bin=$(cd "$1" && pwd)
out=$(cd "$(dirname "$0")/.." && pwd)/build/examples
mkdir -p "$out"
cd "$(dirname "$0")/../examples"
for source in *.as; do
    "$bin/aszel8" -mcpu=ZEL8K10 --cfgdata=../dat/cfgdata/zel8k10.cfgdata "-O$out/${source%.as}.obj" "$source"
    "$bin/zelobj" --verify "$out/${source%.as}.obj" >/dev/null
    echo "assembled examples/$source"
done
echo
echo "The object file of examples/blink.as, as zelobj prints it:"
echo
"$bin/zelobj" "$out/blink.obj"

echo
echo "Linked, checked as a whole, and run in the simulator against examples/blink.test:"
echo
cd "$out"
"$bin/zellink" --check -o blink.hex blink.obj
"$bin/zelsim" --script=../../examples/blink.test blink.obj

echo
echo "A product of eight modules, examples/console: linked, checked, its tests run, and a session at its serial port:"
echo
cd ../../examples/console
make -s BIN="$bin" OUT="$out/console" all check coverage
head -5 "$out/console/session.out"
