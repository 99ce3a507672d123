#!/usr/bin/env bash
# Checks the documents and builds the reference of the public headers in build/docs/html. Every warning is an error.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/stage.sh
. scripts/lib/stage.sh

install_missing doxygen graphviz python3

stage "documents" python3 scripts/lib/documents.py
mkdir -p build
stage "reference" doxygen docs/Doxyfile
printf '\nThe reference is in build/docs/html/index.html.\n'
