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
# The live agent's inputs, refused before it touches the host.
printf 'red 7\nblue x\n' > "$work/bad.ids"
printf 'default 3\n' > "$work/default.ids"
expect 2 "cannot read the VRF identifiers" -- "$connroute" live --once --vrf-ids "$work/missing.ids"
expect 2 "bad.ids:2: expected 'name id'" -- "$connroute" live --once --vrf-ids "$work/bad.ids"
expect 2 "identifier 0 is the default VRF's" -- "$connroute" live --once --vrf-ids "$work/default.ids"
expect 2 "--rcvbuf: Value 1 not in range" -- "$connroute" live --once --rcvbuf 1
# A file of the netns directory that is no namespace is given up, not waited for.
mkdir -p "$work/netns" && touch "$work/netns/stale"
expect 0 "namespace 'stale' is not served" -- "$connroute" live --once --netns-dir "$work/netns"
# The commands that build tables start again once with heap huge pages,
# where the kernel backs memory with them only on advice; a setting of the
# user's own stands. The agent speaks only once it has started for good.
want_tunables() { # GIVEN: what the running agent's environment must hold
  if [ -n "$1" ] || ! grep -q '\[madvise\]' /sys/kernel/mm/transparent_hugepage/enabled 2> /dev/null; then
    echo "$1"
  else
    echo glibc.malloc.hugetlb=1
  fi
}
for given in "" glibc.malloc.arena_max=2; do
  : > "$work/live.err"
  if [ -n "$given" ]; then
    GLIBC_TUNABLES=$given "$connroute" live --netns-dir "$work/netns" 2> "$work/live.err" &
  else
    env -u GLIBC_TUNABLES "$connroute" live --netns-dir "$work/netns" 2> "$work/live.err" &
  fi
  pid=$!
  for _ in $(seq 500); do [ -s "$work/live.err" ] && break; sleep 0.01; done
  have=$(tr '\0' '\n' < "/proc/$pid/environ" | sed -n 's/^GLIBC_TUNABLES=//p')
  name=$(cat "/proc/$pid/comm")
  kill -TERM "$pid"
  wait "$pid"
  if [ "$have" != "$(want_tunables "$given")" ]; then
    echo "FAIL: live started with GLIBC_TUNABLES='$given' runs with '$have', not '$(want_tunables "$given")'" >&2
    failures=$((failures + 1))
  fi
  if [ "$name" != connroute ]; then
    echo "FAIL: live runs as '$name', not 'connroute' (what ps and pgrep look for)" >&2
    failures=$((failures + 1))
  fi
done
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
