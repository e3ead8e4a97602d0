#!/bin/sh
# An example prints what is on record, up to the first line with timings ("Row reduction ...").
# example_test.sh CONSOLE NAME: runs NAME.modla and compares with NAME.expected.
set -eu
output=$("$1" "$2.modla")
echo "$output" | sed '/^Row reduction/,$d' | diff "$2.expected" -
