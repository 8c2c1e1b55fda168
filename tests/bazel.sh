#!/bin/sh
# The rules for Bazel build an example in the sandbox and run its test, a changed include assembles it anew, and another folder
# takes everything from the cache: so the actions tell all that they read, and what they write depends on nothing else.
#
#     bazel.sh BIN SOURCES
set -eu
bin=$(cd "$1" && pwd) top=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'chmod -R u+w "$work"; rm -rf "$work"' EXIT

mkdir -p "$work/a/zel8" "$work/cover"
cp "$top"/share/bazel/* "$work/a/zel8"
cd "$work/a"
cp "$top"/examples/blink.as "$top"/examples/blink.test .
"$bin/zel8" header ZEL8K10 -o zel8k10.inc   # goes ahead of that of the installation
cat >WORKSPACE <<'END'
load("//zel8:zel8.bzl", "zel8_repository")
zel8_repository(name = "zel8")
END
cat >BUILD <<'END'
load("//zel8:zel8.bzl", "zel8_binary", "zel8_object", "zel8_test")

zel8_object(name = "module", srcs = ["blink.as"], hdrs = ["zel8k10.inc"], chip = "ZEL8K10", copts = ["-Os"])
zel8_binary(name = "blink", deps = ["module"], chip = "ZEL8K10", linkopts = ["-Wl,--check"])
zel8_test(name = "blinks", size = "small", program = "blink", script = "blink.test", chip = "ZEL8K10")
END
# Bazel looks for its coverage tools, which nothing here uses, on the network.
touch "$work/cover/WORKSPACE"
echo 'filegroup(name = "coverage_report_generator", visibility = ["//visibility:public"])' >"$work/cover/BUILD"

run() {
    PATH=$bin:$PATH bazel --batch --output_user_root="$work/out" test //... --override_repository=remote_coverage_tools="$work/cover" \
        --disk_cache="$work/cache" --spawn_strategy=sandboxed >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
}
expect() {   # what the last run has to say
    grep -q "$1" "$work/log" || { echo "no \"$1\" in:"; cat "$work/log"; exit 1; }
}

run && expect '[1-9] linux-sandbox' && expect "blinks .* PASSED"
sed -i 's/^LATA .*/LATA equ 0xF69/' zel8k10.inc
if (run >/dev/null); then echo "the test doesn't see the include"; exit 1; fi
"$bin/zel8" header ZEL8K10 -o zel8k10.inc
rm bazel-*
cp -r "$work/a" "$work/b" && cd "$work/b"
run && expect "blinks .* PASSED" && expect "[1-9] [a-z]* cache hit"
if grep -q "processes: .* linux-sandbox" "$work/log"; then echo "not all came from the cache"; exit 1; fi
