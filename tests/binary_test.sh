#!/bin/sh
# The shared object: what it exports and how it is linked.   binary_test.sh LIBRARY HEADER
set -eu
library=$1
header=$2
failed=0
fail() { echo "FAILED: $*"; failed=1; }

exported=$(nm -D --defined-only "$library" | awk '{ sub(/@.*/, "", $3); print $3 }' | sort)
declared=$(grep -o 'MODLA_API [^;]*' "$header" | grep -oE '[A-Za-z_0-9]+\(' | tr -d '(' | sort -u)
[ -n "$exported" ] || fail "nothing is exported"
for name in $exported; do
    grep -qE "(^|[^A-Za-z_0-9])$name\(" "$header" || fail "$name is exported but not declared"
done
dynamic=$(readelf -d "$library")
segments=$(readelf -lW "$library")
echo "$dynamic" | grep -q 'SONAME.*\[libmodla.so.1\]' || fail "the SONAME is not libmodla.so.1"
echo "$dynamic" | grep -q TEXTREL && fail "there are text relocations"
echo "$dynamic" | grep -q BIND_NOW || fail "symbols are not bound at load time"
echo "$segments" | grep -q 'GNU_STACK.* RW ' || fail "the stack is executable"
echo "$segments" | grep -q GNU_RELRO || fail "relocations are not read-only"
readelf -h "$library" | grep -q 'Class:.*ELF32' || fail "this is no 32-bit library"
[ -n "$declared" ] || fail "the header declares nothing"
[ $failed = 0 ] && echo "$(echo "$exported" | wc -l) exported names, all declared"
exit $failed
