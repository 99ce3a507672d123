#!/usr/bin/env bash
# Checks the format of the C++ files, and lints the C++ sources and the shell scripts. Every finding is an error.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/stage.sh
. scripts/lib/stage.sh

install_test_packages
install_clang
install_missing clang-format clang-tidy shellcheck python3

# Found rather than asked of git, which a source archive does not need.
mapfile -d '' cpp_files < <(find . \( -path ./build -o -path ./.git \) -prune -o \( -name '*.cpp' -o -name '*.h' \) -print0)
mapfile -d '' sources < <(find src kit/src examples -name '*.cpp' -not -path '*/tests/*' -print0)
jobs=$(nproc)

# Goes on after a failure, so that one run shows all findings.
status=0
stage "clang-format" clang-format --dry-run -Werror "${cpp_files[@]}" || status=1
# Only for compile_commands.json. Headers are linted through the sources that include them.
cmake --preset clang >/dev/null
printf '%s\0' "${sources[@]}" |
  stage "clang-tidy" xargs -0 -P "$jobs" -n 1 clang-tidy -p build/clang --quiet || status=1
stage "shellcheck" shellcheck --external-sources .ci/run scripts/*.sh scripts/lib/*.sh || status=1
# Conan is not at hand everywhere to do more with its recipes.
stage "Python, syntax" python3 -c 'import ast, sys
for name in sys.argv[1:]: ast.parse(open(name).read(), name)' scripts/lib/*.py packaging/conan/*.py packaging/conan/*/*.py || status=1
exit "$status"
