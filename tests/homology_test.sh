#!/bin/sh
# The homology table is the recorded one.   homology_test.sh CONSOLE EXAMPLES
set -eu
output=$("$1" "$2/homology.modla")
echo "$output" | sed '/^Row reduction/,$d' | diff "$2/homology.expected" -
echo "$output" | grep -qE '^Row reduction'
