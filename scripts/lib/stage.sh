# shellcheck shell=bash
# Sourced. stage TITLE COMMAND...: prints the title, runs the command, prints how long it took; returns its status.
# The command is a program, not a function: a function would not stop at its first failure.

stage() {
  local title=$1 start=$SECONDS status=0
  shift
  printf '\n== %s\n' "$title"
  "$@" || status=$?
  local result="done"
  ((status == 0)) || result="FAILED"
  printf '== %s: %s, %d s\n' "$title" "$result" "$((SECONDS - start))"
  return "$status"
}
