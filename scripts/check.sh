#!/usr/bin/env bash
# The long tests: faults, kills, contention, threads, fuzzing, coverage, Valgrind, other ways to compile, and the
# measurements, once. Each prints its figures.
# Goes on after a failure, so that one run shows them all.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/stage.sh
. scripts/lib/stage.sh
exec </dev/null

usage() {
  cat <<'END'
usage: scripts/check.sh [PART...]

Installs what is missing, then runs each PART of
  faults    failing memory and disks, lost power, kills, contention, every short input of the encoding
  threads   eight threads with a database each through every operation, ten million rows, under ThreadSanitizer
  fuzz      the fuzzers of the encoding, two million runs each
  coverage  all lines and branches of the library and of the kit are run by their unit tests, with unsigned char and
            with overflow that stops the program
  valgrind  the unit tests under Valgrind
  engines   the tests on SQLCipher, another library with SQLite's interface, with signed char and with overflow that
            stops the program
  packages  the library in every way that README.md shows, see scripts/test-packages.sh
  bench     every measurement once, without regard to the time, and the allocations of each operation
Without PART: all but packages and bench.
END
}

case ${1-} in
  -h | --help)
    usage
    exit
    ;;
esac
parts=("$@")
((${#parts[@]} > 0)) || parts=(faults threads fuzz coverage valgrind engines)
for part in "${parts[@]}"; do
  case $part in
    faults | threads | fuzz | coverage | valgrind | engines | packages | bench) ;;
    *)
      usage >&2
      exit 2
      ;;
  esac
done

install_test_packages
install_clang
install_missing valgrind
if [[ " ${parts[*]} " == *" engines "* ]]; then install_missing libsqlcipher-dev; fi
if [[ " ${parts[*]} " == *" bench "* ]]; then install_benchmark_packages; fi
jobs=$(nproc)

failed=()
check() { stage "$@" || failed+=("$1"); }

# beside TITLE FUNCTION [ARGUMENT...]: calls FUNCTION TITLE [ARGUMENT...] at the same time as what comes after it, which
# uses one processor as well. await waits for it and shows what it printed.
beside() {
  beside_title=$1
  local function=$2
  shift 2
  "$function" "$beside_title" "$@" >build/beside.log 2>&1 &
  beside_process=$!
}
await() {
  wait "$beside_process" || failed+=("$beside_title")
  cat build/beside.log
}

build() {
  check "$1: configure" cmake --preset "$1"
  check "$1: build" cmake --build --preset "$1" --parallel "$jobs"
}

# With what each prints.
run_faults() {
  build faults
  check "faults: test" ctest --preset faults --verbose --parallel "$jobs" --no-tests=error
}

run_threads() {
  build threads
  # Where the system places memory more at random than the sanitizer can follow, it is asked not to, if it lets itself.
  local fixed=()
  if setarch --addr-no-randomize true 2>/dev/null; then fixed=(setarch --addr-no-randomize); fi
  # The order of locks is not looked at: all of them are SQLite's.
  check "threads: test" env TSAN_OPTIONS=detect_deadlocks=0 "${fixed[@]}" \
    build/threads/tests/threads/sqldb_threads_test 10000000
}

run_fuzz() {
  build fuzz
  beside "fuzz: decode" run_fuzzer decode
  run_fuzzer "fuzz: round_trip" round_trip || failed+=("fuzz: round_trip")
  await
}

# From nothing and with a fixed seed: the same inputs in every run.
run_fuzzer() {
  stage "$1" "build/fuzz/tests/fuzz/$2_fuzzer" \
    -runs=2000000 -seed=1 -max_len=128 -timeout=20 -print_final_stats=1 -artifact_prefix=build/fuzz/
}

run_coverage() { check "coverage" scripts/coverage.sh; }

# run_half TITLE N: every second test, from the Nth on. The core's test program brings its own operator new, which Valgrind
# leaves alone, and watches malloc below it. The children that the death tests fork end in mid-work, and are not looked at.
run_half() {
  local program status=0
  for program in build/release/tests/sqldb_tests build/release/kit/tests/sqldb_kit_tests; do
    stage "$1: ${program##*/}" env GTEST_TOTAL_SHARDS=2 GTEST_SHARD_INDEX="$2" \
      valgrind --quiet --child-silent-after-fork=yes --error-exitcode=1 --leak-check=full \
      --show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite,indirect,possible \
      --soname-synonyms=somalloc=nouserintercepts "$program" --gtest_brief=1 || status=1
  done
  return "$status"
}

run_valgrind() {
  check "release: configure" cmake --preset release
  check "release: build" cmake --build --preset release --parallel "$jobs" --target sqldb_tests sqldb_kit_tests
  beside "valgrind: first half" run_half 0
  run_half "valgrind: second half" 1 || failed+=("valgrind: second half")
  await
}

# The program with the call recorder is one of them: it sees that the library calls this engine as it calls SQLite.
run_engines() {
  build sqlcipher
  check "sqlcipher: test" ctest --preset sqlcipher --parallel "$jobs" --no-tests=error
}

run_packages() { check "packages" scripts/test-packages.sh; }

run_bench() {
  build bench
  check "bench: test" ctest --preset bench --parallel "$jobs" --no-tests=error
}

for part in "${parts[@]}"; do
  "run_$part"
done

if ((${#failed[@]} > 0)); then
  printf '\nFAILED: %s\n' "${failed[@]}" >&2
  exit 1
fi
printf '\nAll checks passed: %s (%d s)\n' "${parts[*]}" "$SECONDS"
