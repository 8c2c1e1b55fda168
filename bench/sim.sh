#!/bin/sh
# Millions of instructions a second, of zelsim and of simavr on the same two loops; the best of five runs each.
#
#     bench/sim.sh BIN        needs simavr and avr-gcc (Debian: simavr gcc-avr)
set -eu
bin=$(cd "$1" && pwd) && here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT && cd "$work"
cp "$here/loops.as" . && "$bin/aszel8" -mcpu=ZEL8K10 loops.as

# Least user time of a command, in seconds.
best() {
    for _ in 1 2 3 4 5; do
        bash -c 'TIMEFORMAT=%U; time "$@" >/dev/null 2>&1' - "$@" 2>&1
    done | sort -n | head -n 1
}

# Instructions of a loop and of its rounds: both machines take the same but for a few.
report() {
    awk -v name="$1" -v steps="$2" -v ours="$3" -v theirs="$4" \
        'BEGIN { printf "%-6s zelsim %6.1f   simavr %6.1f\n", name, steps / ours / 1e6, steps / theirs / 1e6 }'
}
for loop in count mix; do
    steps=$("$bin/zelsim" --start=$loop loops.obj 2>&1 | sed 's/.*: \([0-9]*\) steps.*/\1/')
    avr-gcc -mmcu=atmega328p -nostdlib $([ $loop = mix ] && echo -DMIX) -o $loop.elf "$here/loops.S"
    report $loop "$steps" "$(best "$bin/zelsim" --start=$loop loops.obj)" "$(best simavr -m atmega328p -f 16000000 $loop.elf)"
done
