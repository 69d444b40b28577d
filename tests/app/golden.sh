#!/usr/bin/env bash
# Plays an example scenario and compares the output with its reviewed golden
# file. Usage: golden.sh CONNROUTE SCENARIO GOLDEN
set -euo pipefail
connroute=$1 scenario=$2 golden=$3
if ! actual=$("$connroute" run "$scenario"); then
  echo "connroute failed on $scenario" >&2
  exit 1
fi
if ! diff -u "$golden" <(printf '%s\n' "$actual"); then
  echo "output of $scenario differs from $golden (scripts/update-goldens.sh regenerates it)" >&2
  exit 1
fi
