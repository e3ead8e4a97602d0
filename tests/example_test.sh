#!/bin/sh
# An example prints what is on record, up to the first line with timings ("Row reduction ...").
# example_test.sh EXPECTED COMMAND...
set -eu
expected=$1
shift
output=$("$@")
echo "$output" | sed '/^Row reduction/,$d' | diff "$expected" -
