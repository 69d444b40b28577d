#!/usr/bin/env bash
# The program's command line: every usage and input error exits 2 with a
# message naming what is wrong; a failed write exits 1; --version and
# --help exit 0. Usage: cli.sh CONNROUTE EXAMPLES_DIR
set -uo pipefail
connroute=$1 examples=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# expect STATUS MESSAGE_PART -- COMMAND...
expect() {
  local status=$1 part=$2
  shift 3
  local err actual
  err=$("$@" 2>&1 >/dev/null)
  actual=$?
  if [ "$actual" -ne "$status" ] || [[ "$err" != *"$part"* ]]; then
    echo "FAIL: $* -> exit $actual, stderr: $err (wanted exit $status and '$part')" >&2
    failures=$((failures + 1))
  fi
}

printf '{"steps": [{"start": {}}, {"dump": "x"}]}' > "$work/ok.json"
printf '{"steps": [{"start": {}}], "steps": []}' > "$work/dup.json"
printf '{"steps": [{"advance": "nans"}]}' > "$work/nan.json"
mkfifo "$work/fifo"
printf 'ZMK1garbage' > "$work/bad.zm"

# Usage errors.
expect 2 "not expected: --bogus" -- "$connroute" --bogus
expect 2 "a command is required" -- "$connroute"
expect 2 "not expected: extra" -- "$connroute" run "$work/ok.json" extra
expect 2 "scenario is required" -- "$connroute" check
expect 2 "file is required" -- "$connroute" zmdecode
expect 2 "--trace: bad trace levels" -- "$connroute" run --trace 'x/y' "$work/ok.json"
expect 2 "--fast-trace: bad fast-trace levels" -- "$connroute" run --fast-trace zz "$work/ok.json"
# Environment: reported as itself; the flag replaces its variable.
expect 2 "CONNROUTE_TRACE: bad trace levels" -- env CONNROUTE_TRACE='bad//x' "$connroute" run "$work/ok.json"
expect 0 "" -- env CONNROUTE_TRACE='bad//x' "$connroute" run --trace 'IntfBacklogSm/0' "$work/ok.json"
expect 2 "CONNROUTE_FASTTRACE: bad fast-trace levels" -- env CONNROUTE_FASTTRACE=zz "$connroute" check "$work/ok.json"
expect 2 "CONNROUTE_TOGGLES: unknown toggle 'Nope'" -- env CONNROUTE_TOGGLES=Nope "$connroute" run "$work/ok.json"
# Input files.
expect 2 "cannot read the file: No such file" -- "$connroute" run "$work/missing.json"
expect 2 "/dev/zero: not a regular file" -- "$connroute" run /dev/zero
expect 2 "not a regular file" -- "$connroute" check "$work/fifo"
expect 2 "not a regular file" -- "$connroute" zmdecode /dev/zero
expect 2 "duplicate key 'steps'" -- "$connroute" run "$work/dup.json"
expect 2 "step 1 (advance): bad duration 'nans'" -- "$connroute" check "$work/nan.json"
expect 2 "bad.zm: not a fast-trace file" -- "$connroute" zmdecode "$work/bad.zm"
# Output.
expect 1 "cannot write the output" -- sh -c "'$connroute' run '$examples/two-vrfs.json' > /dev/full"
expect 1 "cannot write the output" -- sh -c "'$connroute' check '$work/ok.json' > /dev/full"
expect 1 "cannot write the output" -- sh -c "'$connroute' --version > /dev/full"
expect 1 "cannot write the output" -- sh -c "'$connroute' --help > /dev/full"
expect 0 "" -- "$connroute" --version
expect 0 "" -- "$connroute" --help
# Table directories: `show` of one that is missing, foreign or of another
# layout; a second writer; a directory that cannot be created.
mkdir -p "$work/empty" "$work/other"
printf 'not lmdb' > "$work/other/data.mdb"
expect 2 "no such table directory" -- "$connroute" show --tables "$work/missing" summary
expect 2 "not a connroute table directory" -- "$connroute" show --tables "$work/empty" routes
expect 2 "cannot open the table directory" -- "$connroute" show --tables "$work/other" routes
expect 2 "--tables is required" -- "$connroute" show routes
expect 2 "A subcommand is required" -- "$connroute" show --tables "$work/empty"
expect 2 "cannot create the table directory" -- "$connroute" run --tables "$work/ok.json/t" "$work/ok.json"
expect 0 "" -- "$connroute" run --tables "$work/t" "$examples/two-vrfs.json"
expect 2 "no VRF 'blue'" -- "$connroute" show --tables "$work/t" routes --vrf blue
expect 2 "--vrf is required" -- "$connroute" show --tables "$work/t" prefix 10.0.0.0/24
expect 2 "'10.0.0.0' is not a prefix" -- "$connroute" show --tables "$work/t" prefix 10.0.0.0 --vrf red
expect 2 "--af: 5 not in {4,6}" -- "$connroute" show --tables "$work/t" routes --af 5
expect 1 "cannot write the output" -- sh -c "'$connroute' show --tables '$work/t' routes > /dev/full"
# A VRF keeps its name in the directory once the agent has stopped, and
# every JSON output names it the same way.
printf '%s\n' '{"steps": [{"vrfIdMap": {"set": {"default": 0, "red": 1}}},' \
  '{"vrfLocal": {"vrf": "red", "netns": "ns-red", "state": "active"}},' \
  '{"kernel": {"netns": "ns-red", "up": ["Et1"]}},' \
  '{"ipv4": {"vrf": "red", "intf": "Et1", "active": "10.0.0.3/24"}},' \
  '{"start": {}}, {"run": "idle"}, {"dump": "served"}, {"stop": {}}]}' > "$work/stops.json"
