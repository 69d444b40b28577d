#!/usr/bin/env bash
# Plays an example scenario and compares the output with its reviewed golden
# file, in memory and with a fresh table directory: where the rows are kept
# changes nothing the engine does. Usage: golden.sh CONNROUTE SCENARIO GOLDEN
set -euo pipefail
connroute=$1 scenario=$2 golden=$3
tables=$(mktemp -d)
trap 'rm -rf "$tables"' EXIT

check() {
  local what=$1; shift
  local actual
  if ! actual=$("$connroute" run "$scenario" "$@"); then
    echo "connroute failed on $scenario ($what)" >&2
    exit 1
  fi
  if ! diff -u "$golden" <(printf '%s\n' "$actual"); then
    echo "output of $scenario ($what) differs from $golden (scripts/update-goldens.sh regenerates it)" >&2
    exit 1
  fi
}

check "in memory"
check "fresh table directory" --tables "$tables/t"
