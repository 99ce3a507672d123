#!/usr/bin/env bash
# Breaks the library or the kit in one place at a time and tells which breaks the tests do not notice.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

usage() {
  cat <<'END_OF_USAGE'
usage: scripts/mutate.sh [--list] [--jobs N] [--tests QUICK SANITIZED] [FILTER...]

Forces every condition in src/ and kit/src/ to true and to false and shortens every string literal at either end, one
such mutant at a time, in a copy of the tree; rebuilds the library that it is in and runs the unit tests of that library,
then with sanitizers what those have not noticed. Prints each mutant, and at the end those that survived. Fails if fewer
than 95 % of those of one of the two libraries were killed.

  --list     only list the mutants
  --jobs N   so many at a time; one per core by default
  --tests QUICK SANITIZED
             the programs of tests in these folders of builds with the presets release and debug, instead of building
             them
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
