#!/usr/bin/env bash
# Measures which lines and branches of the library and of the kit their unit tests run, and fails if one is left out.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/stage.sh
. scripts/lib/stage.sh

install_test_packages
install_clang
install_llvm
install_missing python3

stage "coverage: configure" cmake --preset coverage
stage "coverage: build" cmake --build --preset coverage --parallel "$(nproc)"

# measure NAME PROGRAM FOLDER...: what PROGRAM runs of the files in FOLDER. One program only: a branch of a header that is
# taken in one program and not taken in another has been seen going both ways in neither.
measure() {
  local name=$1 program=$2 folders=("${@:3}")
  local raw=$program.profraw profile=$program.profdata
  rm -f -- "$raw"
  stage "coverage: test of the $name" env LLVM_PROFILE_FILE="$raw" "$program" --gtest_brief=1 || return
  "$(llvm_tool profdata)" merge -sparse "$raw" -o "$profile"
  local export=("$(llvm_tool cov)" export "$program" -instr-profile="$profile")
  "${export[@]}" -format=lcov "${folders[@]}" >"$program.lcov"
  "${export[@]}" "${folders[@]}" >"$program.json"
  python3 scripts/lib/coverage.py "$name" "$program.lcov" "$program.json" "${folders[@]}"
}

status=0
measure "library" build/coverage/tests/sqldb_tests "$PWD/src" "$PWD/include" || status=1
measure "kit" build/coverage/kit/tests/sqldb_kit_tests "$PWD/kit/src" "$PWD/kit/include" || status=1
exit "$status"
