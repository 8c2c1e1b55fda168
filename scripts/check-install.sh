#!/bin/sh
# Installs a build into a scratch directory and works there with it from another directory, so that an installation is known to
# find its data, and takes it away again.
set -eu

build=$(cd "$1" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/usr" >/dev/null
printf '\tpsect\ttext,class=CODE,reloc=2,delta=1\nstart:\n\tmovlw\t5\n\tgoto\tstart\n' >"$scratch/t.as"
cd "$scratch"
PATH=$scratch/usr/bin:$PATH
aszel8 -mcpu=ZEL8K10 t.as
zelobj --verify t.obj
zelobj t.obj | grep -q 'movlw' || { echo "installation: no code in t.obj" >&2; exit 1; }
zellink --quiet -o t.hex t.obj
grep -q '^:0600000005' t.hex || { echo "installation: no code in t.hex" >&2; exit 1; }
zelrun --steps 100 t.as >/dev/null
zelsim --quiet --start=0 --until=2 t.obj
zel8 -mcpu=ZEL8K10 -c -o u.obj t.as
cmp t.obj u.obj
mkdir project && cat >project/CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.20)
project(t LANGUAGES NONE)
find_package(zel8 REQUIRED)
set(ZEL8_CHIP ZEL8K10)
enable_language(ZEL8)
add_executable(t ../t.as)
END
cmake -S project -B project/build >log && cmake --build project/build >>log || { cat log >&2; exit 1; }
cmp t.hex project/build/t.hex
for tool in usr/bin/*; do
    for file in man/man1/${tool##*/}.1 bash-completion/completions/${tool##*/}; do
        [ -s "usr/share/$file" ] || { echo "installation: no share/$file" >&2; exit 1; }
    done
done
DESTDIR='' cmake --build "$build" --target uninstall >log
[ -z "$(find usr ! -type d)" ] || { find usr ! -type d >&2; exit 1; }
echo "an installation works, and goes"
