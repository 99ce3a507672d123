#!/usr/bin/env bash
# The library on a database that is kept in a Ceph cluster: starts a cluster of its own on this machine, does the same work
# there and on files, and breaks the cluster under the work.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/ceph.sh
. scripts/lib/ceph.sh

usage() {
  cat <<'END'
usage: scripts/test-cluster.sh

Installs what is missing, builds the library in build/release, starts a Ceph cluster on the loopback
interface, below a temporary folder, and works on databases in it. Leaves nothing behind. Takes three
minutes, more than one of them for outages. Needs no particular rights.
END
}

case ${1-} in
  '') ;;
  -h | --help)
    usage
    exit
    ;;
  *)
    usage >&2
    exit 2
    ;;
esac

# Only what this script has started and what has not ended: its number may be another's by then. The cluster last.
folder=
clean_up() {
  local status=$? pid
  trap - EXIT INT TERM
  for pid in $(jobs -pr); do
    [[ $pid != "$monitor_pid" && $pid != "$osd_pid" ]] || continue
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  stop_cluster
  [[ -z $folder ]] || rm -rf -- "$folder"
  exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

say() { printf '== %s\n' "$1"; }
# How long the step took that ends with this.
passed() { printf '   %s (%d s)\n' "$1" "$((SECONDS - step_start))"; }
step() {
  step_start=$SECONDS
  say "$1"
}
# fail REASON [FILE...]: the files have more to tell.
fail() {
  local reason=$1 file
  shift
  for file in "$@"; do
    tail -n 20 "$file" >&2
  done
  give_up "FAILED: $reason"
}

build=build/release
catalog=$build/examples/catalog/catalog

uri() { printf 'file:%s:/%s.db?vfs=ceph' "$pool" "$1"; }
probe() { timeout --foreground 120 "$build/tests/cluster/sqldb_cluster_probe" --load "$module" "$@"; }

# expect_rows DB TEXT: fails unless TEXT is what the probe tells of who wrote what.
expect_rows() {
  local found
  found=$(probe look "$1" | head -n 1) || fail "the database cannot be read"
  [[ $found == "$2; integrity ok" ]] || fail "$1 has '$found', and should have '$2; integrity ok'"
}

# background NAME ARGUMENT...: starts a probe that reads what is written to the file NAME.in. Its number is $!.
background() {
  local name=$1
  shift
  mkfifo "$folder/$name.in"
  "$build/tests/cluster/sqldb_cluster_probe" --load "$module" "$@" \
    <>"$folder/$name.in" >"$folder/$name.out" 2>"$folder/$name.err" &
}
await() { wait_until 60 grep -q "$2" "$folder/$1.out" || fail "$1 does not say '$2'" "$folder/$1.err"; }
tell() { echo >"$folder/$1.in"; }

# ----------------------------------------------------------------------------------------------------------------------

make_tree() {
  mkdir -p "$1"/{a/b/c,empty,copies}
  local i
  for i in {1..300}; do
    seq "$i" >"$1/a/file$i.txt"
  done
  cp "$1"/a/file{1,2,300}.txt "$1/copies"
  for i in {1..20}; do
    head -c $((i * 5000)) /dev/zero >"$1/a/b/zeros$i.bin"
  done
  cp "$1"/a/b/*.bin "$1/a/b/c"
  : >"$1/empty/nothing"
  printf 'x' >"$1/a/it's \"quoted\" %like_.TXT"
  printf 'y' >"$1/a/"$'line\nfeed.txt'
  mkfifo "$1/pipe"
}

# Runs the catalogue on the file and in the cluster, and compares all that it says. What differs by nature is the name of
# the database, and how long the reading of a folder took. Errors go to a file: Ceph's client makes a pipe for errors
# non-blocking, and that must not be the pipe of the output.
both() {
  local where database
  for where in file cluster; do
    database=$folder/catalog.db
    [[ $where == file ]] || database=$(uri catalog)
    {
      timeout --foreground 120 "$catalog" --load "$module" "$database" "$@" 2>"$folder/err.txt" ||
        printf 'status %d\n' "$?"
      cat "$folder/err.txt"
    } | sed -E -e "s|${database//\?/\\?}|DB|g" -e 's/, [0-9.]+ seconds$//' >"$folder/$where.txt"
  done
  cmp -s "$folder/file.txt" "$folder/cluster.txt" ||
    fail "'catalog $*' answers otherwise than with a file" <(diff "$folder/file.txt" "$folder/cluster.txt")
  printf '%s\n' "catalog $*" | cat - "$folder/cluster.txt" >>"$folder/transcript.txt"
  ((compared += 1))
}

compare_catalogs() {
  step "A catalogue of files, in a file and in the cluster"
  compared=0
  local tree=$folder/tree
  make_tree "$tree"
  both index "$tree"
  both index /usr/include
  both index "$tree"
  both index "$tree/none"
  both count
  both count --kind h
  both count --kind h --larger 3000
  both count --larger 99999999999
  both largest 1
  both largest 25
  both largest 100000
  both find zeros
  both find "it's \"quoted\" %like_"
  both find /sys/
  both find "nothing has this name"
  both duplicates
  both duplicates --all
  both plan
  both tag txt text
  both count --kind text
  both count --kind txt
  seq 5000 >"$tree/a/file1.txt"
  rm "$tree/a/file2.txt"
  both index "$tree"
  both count --kind txt
  both forget "$tree/copies"
  both forget "$tree/copies"
  both forget "$tree/a/it's \"quoted\" %like_.TXT"
  both duplicates --all
  both find ''
  both nonsense
  grep -Eq '^[1-9][0-9]* groups? of identical' "$folder/transcript.txt" || fail "no duplicates were found"
  passed "$compared answers, $(wc -l <"$folder/transcript.txt") lines, all alike"
}

move_both_ways() {
  step "Moving a database to the cluster and back"
  local way
  for way in backup vacuum; do
    probe "$way" "$folder/catalog.db" "$(uri "$way")" || fail "$way into the cluster"
    # Unless told, VACUUM INTO takes the VFS that it comes from.
    probe "$way" "$(uri "$way")" "file:$folder/$way.db?vfs=unix" || fail "$way out of the cluster"
    cmp <(sqlite3 "$folder/catalog.db" .dump) <(sqlite3 "$folder/$way.db" .dump) || fail "$way changes the contents"
    cmp <("$catalog" "$folder/catalog.db" find '') <("$catalog" --load "$module" "$(uri "$way")" find '') ||
      fail "the catalogue does not find the same in what $way has made"
  done
  passed "there and back by SQLite's backup and by VACUUM INTO: the same $(sqlite3 "$folder/catalog.db" .dump | wc -l) lines of .dump"
}

# Programs of tests, at the same time.
run_contract_tests() {
  step "The library's own tests on databases in the cluster (two minutes)"
  local left_out program tests=()
  left_out=$(grep '^[^#]' tests/cluster/left-out.txt | paste -s -d :)
  for program in "$@"; do
    SQLDB_TEST_DATABASES="$(uri %)" SQLDB_TEST_MODULE=$module \
      timeout 400 "$build/$program" --gtest_brief=1 --gtest_filter="-$left_out" >"$folder/${program##*/}.out" 2>&1 &
    tests+=($!)
  done
  for program in "$@"; do
    wait "${tests[0]}" || fail "$program" "$folder/${program##*/}.out"
    tests=("${tests[@]:1}")
    passed "$(grep PASSED "$folder/${program##*/}.out") ${program##*/}"
  done
  # Else they have not been there.
  local databases
  databases=$(rados -p "$pool" ls | grep -c 'sqldb-test.*\.db\.0000000000000000' || true)
  ((databases > 500)) || fail "the tests made only $databases databases in the cluster"
}

write_at_once() {
  step "Two processes write at once"
  local database
  database=$(uri writers)
  probe create "$database"
  background first write "$database" 1 100
  local first=$!
  background second write "$database" 2 100
  local second=$!
  await first ready
  await second ready
  tell first
  tell second
  wait "$first" || fail "the first writer" "$folder/first.err"
  wait "$second" || fail "the second writer" "$folder/second.err"
  expect_rows "$database" "writer 1: 100 rows, 100 steps, the last 100; writer 2: 100 rows, 100 steps, the last 100"
  local turns
  turns=$(probe look "$database" | sed -n 's/turns //p')
  ((turns > 1)) || fail "the writers were not at work at once"
  passed "200 commits of 200, the writers took turns $turns times"
}

before="writer 1: 5 rows, 5 steps, the last 5"

# hold NAME: starts a probe that has an open transaction in $database, which has five commits of before. Its number is
# $holder.
hold() {
  database=$(uri "$1")
  probe create "$database"
  probe write "$database" 1 5 <<<"" >/dev/null
  expect_rows "$database" "$before"
  background "$1" hold "$database" 2 3000
  holder=$!
  await "$1" holding
}

kill_a_writer() {
  step "A writer is killed in mid-transaction, and the next one waits for its lock meanwhile"
  local database holder
  hold killed
  kill -KILL "$holder"
  wait "$holder" 2>/dev/null || true
  rados -p "$pool" ls | grep -q 'killed.db-journal' || fail "the killed writer had written nothing yet"
  background next look "$database"
  waiting=$!
  passed "killed"
}

find_what_the_killed_left() {
  step "What the killed writer left"
  wait "$waiting" || fail "the database cannot be read after the kill" "$folder/next.err"
  local database waited
  database=$(uri killed)
  expect_rows "$database" "$before"
  waited=$(sed -n 's/^answered after //p' "$folder/next.out")
  ((waited > 10)) || fail "the next one waited only $waited s"
  probe write "$database" 3 5 <<<"" >/dev/null || fail "the database cannot be written to after the kill"
  expect_rows "$database" "$before; writer 3: 5 rows, 5 steps, the last 5"
  passed "the next one waited $waited s, found the commits of before and nothing else, and wrote on"
}

short_outage() {
  step "The store fails under a transaction, for 10 seconds"
  local database holder
  hold patient
  kill_osd
  tell patient
  sleep 10
  ! grep -q committed "$folder/patient.out" || fail "the COMMIT did not wait"
  start_osd
  wait "$holder" || fail "the writer has failed" "$folder/patient.err"
  grep -qx committed "$folder/patient.out" || fail "the COMMIT failed" "$folder/patient.out"
  expect_rows "$database" "$before; writer 2: 3000 rows, 3000 steps, the last 3000"
  passed "the COMMIT waited and succeeded"
}

long_outage() {
  step "The store fails under a transaction, for 35 seconds"
  local database holder
  hold lost
  kill_osd
  sleep 35
  start_osd
  wait_until 60 answers || fail "the store does not come back"
  # Until the writer's client, too, has found the store again, and has learnt that its lock is lost. It looks for the
  # store every few seconds.
  sleep 15
  tell lost
  ! wait "$holder" || fail "the COMMIT succeeded"
  grep -qx "disk I/O error" "$folder/lost.err" || fail "the COMMIT failed otherwise" "$folder/lost.err"
  expect_rows "$database" "$before"
  passed "the COMMIT failed with 'disk I/O error'; another process finds the database as it was"
}

measure() {
  step "What it costs"
  probe measure "$folder/measured.db" "$(uri measured)" || fail "measuring"
  passed "measured"
}

# ----------------------------------------------------------------------------------------------------------------------

install_test_packages
install_missing ceph-mon ceph-osd ceph-common libsqlite3-mod-ceph
module=$(ceph_module)

step "Build"
mkdir -p build
{
  cmake --preset release && cmake --build --preset release --parallel "$(nproc)" \
    --target catalog sqldb_tests sqldb_kit_tests sqldb_cluster_probe
} >build/cluster.log 2>&1 || fail "the build; see build/cluster.log" build/cluster.log
passed "built"

folder=$(mktemp -d)
step "Start a cluster"
start_cluster "$folder/ceph"
passed "$(ceph --version)"

compare_catalogs
move_both_ways
kill_a_writer
run_contract_tests tests/sqldb_tests kit/tests/sqldb_kit_tests
find_what_the_killed_left
write_at_once
short_outage
long_outage
measure
printf '\nAll passed (%d s)\n' "$SECONDS"
