# shellcheck shell=bash
# Sourced, after packages.sh. A Ceph cluster of one monitor and one OSD on the loopback interface, without rights of any
# kind, below one folder: start_cluster FOLDER, kill_osd, start_osd, stop_cluster. Its clients need CEPH_CONF, which
# start_cluster exports. The pool is $pool.

pool=sqldb
monitor_pid=
osd_pid=

is_running() { [[ -n $1 ]] && kill -0 "$1" 2>/dev/null; }

# give_up_on DAEMON REASON: ends the script with the reason, after the end of what the daemon had to say.
give_up_on() {
  local log
  for log in "$cluster/$1.out" "$cluster/$1.log"; do
    [[ -s $log ]] && tail -n 10 "$log" | cut -c -200 | sed "s/^/  $1: /" >&2
  done
  give_up "The cluster cannot be started: $2."
}

# wait_until SECONDS COMMAND...: false if the command fails for so long.
wait_until() {
  local end=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    ((SECONDS < end)) || return 1
    sleep 0.1
  done
}

is_free() { ! (: <"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# Two ports side by side that nobody listens on, below those that the system gives out itself.
choose_port() {
  local port
  for _ in {1..50}; do
    port=$((20000 + RANDOM % 10000))
    is_free "$port" && is_free "$((port + 1))" && echo "$port" && return
  done
  give_up "The cluster cannot be started: no port is free."
}

new_uuid() { cat /proc/sys/kernel/random/uuid; }

ceph_client() { timeout --foreground 30 ceph --connect-timeout 20 "$@"; }

# The OSD takes its time to join. What is asked of it before that waits for it.
answers() {
  timeout --foreground 3 rados -p "$pool" put probe "$CEPH_CONF" && timeout --foreground 3 rados -p "$pool" rm probe
}

# No crash reports, no sockets, no replicas; and a full disk is not the monitor's business here.
write_configuration() {
  cat <<END
[global]
fsid = $1
mon host = [v2:127.0.0.1:$2,v1:127.0.0.1:$(($2 + 1))]
public addr = 127.0.0.1
cluster addr = 127.0.0.1
ms bind port min = $(($2 + 2))
ms bind port max = $(($2 + 200))
auth cluster required = none
auth service required = none
auth client required = none
run dir = $cluster
admin socket =
crash dir = $cluster
log file = $cluster/\$type.log
osd pool default size = 1
osd pool default min size = 1
osd pool default pg num = 8
osd pool default pg autoscale mode = off
osd crush chooseleaf type = 0
[mon]
mon data = $cluster/mon
mon data avail crit = 0
[osd]
osd data = $cluster/osd
osd objectstore = bluestore
osd fast shutdown = false
bluestore block size = 2147483648
[client]
log file = /dev/null
END
}

start_monitor() {
  local fsid=$1 port=$2
  local out=$cluster/mon.out
  monmaptool --create --fsid "$fsid" --addv a "[v2:127.0.0.1:$port,v1:127.0.0.1:$((port + 1))]" "$cluster/monmap" \
    >"$out" 2>&1 || give_up_on mon "its map of monitors cannot be made"
  ceph-mon --mkfs -i a --monmap "$cluster/monmap" >"$out" 2>&1 || give_up_on mon "the monitor's store cannot be made"
  ceph-mon -f -i a >"$out" 2>&1 &
  monitor_pid=$!
  ceph_client quorum_status >/dev/null 2>&1 || give_up_on mon "the monitor does not answer"
}

start_osd() {
  ceph-osd -f -i 0 >"$cluster/osd.out" 2>&1 &
  osd_pid=$!
}

# As a machine that loses its power.
kill_osd() {
  kill -KILL "$osd_pid"
  wait "$osd_pid" 2>/dev/null || true
  osd_pid=
}

start_cluster() {
  cluster=$1
  local fsid port uuid
  fsid=$(new_uuid)
  port=$(choose_port)
  uuid=$(new_uuid)
  mkdir -p "$cluster/osd"
  write_configuration "$fsid" "$port" >"$cluster/ceph.conf"
  export CEPH_CONF=$cluster/ceph.conf
  start_monitor "$fsid" "$port"
  ceph_client osd new "$uuid" >"$cluster/osd.out" 2>&1 || give_up_on mon "the monitor takes no OSD"
  ceph-osd --mkfs -i 0 --osd-uuid "$uuid" >"$cluster/osd.out" 2>&1 || give_up_on osd "the OSD's store cannot be made"
  start_osd
  ceph_client osd pool create "$pool" 8 8 replicated >/dev/null 2>&1 || give_up_on mon "the pool cannot be made"
  ceph_client osd pool application enable "$pool" cephsqlite >/dev/null 2>&1 || give_up_on mon "the pool cannot be used"
  local end=$((SECONDS + 60))
  until answers >/dev/null 2>&1; do
    is_running "$monitor_pid" || give_up_on mon "the monitor has ended"
    is_running "$osd_pid" || give_up_on osd "the OSD has ended"
    ((SECONDS < end)) || give_up_on osd "the OSD does not answer"
    sleep 0.2
  done
}

# stop PID: asks the process to end, and sees to it after ten seconds.
stop() {
  is_running "$1" || return 0
  kill "$1" 2>/dev/null || true
  local end=$((SECONDS + 10))
  while is_running "$1"; do
    ((SECONDS < end)) || kill -KILL "$1" 2>/dev/null || true
    sleep 0.1
  done
  wait "$1" 2>/dev/null || true
}

stop_cluster() {
  stop "$osd_pid"
  stop "$monitor_pid"
}
