#!/bin/sh
# Fuzzes with AFL++: fuzz.sh TARGET SECONDS [NAME [CHIP]]. TARGET is source, chip, cfgdata, zelobj, zellink or zelsim. Several
# that run at the same time need a NAME each, `main` if none is given, and share what they find. State and finds are kept in
# the folder $FUZZ_OUT/TARGET, and a later call goes on from there.
set -eu

target=${1:?target}
seconds=${2:?seconds}
name=${3:-main}
[ $# -lt 4 ] || export FUZZ_CHIP="$4"
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
state=${FUZZ_OUT:-/dev/shm/aszel8-fuzz}/$target

if ! command -v afl-clang-fast++ >/dev/null; then
    sudo=
    [ "$(id -u)" = 0 ] || sudo=sudo
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends afl++
fi
export AFL_QUIET=1
cmake --preset afl >/dev/null
cmake --build --preset afl

# A seed is a file of the corpus, or a file as it comes in practice. The dictionary is made of the program's own tables.
mkdir -p "$state/seeds/$name" "$state/tmp"
if [ -e "tests/corpus/$target" ]; then
    build/afl/bin/corpus unpack "tests/corpus/$target" "$state/seeds/$name"
fi
case $target in
source) cp examples/*.as "$state/seeds/$name"; tables=src/code/ops.cpp ;;
chip) cp dat/ini/* "$state/seeds/$name"; tables=src/chip/chipinfo.cpp ;;
cfgdata) cp dat/cfgdata/* "$state/seeds/$name"; tables=src/chip/cfgdata.cpp ;;
*) tables=/dev/null ;;
esac
sed 's,//.*,,' $tables | grep -oE '"[A-Za-z0-9_]{2,}"' | sort -u >"$state/words.$name.dict" || true

export AFL_SKIP_CPUFREQ=1 AFL_I_DONT_CARE_ABOUT_MISSING_CRASHES=1 AFL_NO_UI=1 AFL_NO_AFFINITY=1 AFL_AUTORESUME=1
export AFL_FAST_CAL=1 AFL_HANG_TMOUT=1000 AFL_IGNORE_SEED_PROBLEMS=1 AFL_FORKSRV_INIT_TMOUT=10000 TMPDIR="$state/tmp"
words=
[ ! -s "$state/words.$name.dict" ] || words="-x $state/words.$name.dict"
cp build/afl/bin/fuzz_"$target" "build/afl/bin/fuzz_$target.$name"   # a later build doesn't change what runs
# shellcheck disable=SC2086
exec nice -n 10 afl-fuzz -V "$seconds" -t 250 -m none -G 4000 $words -i "$state/seeds/$name" -o "$state/found" \
    -S "$name" -- "build/afl/bin/fuzz_$target.$name"
