#!/usr/bin/env bash
# A restart that survives a crash: the agent is killed (SIGKILL) at random
# points of a large scenario played into a table directory, then the same
# scenario runs again, in hitless-restart mode, over the directory the
# killed run left. Once every VRF is ready, what `connroute show` reads
# from that directory must equal what it reads after one clean run.
#
# Usage: restart.sh CONNROUTE [KILLS] [SEED]   (defaults: 20 kills, seed 1)
set -euo pipefail
connroute=$1 kills=${2:-20} seed=${3:-1}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
RANDOM=$seed

# 4 VRFs x 750 interfaces, each with an IPv4 address, a secondary (in a
# /24 two neighbouring interfaces share, so that those prefixes have two
# candidates and an owner to choose) and an IPv6 address. The agent starts
# first, so drains run between the steps that bring the interfaces; every
# 50 interfaces time moves on.
scenario() {
  local vrfs=4 intfs=750
  printf '{"description": "restart after a crash", "steps": [\n'
  printf '{"vrfIdMap": {"set": {"default": 0'
  for ((v = 1; v < vrfs; v++)); do printf ', "vrf%d": %d' "$v" "$v"; done
  printf '}}},\n'
  for ((v = 1; v < vrfs; v++)); do
    printf '{"vrfLocal": {"vrf": "vrf%d", "netns": "ns%d", "state": "active"}},\n' "$v" "$v"
  done
  printf '{"ribAwaits": {"add": ["default"'
  for ((v = 1; v < vrfs; v++)); do printf ', "vrf%d"' "$v"; done
  printf ']}},\n{"start": {"startupMode": "hitlessRestart"}},\n'
  for ((v = 0; v < vrfs; v++)); do
    local vrf=vrf$v ns=ns$v
    [ "$v" -eq 0 ] && vrf=default ns=default
    for ((i = 0; i < intfs; i++)); do
      local a=$((i / 250)) b=$((i % 250))
      printf '{"kernel": {"netns": "%s", "up": ["e%d"]}},\n' "$ns" "$i"
      printf '{"ipv4": {"vrf": "%s", "intf": "e%d", "active": "10.%d.%d.1/24", "secondaries": {"100.%d.%d.%d/24": true}}},\n' \
        "$vrf" "$i" "$a" "$b" "$((64 + a))" "$((b / 2))" "$((1 + b % 2))"
      printf '{"ipv6": {"vrf": "%s", "intf": "e%d", "add": ["2001:db8:%x:%x::1/64"]}},\n' "$vrf" "$i" "$a" "$b"
      if ((i % 50 == 49)); then printf '{"advance": "0.05s"},\n'; fi
    done
  done
  printf '{"run": "idle"},\n{"startReadyVerification": true},\n{"run": "idle"},\n{"dump": "ready"}\n]}\n'
}
scenario > "$work/scenario.json"

snapshot() {
  local dir=$1
  for what in routes vias viasets ready; do
    "$connroute" show --tables "$dir" "$what"
  done
}

start=$(date +%s%N)
"$connroute" run --tables "$work/clean" "$work/scenario.json" > "$work/clean.out"
play_ns=$(($(date +%s%N) - start))
snapshot "$work/clean" > "$work/expected.txt"
grep -q "v4Ready" "$work/expected.txt"
if grep -A1000 '^VRFs:' "$work/expected.txt" | grep -E '^    (default|vrf[0-9])' | grep -qv ' yes  *yes  *yes '; then
  echo "the clean run did not make every VRF ready" >&2
  exit 1
fi

# The routes `show` lists, with the owners it reads from the published
# candidates, are the ones the clean run's final dump printed from memory.
route_lines() { grep -E '^    [0-9a-f:.]+/[0-9]+ ' "$1" | sort; }
"$connroute" show --tables "$work/clean" routes > "$work/shown.txt"
if ! diff -q <(route_lines "$work/clean.out") <(route_lines "$work/shown.txt") > /dev/null ||
   [ "$(route_lines "$work/shown.txt" | wc -l)" -lt 10000 ]; then
  echo "show routes differs from the clean run's dump:" >&2
  diff <(route_lines "$work/clean.out") <(route_lines "$work/shown.txt") | head -10 >&2 || true
  exit 1
fi

# The summary's counts are the rows `show routes` and `show vias` list.
for what in routes vias; do "$connroute" show --tables "$work/clean" "$what" --json > "$work/$what.json"; done
"$connroute" show --tables "$work/clean" summary --json > "$work/summary.json"
python3 - "$work" << 'EOF'
import json, sys
work = sys.argv[1]
summary = json.load(open(work + "/summary.json"))["vrfs"]
listed = {what: json.load(open(f"{work}/{what}.json")) for what in ("routes", "vias")}
def rows(doc, vrf_id, key):
    return sum(len(v.get(key, [])) for v in doc["vrfs"] if v["vrf"]["id"] == vrf_id)
bad = [(v["id"], field, v[field], rows(listed[what], v["id"], field))
       for v in summary
       for what, fields in (("routes", ("ipv4Routes", "ipv6Routes")), ("vias", ("ipv4Vias", "ipv6Vias")))
       for field in fields
       if v[field] != rows(listed[what], v["id"], field)]
if bad or not any(v["ipv4Routes"] for v in summary):
    sys.exit(f"summary counts differ from the listed rows (vrf, field, summary, listed): {bad}")
EOF

failures=0 leftRows=0
for ((k = 1; k <= kills; k++)); do
  rm -rf "$work/t"
  # A run killed somewhere in its first 90 %.
  delay_ns=$((RANDOM * 32768 + RANDOM))
  delay_ns=$((delay_ns % (play_ns * 9 / 10) + 1))
  setsid "$connroute" run --tables "$work/t" "$work/scenario.json" > /dev/null 2>&1 &
  pid=$!
  sleep "$(printf '0.%09d' "$delay_ns")"
  kill -KILL -- "-$pid" 2> /dev/null || true
  wait "$pid" 2> /dev/null || true
  while kill -0 -- "-$pid" 2> /dev/null; do sleep 0.01; done
  # What the killed run left is readable as it is, and usually not empty.
  if [ -e "$work/t/data.mdb" ]; then
    if ! left=$("$connroute" show --tables "$work/t" summary 2>&1); then
      echo "kill $k (after $((delay_ns / 1000000)) ms): the directory it left is unreadable: $left" >&2
      failures=$((failures + 1))
      continue
    fi
    if grep -qE '^    (default|vrf[0-9]) +[0-9]+ +[1-9]' <<< "$left"; then
      leftRows=$((leftRows + 1))
    fi
  fi
  # The run after the crash, over what the killed one left.
  if ! "$connroute" run --tables "$work/t" "$work/scenario.json" > "$work/rerun.out" 2> "$work/rerun.err"; then
    echo "kill $k (after $((delay_ns / 1000000)) ms): the rerun failed: $(cat "$work/rerun.err")" >&2
    failures=$((failures + 1))
    continue
  fi
  if ! snapshot "$work/t" | diff -q "$work/expected.txt" - > /dev/null; then
    echo "kill $k (after $((delay_ns / 1000000)) ms): the tables differ from a clean run's" >&2
    snapshot "$work/t" | diff "$work/expected.txt" - | head -20 >&2
    failures=$((failures + 1))
  fi
done
echo "restart.sh: $kills kills (seed $seed, a clean play takes $((play_ns / 1000000)) ms)," \
  "$leftRows left routes behind, $failures failures"
exit $((failures > 0))
