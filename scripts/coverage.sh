#!/usr/bin/env bash
# Measures which lines and branches of src/ and include/ the unit tests run, and fails if one is left out.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/stage.sh
. scripts/lib/stage.sh

# One program only: of several, none would have run all branches of a template or a header.
readonly tests=build/coverage/tests/sqldb_tests
readonly raw=build/coverage/tests.profraw
readonly profile=build/coverage/tests.profdata

install_test_packages
install_clang
install_llvm

stage "coverage: configure" cmake --preset coverage
stage "coverage: build" cmake --build --preset coverage --parallel "$(nproc)"
rm -f -- "$raw" "$profile"
stage "coverage: test" env LLVM_PROFILE_FILE="$raw" "$tests" --gtest_brief=1
"$(llvm_tool profdata)" merge -sparse "$raw" -o "$profile"

report() { "$(llvm_tool cov)" "$1" "$tests" -instr-profile="$profile" "${@:2}"; }
sources=("$PWD/src" "$PWD/include")
printf '\n'
report report --show-region-summary=false "${sources[@]}"

# The last line of the report: for regions, functions, lines and branches the number, the missed ones and the percentage.
total=$(report report "${sources[@]}" | awk '$1 == "TOTAL" { print $8, $9, $11, $12 }')
read -r lines missed_lines branches missed_branches <<<"${total:-0 0 0 0}"
printf '\ncoverage: %d of %d lines, %d of %d branches\n' \
  "$((lines - missed_lines))" "$lines" "$((branches - missed_branches))" "$branches"
((lines > 0 && branches > 0)) || give_up "Nothing was measured."
# A folder that matches nothing is no error to llvm-cov.
measured=$(report export -summary-only "${sources[@]}")
while IFS= read -r -d '' source; do
  [[ $measured == *"\"$source\""* ]] || give_up "Not measured: $source"
done < <(find "$PWD/src" -name '*.cpp' -print0)
((missed_lines + missed_branches > 0)) || exit 0

printf '\nNot covered:\n'
report show --show-branches=count --show-line-counts "${sources[@]}" |
  awk '/^\/.*:$/ { file = $0 }
       /^ +[0-9]+\| +0\|/ { print file, $0 }
       /Branch \(.*(True|False): 0[],]/ { print file, $0 }'
exit 1
