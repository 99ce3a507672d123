#!/usr/bin/env bash
# Builds the library and runs all tests, once for each preset of CMakePresets.json that is named.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/stage.sh
. scripts/lib/stage.sh

usage() {
  cat <<'END'
usage: scripts/test.sh [PRESET...]

Installs what is missing, then configures, builds and tests each PRESET of
  release      Release, default compiler
  debug        Debug with sanitizers, default compiler
  clang        Release, Clang
  clang-debug  Debug with sanitizers, Clang
Without PRESET: release and debug.
END
}

case ${1-} in
  -h | --help)
    usage
    exit
    ;;
esac
presets=("$@")
((${#presets[@]} > 0)) || presets=(release debug)
for preset in "${presets[@]}"; do
  case $preset in
    release | debug | clang | clang-debug) ;;
    *)
      usage >&2
      exit 2
      ;;
  esac
done

install_test_packages
for preset in "${presets[@]}"; do
  if [[ $preset == clang* ]]; then
    install_clang
    break
  fi
done

jobs=$(nproc)
for preset in "${presets[@]}"; do
  stage "$preset: configure" cmake --preset "$preset"
  stage "$preset: build" cmake --build --preset "$preset" --parallel "$jobs"
  # One more at a time than there are processors, since some only wait for a lock. A run without tests is no success.
  stage "$preset: test" ctest --preset "$preset" --parallel "$((jobs + 1))" --no-tests=error
done
printf '\nAll tests passed: %s (%d s)\n' "${presets[*]}" "$SECONDS"
