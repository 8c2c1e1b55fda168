#!/bin/sh
# Installs the Debian packages that building and testing need and this machine lacks. Says nothing when none is missing.
set -eu

missing=
need() {   # package, then a command or a file that shows that it is there
    command -v "$2" >/dev/null 2>&1 || [ -e "$2" ] || missing="$missing $1"
}
need g++ g++
need cpp cpp
need clang clang++
need libclang-rt-14-dev /usr/lib/llvm-14/lib/clang
need cmake cmake
need ninja-build ninja
need pkg-config pkg-config
need libminizip-dev /usr/include/minizip/zip.h
need nlohmann-json3-dev /usr/include/nlohmann/json.hpp
need libedit-dev /usr/include/editline/readline.h
need unzip unzip
need clang-format clang-format
need clang-tidy clang-tidy
need meson meson
need cmark-gfm cmark-gfm
need valgrind valgrind
need python3-jsonschema /usr/lib/python3/dist-packages/jsonschema
need libgtest-dev /usr/include/gtest/gtest.h

[ -n "$missing" ] || exit 0
command -v apt-get >/dev/null 2>&1 || { echo "please install:$missing" >&2; exit 1; }
echo "installing:$missing"
sudo=
[ "$(id -u)" = 0 ] || sudo=sudo
$sudo apt-get update -qq
# shellcheck disable=SC2086
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing
