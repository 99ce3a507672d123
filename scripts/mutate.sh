#!/usr/bin/env bash
# Breaks the library in one place at a time and tells which breaks the tests do not notice.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

usage() {
  cat <<'END_OF_USAGE'
usage: scripts/mutate.sh [--list] [--jobs N] [--tests PROGRAM] [FILTER...]

Forces every condition in src/ to true and to false and shortens every string literal at either end, one such mutant at a
time, in a copy of the tree; rebuilds the library with sanitizers and runs the unit tests against it. Prints each
mutant, and at the end those that survived. Fails if fewer than 95 % were killed.

  --list     only list the mutants
  --jobs N   so many at a time; one per core by default
  --tests PROGRAM
             this program of tests, as the preset debug builds it, instead of building one
  FILTER     only mutants whose line of the list contains it, for example transaction.cpp:11
END_OF_USAGE
}

case ${1-} in
  -h | --help)
    usage
    exit
    ;;
esac
install_test_packages
install_missing python3
exec python3 scripts/lib/mutate.py "$@"
