#!/bin/sh
# Installs a build into a scratch directory and assembles from another working directory with it, so that an installation is
# known to find its data.
set -eu

build=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/zel8" >/dev/null
version=$(cd "$scratch/zel8" && echo */bin) && version=${version%/bin}
printf '\tpsect\ttext,class=CODE,reloc=2,delta=1\nstart:\n\tmovlw\t5\n\tgoto\tstart\n' >"$scratch/t.as"
cd "$scratch"
"$scratch/zel8/$version/bin/aszel8" -mcpu=ZEL8K10 t.as
"$scratch/zel8/$version/bin/zelobj" --verify t.obj
"$scratch/zel8/$version/bin/zelobj" t.obj | grep -q 'movlw' || { echo "installation: no code in t.obj" >&2; exit 1; }
"$scratch/zel8/$version/bin/zellink" --quiet -o t.hex t.obj
grep -q '^:0600000005' t.hex || { echo "installation: no code in t.hex" >&2; exit 1; }
"$scratch/zel8/$version/bin/zelrun" --steps 100 t.as >/dev/null
"$scratch/zel8/$version/bin/zelsim" --quiet --start=0 --until=2 t.obj
"$scratch/zel8/$version/bin/zel8" -mcpu=ZEL8K10 -c -o u.obj t.as
cmp t.obj u.obj
for tool in aszel8 zellink zelobj zelsim zel8; do
    for file in man/man1/$tool.1 bash-completion/completions/$tool; do
        [ -s "$scratch/zel8/share/$file" ] || { echo "installation: no share/$file" >&2; exit 1; }
    done
done
echo "installation in $version/bin works"
