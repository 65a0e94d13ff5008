#!/usr/bin/env bash
# A single-node SLURM cluster in a directory of its own, for the test of the
# batch scripts of kelta_kmc (one run and a temperature series) and of kelta_qc (Debian
# slurmctld, slurmd, munge; root only).
#   slurm_cluster.sh start DIR   writes DIR/slurm.conf, starts munged, slurmctld
#                                and slurmd, and waits until the node is idle;
#                                exit 77 when this machine cannot (no root, no
#                                binaries, daemons that do not start), with why
#   slurm_cluster.sh stop DIR    stops the daemons that start left running
# Commands that use the cluster need SLURM_CONF=DIR/slurm.conf.
set -u
cmd=${1:-} dir=${2:-}
[ -n "$cmd" ] && [ -n "$dir" ] || { echo "usage: $0 start|stop DIR" >&2; exit 2; }
mkdir -p "$dir" && dir=$(cd "$dir" && pwd)

cannot() { echo "no SLURM cluster here: $*"; "$0" stop "$dir" > /dev/null 2>&1; exit 77; }

# One cluster at a time on this host (two slurmd of one node name do not both come
# up): start waits for the lock directory, stop gives it back. A lock whose
# cluster directory is gone was left by a run that was killed, and is taken over.
lock=${TMPDIR:-/tmp}/kelta_slurm_cluster.lock
take_lock() {
  for _ in $(seq 240); do
    mkdir "$lock" 2> /dev/null && { echo "$dir" > "$lock/owner"; return 0; }
    owner=$(cat "$lock/owner" 2> /dev/null) || owner=
    [ -n "$owner" ] && [ ! -d "$owner" ] && rm -rf "$lock" && continue
    sleep 1
  done
  return 1
}
give_lock() { [ "$(cat "$lock/owner" 2> /dev/null)" = "$dir" ] && rm -rf "$lock"; return 0; }

stop() {
  for pid in slurmd slurmctld munged; do
    [ -f "$dir/$pid.pid" ] && kill "$(cat "$dir/$pid.pid")" 2> /dev/null
  done
  sleep 1
  for pid in slurmd slurmctld munged; do
    [ -f "$dir/$pid.pid" ] && kill -9 "$(cat "$dir/$pid.pid")" 2> /dev/null
    rm -f "$dir/$pid.pid"
  done
  give_lock
}

start() {
  [ "$(id -u)" = 0 ] || cannot "the daemons need root"
  for b in munged slurmctld slurmd sbatch squeue sinfo; do
    command -v "$b" > /dev/null || [ -x "/usr/sbin/$b" ] || cannot "$b is not installed (Debian slurmctld, slurmd, munge)"
  done
  export PATH=$PATH:/usr/sbin
  take_lock || cannot "another test's cluster kept this host for 4 minutes"
  local host cpus port
  host=$(hostname -s) cpus=$(nproc)
  port=$((20000 + $$ % 20000))
  mkdir -p "$dir/state" "$dir/spool" "$dir/munge"
  chmod 700 "$dir/munge"
  [ -f "$dir/munge/munge.key" ] || dd if=/dev/urandom of="$dir/munge/munge.key" bs=1024 count=1 2> /dev/null
  chmod 400 "$dir/munge/munge.key"
  munged --force --key-file="$dir/munge/munge.key" --socket="$dir/munge/munge.socket" \
    --pid-file="$dir/munged.pid" --log-file="$dir/munge/munged.log" --seed-file="$dir/munge/munged.seed" \
    > "$dir/munge/start.log" 2>&1 || cannot "munged does not start: $(cat "$dir/munge/start.log")"
  cat > "$dir/slurm.conf" <<EOF
ClusterName=kelta
SlurmctldHost=$host
SlurmctldPort=$port
SlurmdPort=$((port + 1))
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket=$dir/munge/munge.socket
CredType=cred/munge
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.pid
SlurmctldLogFile=$dir/slurmctld.log
SlurmdLogFile=$dir/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerType=sched/builtin
MpiDefault=none
ReturnToService=2
AccountingStorageType=accounting_storage/none
JobAcctGatherType=jobacct_gather/none
JobCompType=jobcomp/none
NodeName=$host CPUs=$cpus State=UNKNOWN
PartitionName=workq Nodes=$host Default=YES MaxTime=INFINITE State=UP
EOF
  export SLURM_CONF=$dir/slurm.conf
  slurmctld -c > "$dir/slurmctld.out" 2>&1 || cannot "slurmctld does not start: $(tail -3 "$dir/slurmctld.log" 2> /dev/null)"
  slurmd > "$dir/slurmd.out" 2>&1 || cannot "slurmd does not start: $(tail -3 "$dir/slurmd.log" 2> /dev/null)"
  for _ in $(seq 60); do
    [ "$(sinfo -h -o %t 2> /dev/null)" = idle ] && return 0
    sleep 1
  done
  cannot "the node is not idle after 60 s: $(sinfo -h 2>&1; tail -3 "$dir/slurmd.log" 2> /dev/null)"
}

case $cmd in
  start) start ;;
  stop) stop ;;
  *) echo "usage: $0 start|stop DIR" >&2; exit 2 ;;
esac
