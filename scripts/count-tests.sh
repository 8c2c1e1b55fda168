#!/bin/sh
# How many lines the tests have, and the code; blank ones and the corpus of fuzzing don't count. Fails if the tests have more
# than a third.
cd "$(dirname "$0")/.." || exit 2
lines() { find "$@" -type f ! -path 'tests/corpus/*' -exec cat {} + | grep -c '[^[:space:]]'; }
tests=$(lines tests) code=$(lines src tools)
echo "$tests lines of tests to $code of code: $((tests * 1000 / code / 10)).$((tests * 1000 / code % 10)) %"
[ $((tests * 3)) -le "$code" ]
