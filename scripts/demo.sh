#!/usr/bin/env bash
# Shows what the library is good for: builds the example "catalog" and asks it about the files of a directory.
set -euo pipefail

usage() {
  cat <<'END'
usage: scripts/demo.sh [--db FILE] [DIR]

Installs what is missing, builds the example "catalog", catalogues the files in and below DIR (/usr by
default) and shows what can be asked of the catalogue. DIR itself stays as it is.

  --db FILE   keep the catalogue in FILE; without it, it is temporary. The environment variable
              CATALOG_DB does the same.
END
}

complain() {
  printf '%s\n' "$1" >&2
  exit 2
}

directory=/usr
database=${CATALOG_DB-}
while (($# > 0)); do
  case $1 in
    -h | --help)
      usage
      exit
      ;;
    --db)
      (($# > 1)) || complain "scripts/demo.sh: --db needs a file"
      database=$2
      shift 2
      ;;
    -*) complain "scripts/demo.sh: unknown option $1; see scripts/demo.sh --help" ;;
    *)
      (($# == 1)) || complain "scripts/demo.sh: one directory, please; see scripts/demo.sh --help"
      directory=$1
      shift
      ;;
  esac
done
[[ -d $directory ]] || complain "scripts/demo.sh: no such directory: $directory"
directory=$(cd -- "$directory" && pwd -P)
[[ -z $database || $database == /* ]] || database=$PWD/$database

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

say() { printf '\n# %s\n' "$1"; }

# Prints the command, then runs it.
run() {
  printf '\n$ '
  printf '%q ' "$@"
  printf '\n'
  "$@"
}

# The same, for what may answer with thousands of lines.
run_shortened() {
  run "$@" | awk -v shown=15 'NR <= shown + 2; END { if (NR > shown + 2) print "  ... and " NR - shown - 2 " more lines" }'
}

install_build_packages

say "Build the library and the example."
run cmake -S . -B build/demo -DCMAKE_BUILD_TYPE=Release -DSQLDB_BUILD_TESTS=OFF
run cmake --build build/demo --target catalog --parallel "$(nproc)"

if [[ -z $database ]]; then
  temporary=$(mktemp -d)
  trap 'rm -rf -- "$temporary"' EXIT
  database=$temporary/catalog.db
fi
catalog=(build/demo/examples/catalog/catalog "$database")

say "Read the directory into the catalogue."
run "${catalog[@]}" index "$directory"

# The questions are about what is there: the largest file, and the most frequent kind.
largest_file=$("${catalog[@]}" largest 1 | sed 's/^ *[0-9]*  //')
largest_name=${largest_file##*/}
kind=$(find "$directory" -type f -name '?*.*' 2>/dev/null | sed -n 's/.*\.\([A-Za-z0-9]\{1,8\}\)$/\L\1/p' | sort |
  uniq -c | sort -k1,1nr -k2 | awk 'NR == 1 { print $2 }') || true
kind=${kind:-txt}

say "Ask how many files there are: all, of one kind, larger than a megabyte, both."
run "${catalog[@]}" count
run "${catalog[@]}" count --kind "$kind"
run "${catalog[@]}" count --larger 1000000
run "${catalog[@]}" count --kind "$kind" --larger 10000

say "Which are the largest, which are there twice, and where is one of which only the name is known?"
run "${catalog[@]}" largest 10
run_shortened "${catalog[@]}" duplicates
run_shortened "${catalog[@]}" find "${largest_name:-sqldb}"

say "How does SQLite find the largest files, without an index and with one?"
run_shortened "${catalog[@]}" plan

say "Read the directory again: what has not changed is not written again."
run "${catalog[@]}" index "$directory"

say "Change the catalogue by hand: give a kind another name, and forget a file."
run "${catalog[@]}" tag "$kind" renamed
run "${catalog[@]}" count --kind "$kind"
run "${catalog[@]}" count --kind renamed
# A backslash stands for what cannot be shown, so that the name cannot be given back.
if [[ -n $largest_file && $largest_file != *\\* ]]; then
  run "${catalog[@]}" forget "$largest_file"
  run "${catalog[@]}" count

  say "The next reading finds the forgotten file again. The kinds stay renamed until their files change."
  run "${catalog[@]}" index "$directory"
  run "${catalog[@]}" count --kind renamed
fi

if [[ -z ${temporary-} ]]; then
  say "The catalogue stays in $database."
fi
