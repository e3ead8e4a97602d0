#!/bin/sh
# An exact determinant, rank or solution, its primes shared out by a Slurm job array.
#   slurm.sh SHARDS "VERB FILE..." [OPTION OF sbatch]...
# in a directory that all nodes see.  Prints the number of the job that combines the shards into the file result.  When
# it has failed, run this again: the shards go on with the primes that they lack.
set -eu
shards=$1
work=$2
shift 2
array=$(sbatch --parsable --requeue --array="1-$shards" --output=shard.%a.log "$@" \
    --wrap="${MODLA:-modla} $work --shard \$SLURM_ARRAY_TASK_ID/$shards -o shard.\$SLURM_ARRAY_TASK_ID.jsonl")
sbatch --parsable --dependency="afterany:$array" --output=combine.log "$@" \
    --wrap="${MODLA:-modla} combine shard.*.jsonl -o result"
