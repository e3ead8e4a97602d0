#!/bin/sh
# The recipes of examples/cluster against one process: with GNU parallel here and, where there is an sshd, over ssh; with
# a Slurm controller and a node of the test's own, if MODLA_SLURM_TEST is set.
# clusters_test.sh CONSOLE RECIPES; status 77: skipped
set -eu
console=$1
recipes=$2
directory=$(mktemp -d)
daemons=""
clean() {
    for daemon in $daemons; do kill "$(cat "$daemon")" 2>/dev/null || true; done
    rm -rf "$directory" 2>/dev/null || { sleep 2 && rm -rf "$directory"; }  # daemons write to the end
}
trap clean EXIT
cd "$directory"
fail() { echo "FAILED: $*"; exit 1; }
"$console" -e 'A := Mod(1021, Create(1021, 60, 60, random, integer), integer); for i to 60 do A[i, i] := -A[i, i] end
    WriteMatrix("A.mtx", A); WriteMatrix("B.sms", Create(1021, 60, 2, random, integer))'
"$console" det A.mtx >det
"$console" solve A.mtx B.sms >solution

if ! command -v parallel >/dev/null; then
    echo "GNU parallel is not installed: skipped"
    exit 77
fi
# One worker is killed in the middle of a line, for its file grows beyond a limit; run again, it goes on.
cat >modla <<END
#!/bin/sh
case "\$*" in
    *2/3*) if mkdir $directory/once 2>/dev/null; then ulimit -f 2; fi ;;
esac
exec $console "\$@"
END
chmod +x modla
mkdir local
cd local
MODLA=$directory/modla "$recipes/parallel.sh" 3 "det $directory/A.mtx" >out 2>&1 && fail "a killed worker was not noticed"
[ -n "$(tail -c 1 shard.2.jsonl | tr -d '\n')" ] || fail "the worker was not killed within a line"
"$console" combine shard.*.jsonl 2>missing && fail "a result with primes missing"
grep -q '^modla combine: primes 1[0-9, ]* of [0-9]* missing$' missing || fail "combine says: $(cat missing)"
cp shard.2.jsonl before
MODLA=$directory/modla "$recipes/parallel.sh" 3 "det $directory/A.mtx" >out 2>errors || fail "resumed: $(cat errors)"
cmp out ../det
[ "$(awk 'NR > 1' shards.log | wc -l)" = 4 ] || fail "finished shards ran again: $(cat shards.log)"
lines=$(($(wc -l <before)))
head -n "$lines" before | cmp - "$(head -n "$lines" shard.2.jsonl >kept; echo kept)"
echo "GNU parallel: a worker killed after $lines primes was resumed"
cd ..

# Over ssh, to an sshd on the loopback interface.
if command -v /usr/sbin/sshd >/dev/null && { [ "$(id -u)" != 0 ] || mkdir -p /run/sshd; }; then
    ssh-keygen -q -t ed25519 -N '' -f host_key
    ssh-keygen -q -t ed25519 -N '' -f key
    port=$((20000 + $$ % 10000))
    cat >sshd_config <<END
Port $port
ListenAddress 127.0.0.1
HostKey $directory/host_key
AuthorizedKeysFile $directory/key.pub
PidFile $directory/sshd.pid
StrictModes no
PermitRootLogin prohibit-password
END
    cat >ssh_config <<END
Host node
    HostName 127.0.0.1
    Port $port
    IdentityFile $directory/key
    UserKnownHostsFile /dev/null
    StrictHostKeyChecking no
    LogLevel ERROR
END
    /usr/sbin/sshd -f sshd_config
    daemons="$daemons $directory/sshd.pid"
    mkdir remote
    cd remote
    MODLA=$console "$recipes/parallel.sh" 4 "solve $directory/A.mtx $directory/B.sms" \
        --ssh "ssh -F $directory/ssh_config" --sshlogin 2/node --wd "$PWD" >out 2>errors || fail "ssh: $(cat errors)"
    cmp out ../solution
    echo "GNU parallel over ssh: done"
    cd ..
else
    echo "There is no sshd: ssh skipped"
fi

# Slurm: munge, a controller and a node, all of this test.
if [ -z "${MODLA_SLURM_TEST-}" ]; then
    echo "Slurm: skipped (MODLA_SLURM_TEST=1 asks for it; it takes slurmctld, slurmd, slurm-client, munge and root)"
    exit 0
fi
chmod 755 .
mkdir slurm munge array
dd if=/dev/urandom of=munge/key bs=1024 count=1 2>/dev/null
chmod 700 munge
chmod 400 munge/key
munged --force --key-file="$PWD/munge/key" --socket="$PWD/munge/socket" --pid-file="$PWD/munge/pid" \
    --log-file="$PWD/munge/log" --seed-file="$PWD/munge/seed"
daemons="$daemons $directory/munge/pid"
host=$(hostname -s)
cat >slurm.conf <<END
ClusterName=loopback
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$((30000 + $$ % 10000))
SlurmdPort=$((40000 + $$ % 10000))
AuthType=auth/munge
AuthInfo=socket=$directory/munge/socket
CredType=cred/munge
SlurmUser=root
SlurmdUser=root
StateSaveLocation=$directory/slurm/state
SlurmdSpoolDir=$directory/slurm/spool
SlurmctldPidFile=$directory/slurm/slurmctld.pid
SlurmdPidFile=$directory/slurm/slurmd.pid
SlurmctldLogFile=$directory/slurm/slurmctld.log
SlurmdLogFile=$directory/slurm/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_tres
JobAcctGatherType=jobacct_gather/none
SchedulerParameters=sched_interval=1,sched_min_interval=0,batch_sched_delay=0
ReturnToService=2
NodeName=$host NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=all Nodes=$host Default=YES MaxTime=INFINITE State=UP
END
export SLURM_CONF=$directory/slurm.conf
mkdir -p slurm/state slurm/spool
slurmctld
daemons="$directory/slurm/slurmctld.pid $daemons"
slurmd
daemons="$directory/slurm/slurmd.pid $daemons"
cd array
combine=$(MODLA=$console "$recipes/slurm.sh" 4 "det $directory/A.mtx")
for second in $(seq 120); do
    [ -n "$(squeue --noheader)" ] || break
    sleep 1
done
cmp result ../det || fail "Slurm: $(cat ./*.log; tail -n 20 "$directory"/slurm/*.log)"
echo "Slurm: job $combine has combined $(ls shard.*.jsonl | wc -l) shards, run as an array"
scontrol show node | sed -n 's/^ *\(NodeName=[^ ]*\).*/\1/p'
