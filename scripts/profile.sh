#!/bin/sh
# Builds build/profiled: as build/release, but compiled by a profile of aszel8 at work on the programs of the measurement.
#
#     scripts/profile.sh [JOBS]
set -eu
cd "$(dirname "$0")/.."
jobs=${1:-2} build=build/profiled
export CCACHE_DISABLE=1   # for those who have it in PATH: the compiler would see other names of files than the profile has
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --preset profiled -DASZEL8_PROFILE=GENERATE -DASZEL8_TESTS=OFF >/dev/null
find $build -name '*.gcda' -delete
cmake --build --preset profiled -j "$jobs" --target aszel8 bench_gen

train() {   # shape, lines, options
    shape=$1 lines=$2
    shift 2
    $build/bin/bench_gen "$shape" "$lines" >"$work/in.as"
    $build/bin/aszel8 -mcpu=ZEL8K40 "$@" -O"$work/out.obj" "$work/in.as"
}
train blocks 100000
train blocks 50000 -L"$work/out.lst"
train macros 100000
train data 20000
train compiled 50000 -O
train gotos 20000 -O --opt=space
train compiled 20000 -O -A"$work/out.opt"
printf '\tnop\n' >"$work/in.as"
for run in 1 2 3 4 5 6 7 8 9 10; do
    $build/bin/aszel8 -mcpu=ZEL8K40 -O"$work/out.obj" "$work/in.as"
done

cmake --preset profiled -DASZEL8_PROFILE=USE >/dev/null
cmake --build --preset profiled -j "$jobs"
