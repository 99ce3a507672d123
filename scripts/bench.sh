#!/usr/bin/env bash
# Measures sqldb beside the calls by hand and other layers over SQLite, and writes docs/performance.md with its charts.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/stage.sh
. scripts/lib/stage.sh
exec </dev/null

usage() {
  cat <<'END'
usage: scripts/bench.sh [ROUNDS]

Installs what is missing, measures everything ROUNDS times in turn (default 5), counts instructions and allocations, and
writes docs/performance.md and docs/performance/*.svg from the medians. Takes about half an hour; the machine should be
idle.
END
}

case ${1-} in
  -h | --help)
    usage
    exit
    ;;
esac
rounds=${1:-5}
[[ $rounds =~ ^[1-9][0-9]*$ && $# -le 1 ]] || {
  usage >&2
  exit 2
}

install_build_packages
install_benchmark_packages
install_missing gnuplot-nox python3

readonly build=build/bench
readonly results=$build/results
stage "bench: configure" cmake --preset bench
stage "bench: build" cmake --build --preset bench --parallel "$(nproc)"
rm -rf -- "$results"
mkdir -p -- "$results"

# In turn, so that whatever else the machine does meets them all.
measure() {
  "$build/bench/bench_$1" --benchmark_min_time="$2" --benchmark_out_format=json --benchmark_out="$results/$1-$3.json"
}
for ((round = 1; round <= rounds; ++round)); do
  stage "times: round $round of $rounds" measure times 0.1 "$round"
  stage "growth: round $round of $rounds" measure growth 0.05 "$round"
done
# shellcheck disable=SC2016  # expanded by the shell that is started
stage "allocations" bash -o pipefail -c '"$1" | tee "$2"' - "$build/bench/bench_allocations" "$results/allocations.txt"
stage "instructions" valgrind --quiet --tool=callgrind --collect-atstart=no \
  --callgrind-out-file="$results/instructions.%p" "$build/bench/bench_instructions"
# Rounds of its own: what the system has still to write makes single ones differ by a third.
# shellcheck disable=SC2016
stage "file" bash -o pipefail -c '"$1" | tee "$2"' - "$build/bench/bench_file" "$results/file.txt"
# shellcheck disable=SC2016
stage "programs" bash -c 'python3 scripts/lib/programs.py "$1" >"$2"' - "$build" "$results/programs.json"
stage "report" python3 scripts/lib/performance.py "$results" docs
