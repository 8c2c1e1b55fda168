#!/bin/sh
# Has clang-tidy look for faults in the sources, by the checks of .clang-tidy: check-tidy.sh [FILE...], without names all of
# src/ and tools/. The commands are those of build/dev. Versions know different checks, so that only the one
# below is asked.
set -eu
cd "$(dirname "$0")/.."
version=14
tidy=$(command -v clang-tidy-$version || command -v clang-tidy || true)
case $([ -z "$tidy" ] || $tidy --version) in
*"version $version."*) ;;
*) echo "faults not looked for: no clang-tidy $version"; exit 0 ;;
esac
[ -e build/dev/compile_commands.json ] || cmake --preset dev >/dev/null
[ $# -gt 0 ] || set -- $(git ls-files 'src/*.cpp' 'tools/*.cpp')
# The largest first, so that no process is left with one at the end.
ls -S "$@" | xargs -P "$(nproc)" -n 1 "$tidy" -p build/dev --quiet 2>/dev/null
