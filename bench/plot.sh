#!/bin/sh
# Draws what bench_run --table FILE has written, time and memory over size:
#
#     bench/plot.sh FILE DIRECTORY           writes DIRECTORY/time.svg and DIRECTORY/memory.svg
#
# Both axes are logarithmic, so what grows in proportion is a straight line of slope 1. Needs gnuplot.
set -eu
[ $# = 2 ] || { sed -n '2,6s/^# \{0,1\}//p' "$0" >&2; exit 2; }
command -v gnuplot >/dev/null || { echo "plot.sh: gnuplot isn't there: apt-get install gnuplot-nox" >&2; exit 1; }

draw() {   # name, column, title
    gnuplot - <<EOF
set terminal svg size 720,440 enhanced font "sans-serif,13" background "white"
set output "$2/$1.svg"
stats "$4" using 0 nooutput
set logscale x 2
set logscale y 10
set format x "%.0f"
set format y "%g"
set xlabel "lines"
set ylabel "$3"
set key outside right top
set grid
plot for [i=0:STATS_blocks-2] "$4" index i using 1:$5 with linespoints linewidth 2 pointtype 7 pointsize 0.6 title columnheader(1)
EOF
}

draw time "$2" "seconds, the best run" "$1" 2
draw memory "$2" "peak memory, MB" "$1" 3
