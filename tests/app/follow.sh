#!/usr/bin/env bash
# Following a table directory and reading its metrics: `show follow` from
# turn 1 replays every change of a run and ends with the routes `show
# routes` prints, for every example; a follower attached across runs is
# told of each new writer and still ends with them; its VRF and family
# filters; its errors; SIGINT and SIGTERM end it with status 0. `show
# metrics` parses with Prometheus's own parser.
#
# Usage: follow.sh CONNROUTE EXAMPLES_DIR
set -uo pipefail
connroute=$1 examples=$2
here=$(cd "$(dirname "$0")" && pwd)
python=/usr/bin/python3
work=$(mktemp -d)
followers=()
cleanup() {
  for pid in "${followers[@]}"; do kill "$pid" 2> /dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

# follow NAME ARGS...: a follower in the background, its output in $work/NAME.
follow() {
  local name=$1
  shift
  "$connroute" show --tables "$work/t" follow "$@" > "$work/$name" 2> "$work/$name.err" &
  followers+=($!)
}
# converges NAME: its events end with the routes show prints (within 10 s).
converges() {
  "$connroute" show --tables "$work/t" routes --json > "$work/show.json"
  "$python" "$here/follow_check.py" "$work/$1" "$work/show.json" 10 > /dev/null || fail "follower $1 ($2)"
}
# stops PID SIGNAL: the follower ends with status 0, within 10 s.
stops() {
  kill -"$2" "$1"
  local deadline=$((SECONDS + 10))
  while kill -0 "$1" 2> /dev/null && [ $SECONDS -lt $deadline ]; do sleep 0.05; done
  if kill -0 "$1" 2> /dev/null; then
    fail "a follower sent SIG$2 still runs after 10 s"
    kill -9 "$1"
  fi
  wait "$1"
  local status=$?
  [ "$status" -eq 0 ] || fail "a follower ended by SIG$2 exits $status"
}

# Every example from turn 1: the log holds all of a run's turns.
for example in "$examples"/*.json; do
  rm -rf "$work/t"
  "$connroute" run --tables "$work/t" "$example" > /dev/null || fail "run $example"
  follow from1 --json --from 1
  converges from1 "from turn 1 of $(basename "$example")"
  grep -q '"event":"resync"' "$work/from1" && fail "a follower from turn 1 of a fresh directory resynced"
  stops "${followers[-1]}" INT
done

# A follower attached while runs come and go: a resync for each new writer.
python3 "$examples/../bench/app/gen-scenario.py" 2 40 3 > "$work/big.json"
rm -rf "$work/t"
"$connroute" run --tables "$work/t" "$examples/two-vrfs.json" > /dev/null
follow across --json
follow text
follow red --json --vrf red --af 4
for scenario in "$work/big.json" "$work/big.json" "$examples/two-vrfs.json"; do
  "$connroute" run --tables "$work/t" "$scenario" > /dev/null || fail "run $scenario"
  converges across "across runs"
done
[ "$(grep -c '"event":"resync"' "$work/across")" -ge 1 ] || fail "no resync announced for a new writer"
grep -q '^snapshot at turn [0-9]*: [0-9]* routes$' "$work/text" || fail "text follower: $(head -3 "$work/text")"
grep -q 'another writer took over' "$work/text" || fail "text follower: no resync line"
if "$python" -c 'import json, sys
for line in open(sys.argv[1]):
    e = json.loads(line)
    if "vrf" in e and e["vrf"] is not None and (e["vrf"]["name"] != "red" or e["af"] != 4):
        sys.exit(1)' "$work/red"; then :; else fail "follow --vrf red --af 4 printed another VRF or family"; fi
grep -q '"event":"route"' "$work/red" || fail "follow --vrf red printed no route"
stops "${followers[-1]}" TERM
stops "${followers[-2]}" INT
stops "${followers[-3]}" TERM

# Errors, as show reports them.
expect_error() { # PART ARGS...
  local part=$1 err status
  shift
  err=$(timeout 10 "$connroute" show "$@" 2>&1 > /dev/null)  # a follower that starts never ends
  status=$?
  [ "$status" -eq 2 ] && [[ "$err" == *"$part"* ]] || fail "show $* -> exit $status: $err (wanted 2 and '$part')"
}
mkdir -p "$work/other" && printf 'not lmdb' > "$work/other/data.mdb"
expect_error "no such table directory" --tables "$work/missing" follow
expect_error "cannot open the table directory" --tables "$work/other" follow
expect_error "no VRF 'blue'" --tables "$work/t" follow --vrf blue
expect_error "--af: 5 not in {4,6}" --tables "$work/t" follow --af 5
expect_error "--from: Value 0 not in range" --tables "$work/t" follow --from 0

# Metrics.
"$connroute" show --tables "$work/t" metrics > "$work/metrics.txt" || fail "show metrics"
"$python" "$here/prometheus_check.py" "$work/metrics.txt" \
  "connroute_routes{family=\"ipv4\",vrf=\"red\",vrf_id=\"1\"}=$("$connroute" show --tables "$work/t" routes --vrf red --af 4 --json | "$python" -c 'import json,sys; print(len(json.load(sys.stdin)["vrfs"][0]["ipv4Routes"]))')" \
  'connroute_agent_running=1' || fail "show metrics: $(head -5 "$work/metrics.txt")"

echo "follow.sh: $failures failures"
exit $((failures > 0))
