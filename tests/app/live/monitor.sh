#!/usr/bin/env bash
# Watching the live agent: a follower attached to its tables through a
# flood of 50,000 addresses ends with exactly the routes `show routes`
# prints; the agent's metrics file, read back through node_exporter's
# textfile collector over HTTP, counts those routes and the namespace's
# rtnetlink messages; an unwritable metrics file is reported once and the
# agent goes on.
#
# Usage: monitor.sh CONNROUTE     (as root; skipped where namespaces cannot be made)
set -uo pipefail
connroute=$1
here=$(cd "$(dirname "$0")" && pwd)
python=/usr/bin/python3
work=$(mktemp -d)
ns=crm$$
agent= follower= exporter=
cleanup() {
  for pid in $agent $follower $exporter; do kill "$pid" 2> /dev/null && wait "$pid" 2> /dev/null; done
  ip netns del "$ns" 2> /dev/null
  rm -rf "$work"
}
trap cleanup EXIT
if [ "$(id -u)" -ne 0 ] || ! ip netns add "$ns" 2> /dev/null; then
  echo "monitor.sh: skipped (needs root and network namespaces)"
  exit 0
fi
if ! entered=$(ip netns exec "$ns" true 2>&1); then
  echo "monitor.sh: skipped (a network namespace can be made but not entered: $entered)"
  exit 0
fi
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
# until SECONDS WHAT COMMAND...: polls COMMAND until it succeeds.
until_true() {
  local deadline=$((SECONDS + $1)) what=$2
  shift 2
  until "$@"; do
    [ $SECONDS -lt $deadline ] || { fail "$what"; return 1; }
    sleep 0.2
  done
}

# 50 veth pairs: the kernel adds an address in time linear in the link's
# addresses, so a link of 50,000 would take minutes to fill.
for l in $(seq 0 49); do
  echo "link add m$l type veth peer name p$l"
  echo "link set m$l up"
  echo "link set p$l up"
done > "$work/links"
ip -n "$ns" -batch "$work/links"
mkdir -p "$work/textfile"
"$connroute" live --tables "$work/t" --netns-dir "/run/netns" --metrics-file "$work/textfile/connroute.prom" \
  --metrics-interval 0.2 2> "$work/live.err" &
agent=$!
ready() { "$connroute" show --tables "$work/t" ready 2> /dev/null | grep -q "$ns"; }
until_true 30 "VRF $ns never served" ready

"$connroute" show --tables "$work/t" follow --json > "$work/events" 2> "$work/follow.err" &
follower=$!
until_true 10 "the follower printed no snapshot" grep -q '"event":"snapshot"' "$work/events"

# 40,000 IPv4 /24s and 10,000 IPv6 /64s, 1,000 a link, as fast as `ip` adds them.
for i in $(seq 0 39999); do echo "addr add 10.$((16 + i / 256)).$((i % 256)).1/24 dev m$((i / 1000))"; done > "$work/flood"
for i in $(seq 0 9999); do printf 'addr add 2001:db8:%x::1/64 dev m%d nodad\n' "$i" $((40 + i / 1000)); done >> "$work/flood"
ip -n "$ns" -batch "$work/flood"
settled() {
  "$connroute" show --tables "$work/t" summary --vrf "$ns" --json > "$work/summary.json" 2> /dev/null &&
    "$python" -c 'import json, sys
v = json.load(open(sys.argv[1]))["vrfs"][0]
sys.exit(not (v["backlog"] == 0 and v["ipv4Routes"] == 160000 and v["ipv6Routes"] == 20000))' "$work/summary.json"
}
until_true 60 "the flood never settled: $(cat "$work/summary.json" 2> /dev/null)" settled
"$connroute" show --tables "$work/t" routes --json > "$work/show.json"
"$python" "$here/../follow_check.py" "$work/events" "$work/show.json" 20 || fail "the follower's routes are not show's"
kill -INT "$follower"
gone() { ! kill -0 "$follower" 2> /dev/null; }
until_true 10 "the follower still runs 10 s after SIGINT" gone || kill -9 "$follower"
wait "$follower" || fail "the follower did not end with status 0 on SIGINT: $(cat "$work/follow.err")"
follower=

# node_exporter's textfile collector, on a free port of 127.0.0.1.
for attempt in 1 2 3 4 5; do
  port=$((20000 + RANDOM % 20000))
  prometheus-node-exporter --web.listen-address="127.0.0.1:$port" --collector.disable-defaults \
    --collector.textfile --collector.textfile.directory="$work/textfile" 2> "$work/exporter.err" &
  exporter=$!
  scrape() { "$python" -c 'import sys, urllib.request
sys.stdout.write(urllib.request.urlopen(sys.argv[1], timeout=2).read().decode())' \
    "http://127.0.0.1:$port/metrics" > "$work/scraped" 2> /dev/null; }
  deadline=$((SECONDS + 10))
  until scrape || ! kill -0 "$exporter" 2> /dev/null || [ $SECONDS -ge $deadline ]; do sleep 0.1; done
  kill -0 "$exporter" 2> /dev/null && break
  wait "$exporter"
  exporter=
done
if [ -z "$exporter" ]; then
  fail "node_exporter did not start: $(tail -3 "$work/exporter.err")"
else
  grep '^connroute_\|^# [A-Z]* connroute_' "$work/scraped" > "$work/connroute.prom"
  messages=$(sed -n "s/^connroute_netlink_messages_total{netns=\"$ns\"} //p" "$work/connroute.prom")
  [ "${messages:-0}" -ge 50000 ] 2> /dev/null || fail "node_exporter serves $ns's netlink messages as '${messages:-}'"
  "$python" "$here/../prometheus_check.py" "$work/connroute.prom" \
    "connroute_routes{family=\"ipv4\",vrf=\"$ns\",vrf_id=\"$(sed -n "s/.*serving VRF $ns (id \([0-9]*\)).*/\1/p" "$work/live.err")\"}=160000" \
    "connroute_netlink_events_lost_total{netns=\"$ns\"}=0" 'connroute_agent_running=1' ||
    fail "the metrics node_exporter serves"
fi

# A metrics file that cannot be written: reported once, and the agent goes on.
# (Root writes through any mode: the directory is taken away instead.)
mv "$work/textfile" "$work/textfile.gone"
ip -n "$ns" addr add 10.250.0.1/24 dev m0
has_route() { "$connroute" show --tables "$work/t" prefix 10.250.0.0/24 --vrf "$ns" 2> /dev/null | grep -q "owner $ns:m0"; }
until_true 10 "the agent stopped serving after its metrics file failed" has_route
reported_once() { grep -q "metrics file.*cannot write" "$work/live.err"; }
until_true 10 "an unwritable metrics file was never reported" reported_once
# Five more rewrites fail the same way: reported no more.
sleep 1
reported=$(grep -c "metrics file.*cannot write" "$work/live.err")
[ "$reported" -eq 1 ] || fail "an unwritable metrics file was reported $reported times: $(grep metrics "$work/live.err")"
kill -0 "$agent" || fail "the agent stopped"

kill "$agent"
wait "$agent" || fail "the agent did not stop cleanly"
agent=
echo "monitor.sh: $failures failures"
exit $((failures > 0))