"$connroute" run --json --tables "$work/stopped" "$work/stops.json" > "$work/stops.out"
expect 0 "" -- "$connroute" show --tables "$work/stopped" routes --vrf red
"$connroute" show --tables "$work/stopped" routes --vrf red --json > "$work/stopped.json"
if ! grep -q '"vrf": {"id":1,"name":"red"}' "$work/stops.out" ||
   ! grep -q '"vrf": {"id":1,"name":"red"}' "$work/stopped.json"; then
  echo "FAIL: run --json and show --json name VRF red differently: $(grep -h '"vrf"' "$work/stops.out" "$work/stopped.json")" >&2
  failures=$((failures + 1))
fi
# A directory another user may not enter is reported as such, by a copy of
# the program that user may run.
mkdir -p "$work/user" && chmod 755 "$work" "$work/user" && cp "$connroute" "$work/user/connroute"
mkdir -p "$work/private" && cp -r "$work/t" "$work/private/t" && chmod 700 "$work/private"
expect 2 "private/t: permission denied" -- \
  setpriv --reuid=65534 --regid=65534 --clear-groups "$work/user/connroute" show --tables "$work/private/t" routes
# The live agent's inputs, refused before it touches the host.
printf 'red 7\nblue x\n' > "$work/bad.ids"
printf 'default 3\n' > "$work/default.ids"
expect 2 "cannot read the VRF identifiers" -- "$connroute" live --once --vrf-ids "$work/missing.ids"
expect 2 "bad.ids:2: expected 'name id'" -- "$connroute" live --once --vrf-ids "$work/bad.ids"
expect 2 "identifier 0 is the default VRF's" -- "$connroute" live --once --vrf-ids "$work/default.ids"
expect 2 "--rcvbuf: Value 1 not in range" -- "$connroute" live --once --rcvbuf 1
expect 2 "--json requires --once" -- "$connroute" live --json
expect 2 "--netns-dir: $work/ok.json is not a directory" -- "$connroute" live --once --netns-dir "$work/ok.json"
expect 2 "needs CAP_SYS_ADMIN: run it as root" -- setpriv --bounding-set=-sys_admin "$connroute" live --once
# A file of the netns directory that is no namespace is given up, not waited for.
mkdir -p "$work/netns" && touch "$work/netns/stale"
expect 0 "namespace 'stale' is not served" -- "$connroute" live --once --netns-dir "$work/netns"
# A play starts again once with heap huge pages, where the kernel backs
# memory with them only on advice; a setting of the user's own stands; the
# live agent keeps its environment. Each is looked at while it runs, under
# its own name: the play once its output (over 64 KiB, written after the
# play) fills a pipe nobody empties yet, the agent once it has spoken.
want_tunables() { # GIVEN: what a running play's environment must hold
  if [ -n "$1" ] || ! grep -q '\[madvise\]' /sys/kernel/mm/transparent_hugepage/enabled 2> /dev/null; then
    echo "$1"
  else
    echo glibc.malloc.hugetlb=1
  fi
}
# check_running WHAT PID GIVEN WANTED: the environment and name of a running command
check_running() {
  local have name
  have=$(tr '\0' '\n' < "/proc/$2/environ" | sed -n 's/^GLIBC_TUNABLES=//p')
  name=$(cat "/proc/$2/comm")
  if [ "$have" != "$4" ] || [ "$name" != connroute ]; then
    echo "FAIL: $1 started with GLIBC_TUNABLES='$3' runs as '$name' with '$have', not as 'connroute' with '$4'" >&2
    failures=$((failures + 1))
  fi
}
python3 "$examples/../bench/app/gen-scenario.py" 1 300 1 > "$work/big.json"
mkfifo "$work/out"
for given in "" glibc.malloc.arena_max=2; do
  if [ -n "$given" ]; then
    GLIBC_TUNABLES=$given "$connroute" run "$work/big.json" > "$work/out" &
  else
    env -u GLIBC_TUNABLES "$connroute" run "$work/big.json" > "$work/out" &
  fi
  pid=$!
  exec 7< "$work/out"
  read -r -n 1 -u 7  # the play is over and its output on the way
  check_running run "$pid" "$given" "$(want_tunables "$given")"
  cat <&7 > /dev/null
  exec 7<&-
  wait "$pid"
