#!/usr/bin/env bash
# The program at scale: wall time and peak RSS of `connroute run` on
# generated scenarios (each interface with an IPv4 address, a secondary and
# an IPv6 address: 10 routes). Not part of CI.
# Usage: bench/app/program-scale.sh [CONNROUTE]   (default build/connroute)
set -euo pipefail
cd "$(dirname "$0")/../.."
connroute=${1:-build/connroute}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

measure() {  # LABEL ARGS...
  local label=$1
  shift
  /usr/bin/time -f "%e %M" -o "$work/time" "$connroute" "$@" > "$work/out"
  read -r seconds kb < "$work/time"
  printf '%-48s %7.2f s %7d MB %9d lines\n' "$label" "$seconds" $((kb / 1024)) "$(wc -l < "$work/out")"
}

gen() { python3 bench/app/gen-scenario.py "$@"; }
gen 20 10000 1 > "$work/big.json"
gen 20 10000 0 > "$work/big-nodump.json"
gen 10000 4 1 > "$work/vrfs.json"
gen 10000 4 0 > "$work/vrfs-nodump.json"
gen 200 100 1 > "$work/json1.json"
gen 200 100 15 > "$work/json15.json"

measure "20 VRFs x 10,000 interfaces, no dump" run "$work/big-nodump.json"
measure "20 VRFs x 10,000 interfaces, one text dump" run "$work/big.json"
measure "20 VRFs x 10,000 interfaces, one JSON dump" run --json "$work/big.json"
measure "10,000 VRFs x 4 interfaces, no dump" run "$work/vrfs-nodump.json"
measure "10,000 VRFs x 4 interfaces, one text dump" run "$work/vrfs.json"
measure "200 VRFs x 100 interfaces, 1 JSON dump" run --json "$work/json1.json"
measure "200 VRFs x 100 interfaces, 15 JSON dumps" run --json "$work/json15.json"
