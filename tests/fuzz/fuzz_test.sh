#!/bin/sh
# Runs a fuzzer over recorded inputs and what it makes of them; what it finds is kept for the next time.
# fuzz_test.sh FUZZER INPUTS SECONDS LONGEST-INPUT
set -eu
name=$(basename "$2")
work=$PWD/$name
mkdir -p "$work/found"
# The collector searches the stack, which must not be moved to the heap.  Leaks are looked for at the end only: whether
# the collector runs makes allocations of single runs differ.
export ASAN_OPTIONS=detect_stack_use_after_return=0:allocator_may_return_null=1
fail() {
    grep -a -v '^#' "$work/log" | tail -n 60
    echo "FAILED: the input is in $work; see $work/log"
    exit 1
}
# What failed the last time comes first; what was found is a help only while it is quickly read.
[ "$(find "$work/found" -type f | wc -l)" -lt 3000 ] || rm -f "$work"/found/*
common="-timeout=20 -rss_limit_mb=2000 -detect_leaks=0 -artifact_prefix=$work/"
for input in "$work"/crash-* "$work"/timeout-* "$work"/oom-*; do
    [ ! -f "$input" ] || "$1" $common "$input" >"$work/log" 2>&1 || fail
done
"$1" $common "$2"/* >"$work/log" 2>&1 || fail  # whole, however long
recorded=$(find "$2" "$work/found" -type f | wc -l)
"$1" $common "$work/found" "$2" -max_total_time="$3" -max_len="$4" -dict="$2.dict" -print_final_stats=1 \
    >"$work/log" 2>&1 || fail
runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log")
[ "$runs" -gt $((recorded + 100)) ] || { echo "FAILED: only $runs executions"; exit 1; }
echo "fuzz_$name: $runs executions in $3 s, from $recorded recorded inputs" | tee "$work/summary"