done
# A namespace whose name no VRF can have is reported once, however often
# the directory changes after it.
mkdir -p "$work/netns2" && long=$(printf 'n%.0s' $(seq 120)) && touch "$work/netns2/$long"
touch "$work/netns2/default"  # named like the host's own namespace's VRF
: > "$work/live2.err"
"$connroute" live --netns-dir "$work/netns2" 2> "$work/live2.err" &
pid=$!
for _ in $(seq 500); do grep -q "VRF default ready" "$work/live2.err" && break; sleep 0.01; done
touch "$work/netns2/other"  # no namespace: given up after a second of retries
for _ in $(seq 500); do grep -q "'other' is not served" "$work/live2.err" && break; sleep 0.01; done
kill -TERM "$pid"
wait "$pid"
if [ "$(grep -c "'$long' is not served: VrfName::bytes > 100" "$work/live2.err")" != 1 ] ||
   [ "$(grep -c "'default' is not served: 'default' is the host's own" "$work/live2.err")" != 1 ] ||
   ! grep -q "'other' is not served" "$work/live2.err"; then
  echo "FAIL: a name no VRF can have is not reported exactly once: $(cat "$work/live2.err")" >&2
  failures=$((failures + 1))
fi
: > "$work/live.err"
env -u GLIBC_TUNABLES "$connroute" live --netns-dir "$work/netns" 2> "$work/live.err" &
pid=$!
for _ in $(seq 500); do [ -s "$work/live.err" ] && break; sleep 0.01; done
check_running live "$pid" "" ""
kill -TERM "$pid"
wait "$pid"
exec 9>>"$work/t/writer.lock"
flock -x 9
expect 2 "another connroute is writing these tables" -- "$connroute" run --tables "$work/t" "$work/ok.json"
exec 9>&-

version=$(sed -n 's/^project(connroute VERSION \([0-9.]*\).*/\1/p' "$examples/../CMakeLists.txt")
if [ "$("$connroute" --version)" != "connroute $version" ]; then
  echo "FAIL: --version prints '$("$connroute" --version)', not 'connroute $version'" >&2
  failures=$((failures + 1))
fi
exit $((failures > 0))
