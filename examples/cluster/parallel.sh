#!/bin/sh
# An exact determinant, rank or solution, its primes shared out by GNU parallel.
#   parallel.sh SHARDS "VERB FILE..." [OPTION OF parallel]...
# After an interruption, or when a shard has failed, run it again in the same directory: finished shards are left out,
# the others go on with the primes that they lack.  MODLA names the program where it is not on the path.
set -eu
shards=$1
work=$2
shift 2
parallel --joblog shards.log --resume-failed "$@" \
    "${MODLA:-modla} $work --shard {}/$shards -o shard.{}.jsonl" ::: $(seq "$shards")
"${MODLA:-modla}" combine shard.*.jsonl
