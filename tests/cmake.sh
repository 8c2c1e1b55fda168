#!/bin/sh
# The language ZEL8 of CMake, with Ninja and with Make: what a changed include or header makes necessary is done and no more, an
# error leaves nothing half done, options of build types and targets arrive, a launcher runs the compiler, tests run.
#
#     cmake.sh BIN
set -eu
bin=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PATH="$bin:$PATH"
unset MAKEFLAGS MAKELEVEL MFLAGS
cd "$work"
mkdir inc
echo 'value	equ	3' >inc/a.inc
echo '#define PORT LATA' >inc/b.h
cat >main.as <<'END'
	include	"a.inc"
	global	_out,_last
	psect	text,class=CODE,reloc=2,delta=1
_main:	movlw	value+MORE
	call	_out
	call	_last
	sleep
	end	_main
END
cat >out.S <<'END'
#include "b.h"
#ifdef __ZEL8K10__
	include	"zel8k10.inc"
#endif
	global	_out
	psect	text,class=CODE,reloc=2,delta=1
_out:	movwf	PORT,c
	return
END
printf '\tglobal\t_last\n\tpsect\ttext,class=CODE,reloc=2,delta=1\n_last:\treturn\n' >last.as
echo 'expect LATA 07 before 50 cycles' >app.test
printf '#!/bin/sh\necho "$@" >>%s/calls\nexec "$@"\n' "$work" >launch
chmod +x launch
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.20)
project(app LANGUAGES NONE)
find_package(zel8 REQUIRED)
enable_language(ZEL8)
add_library(parts STATIC out.S last.as)
add_executable(app main.as)
target_include_directories(app PRIVATE inc)
target_include_directories(parts PRIVATE inc)
target_compile_definitions(app PRIVATE MORE=4)
target_link_libraries(app parts)
zel8_chip(app ZEL8K10)
zel8_chip(parts ZEL8K10)
enable_testing()
zel8_add_test(NAME runs TARGET app SCRIPT app.test)
END
failed=0
build() {   # what it has to come to, how many compilations
    : >calls
    status=0
    cmake --build "$dir" >log 2>&1 || status=1
    [ $status = "$1" ] && [ "$(wc -l <calls)" = "$2" ] || {
        echo "$generator: status $status, not $1, or not $2 calls:"
        cat log calls
        failed=1
    }
}
for generator in Ninja 'Unix Makefiles'; do
    dir=build-${generator%% *}
    cmake -G "$generator" -B "$dir" -DCMAKE_BUILD_TYPE=MinSizeRel -DCMAKE_ZEL8_COMPILER_LAUNCHER="$work/launch" >log 2>&1 ||
        { cat log; exit 1; }
    build 0 3
    grep -q -- '-Os.* -c .*out.S' calls || { echo "$generator: no -Os"; failed=1; }
    (cd "$dir" && ctest) >log || { cat log; failed=1; }
    build 0 0
    touch inc/a.inc && build 0 1
    touch inc/b.h && build 0 1
    cp last.as kept && echo '	wrong' >>last.as
    rm "$dir"/CMakeFiles/parts.dir/last.as.obj
    build 1 1
    [ -z "$(find "$dir" -name 'last.as.obj*' ! -name '*.d')" ] || { echo "$generator: an error leaves an object"; failed=1; }
    mv kept last.as && build 0 1
done
exit $failed
