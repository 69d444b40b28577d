#!/usr/bin/env bash
# The kernel as oracle: namespaces with veth links and a rich address set,
# `connroute live` beside them, and the routes it writes compared with the
# routes the kernel derives from the same addresses (routes_vs_kernel.py
# lists the deliberate differences). First with `--once`; then with a
# running agent while the host changes under it: a primary deleted, a link
# deleted, a link moved to another namespace, a namespace deleted, and a
# flood of 10,000 address changes.
#
# Usage: oracle.sh CONNROUTE     (as root; skipped where namespaces cannot be made)
set -uo pipefail
connroute=$1
here=$(cd "$(dirname "$0")" && pwd)
compare=$here/routes_vs_kernel.py
work=$(mktemp -d)
tag=cr$$
A=${tag}a B=${tag}b C=${tag}c
agent=
cleanup() {
  [ -n "$agent" ] && kill "$agent" 2> /dev/null && wait "$agent" 2> /dev/null
  umount "$work/netns/default" 2> /dev/null
  for ns in "$A" "$B" "$C"; do ip netns del "$ns" 2> /dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT
if [ "$(id -u)" -ne 0 ] || ! ip netns add "$A" 2> /dev/null; then
  echo "oracle.sh: skipped (needs root and network namespaces)"
  exit 0
fi
# Some sandboxes (a chroot whose root is no mount point, some containers)
# make a namespace's file but cannot enter it: the agent could serve none.
if ! entered=$(ip netns exec "$A" true 2>&1); then
  echo "oracle.sh: skipped (a network namespace can be made but not entered: $entered)"
  exit 0
fi
ip netns add "$B"
ip netns add "$C"
failures=0

n() { ip -n "$1" "${@:2}"; }
for ns in "$A" "$B" "$C"; do
  ip netns exec "$ns" sysctl -qw net.ipv4.conf.all.promote_secondaries=1 net.ipv4.conf.default.promote_secondaries=1
done
# A: a0 <-> b0 (in B), a1 <-> a2 (both in A), a3 down.
n "$A" link add a0 type veth peer name b0 netns "$B"
n "$A" link add a1 type veth peer name a2
n "$A" link add a3 type veth peer name a4
for l in a0 a1 a2 a4; do n "$A" link set "$l" up; done
n "$B" link set b0 up
n "$A" addr add 10.0.0.1/8 dev a0
n "$A" addr add 10.1.0.1/24 dev a0
n "$A" addr add 10.1.0.9/24 dev a0            # a secondary in the primary's subnet
n "$A" addr add 10.2.0.1/24 dev a0            # another primary: a secondary outside it
n "$A" addr add 10.70.0.0/16 dev a0           # the subnet's own network address
n "$A" addr add 10.1.0.2/24 dev a1            # one prefix on two interfaces
n "$A" addr add 10.4.0.0/31 dev a1
n "$A" addr add 10.5.0.1/32 dev a1
n "$A" addr add 10.12.1.1/4 dev a1            # a subnet in 0.0.0.0/8: a local route only
n "$A" addr add 10.13.0.1/0 dev a2            # and so is /0's
n "$A" addr add 192.168.3.5/30 dev a2
n "$A" addr add 10.8.0.1/24 dev a3            # a3 stays down
n "$A" addr add 2001:db8:a::1/64 dev a0 nodad
n "$A" addr add 2001:db8:b::/127 dev a0 nodad
n "$A" addr add 2001:db8:c::1/128 dev a0 nodad
n "$A" addr add 2001:db8:a::2/64 dev a1 nodad
n "$A" addr add fec0:0:0:1::1/64 dev a1 nodad    # site-local: routed by the kernel
ip netns exec "$A" sysctl -qw net.ipv6.conf.a2.optimistic_dad=1
n "$A" addr add 2001:db8:d::1/64 dev a2 optimistic  # routed before its DAD is over
n "$A" addr add 2001:db8:e::1/64 dev a3 nodad   # on the down link, like 10.8.0.1
n "$A" addr add 10.6.0.255/24 dev a4          # its subnet's broadcast address: local and broadcast
n "$A" addr add 10.7.0.3/30 dev a4            # the same in a /30
n "$A" addr add 10.9.1.1/24 brd 10.9.1.77 dev a4  # an explicit broadcast address
n "$A" addr add 10.1.0.255/32 dev a4          # another link's subnet broadcast address
n "$B" addr add 172.16.1.1/20 dev b0
n "$B" addr add 2001:db8:f::1/64 dev b0 nodad
# Point to point: the local address's own route, the peer's prefix attached.
n "$B" addr add 10.30.0.1 peer 10.30.0.2/32 dev b0
n "$B" addr add 10.31.0.1 peer 10.31.1.0/30 dev b0    # a subnet with no address of its own
n "$B" addr add 10.31.0.5 peer 10.31.1.1/30 dev b0    # a secondary: the same peer subnet
n "$B" addr add 10.34.0.0/30 dev b0
n "$B" addr add 10.34.0.9 peer 10.34.0.0/30 dev b0    # a peer subnet equal to an address
n "$B" addr add 10.35.0.1 peer 0.0.0.7/24 dev b0      # a peer subnet in 0.0.0.0/8: no route
n "$B" addr add 10.37.0.2/24 dev b0
n "$B" addr add 10.37.1.1 peer 10.37.0.2 dev b0       # a /32 peer that is an own address
n "$B" addr add 2001:db8:30::1 peer 2001:db8:30::2/128 dev b0 nodad
n "$B" addr add 2001:db8:31::1 peer 2001:db8:32::/64 dev b0 nodad  # the own /64, the peer's /128
# Scopes: an IPv4 address of host or link scope has its routes as any;
# IPv6 takes no scope from the user; a deprecated address keeps its routes.
n "$B" addr add 10.41.0.1/24 scope host dev b0
n "$B" addr add 10.42.0.1/24 scope link dev b0
n "$B" addr add 2001:db8:43::1/64 dev b0 nodad preferred_lft 0
# noprefixroute: the local route (and for IPv4 the broadcast route) only.
n "$B" addr add 10.32.0.1/24 noprefixroute dev b0
n "$B" addr add 10.33.0.1 peer 10.33.1.0/24 noprefixroute dev b0
n "$B" addr add 2001:db8:33::1/64 noprefixroute dev b0 nodad
n "$B" addr add 2001:db8:34::1 peer 2001:db8:35::1/64 noprefixroute dev b0 nodad
n "$B" link add b8 type veth peer name b9
n "$B" link set b8 up
n "$C" link add c0 type veth peer name c1
n "$C" link set c0 up
n "$C" addr add 10.99.0.1/24 dev c0
ip netns exec "$A" sysctl -qw net.ipv4.conf.a0.bc_forwarding=1

# check FILE NS [DOWN_ADDRS]: the VRF of namespace NS in FILE against its kernel.
check() {
  n "$2" -j route show table all > "$work/k4.json"
  n "$2" -j -6 route show table all > "$work/k6.json"
  python3 "$compare" "$1" "$2" "$work/k4.json" "$work/k6.json" "${3:-}"
}

# 1. A fresh agent, once everything is ready.
if ! "$connroute" live --once --json > "$work/once.json" 2> "$work/once.err"; then
  echo "live --once failed: $(cat "$work/once.err")" >&2
  exit 1
fi
check "$work/once.json" "$A" 10.8.0.1,2001:db8:e::1 || failures=$((failures + 1))
check "$work/once.json" "$B" || failures=$((failures + 1))
check "$work/once.json" "$C" || failures=$((failures + 1))

# A namespace file named like the default VRF, here A's namespace under
# the name "default" in a directory of the test's own: it is not served,
# and VRF default stays the agent's own namespace.
mkdir "$work/netns" && touch "$work/netns/default"
if mount --bind "/run/netns/$A" "$work/netns/default" 2> /dev/null; then
  "$connroute" live --once --json --netns-dir "$work/netns" > "$work/default.json" 2> "$work/default.err"
  umount "$work/netns/default"
  grep -q "namespace 'default' is not served" "$work/default.err" ||
    { echo "a namespace file named default was not refused: $(cat "$work/default.err")" >&2; failures=$((failures + 1)); }
  if ! grep -q '"name":"default"' "$work/default.json" || grep -q '"10.1.0.0/24"' "$work/default.json"; then
    echo "VRF default is not the agent's own namespace: $(head -c 300 "$work/default.json")" >&2
    failures=$((failures + 1))
  fi
fi

# 2. A running agent while the host changes.
"$connroute" live --tables "$work/tables" 2> "$work/live.err" &
agent=$!
# settled NS...: polls until each namespace's VRF matches its kernel (at
# most 30 s), then reports the last comparison.
settled() {
  local deadline=$((SECONDS + 30)) ok
  while :; do
    ok=1
    "$connroute" show --tables "$work/tables" routes --json > "$work/show.json" 2> /dev/null || ok=0
    for ns in "$@"; do
      [ "$ok" = 1 ] && ! check "$work/show.json" "$ns" "${down[$ns]:-}" > /dev/null && ok=0
    done
    if [ "$ok" = 1 ] || [ $SECONDS -ge $deadline ]; then
      for ns in "$@"; do check "$work/show.json" "$ns" "${down[$ns]:-}" || failures=$((failures + 1)); done
      return
    fi
    sleep 0.2
  done
}
declare -A down=(["$A"]=10.8.0.1,2001:db8:e::1)
settled "$A" "$B" "$C"

n "$A" addr del 10.1.0.1/24 dev a0            # the primary: 10.1.0.9 is promoted
n "$A" link del a1                            # and a2 with it
n "$B" link set b9 netns "$A"                 # a link moves to another namespace
n "$A" link set b9 up
n "$A" addr add 10.60.0.1/24 dev b9
n "$B" addr del 10.31.0.1 peer 10.31.1.0/30 dev b0   # a point-to-point primary: its secondary promoted
n "$B" addr del 10.34.0.0/30 dev b0           # the peer subnet it held back is the peer's again
n "$B" addr add 10.36.0.1 peer 10.36.0.64/26 dev b0
n "$B" addr change 2001:db8:33::1/64 dev b0 nodad   # noprefixroute turned off in place
ip netns del "$C"                             # a VRF goes
settled "$A" "$B"
if grep -q "$C" <("$connroute" show --tables "$work/tables" summary); then
  echo "the VRF of the deleted namespace $C is still served" >&2
  failures=$((failures + 1))
fi

# A namespace made again under the name of the deleted one, then deleted
# and made anew at once: each time another namespace, another VRF content.
remake() { # ADDRESS
  ip netns del "$C" 2> /dev/null
  ip netns add "$C"
  n "$C" link add c0 type veth peer name c1
  n "$C" link set c0 up
  n "$C" addr add "$1" dev c0
}
remake 10.98.0.1/24
settled "$C"
remake 10.97.0.1/24
settled "$C"

# A flood of 10,000 address changes, as fast as `ip` makes them: 7,500
# addresses added, then 2,500 of them removed again.
for i in $(seq 0 7499); do echo "addr add 10.200.$((i / 250)).$((i % 250 + 1))/32 dev b9"; done > "$work/add.batch"
head -n 2500 "$work/add.batch" | sed 's/^addr add/addr del/' > "$work/del.batch"
ip -n "$A" -batch "$work/add.batch"
ip -n "$A" -batch "$work/del.batch"
settled "$A"

# bc_forwarding: a directed broadcast is forwarded only when it is on for
# the link and for "all"; the kernel announces no change of it, so the
# agent reads the settings every second. a0 has it on since the start.
bc_type() { # NS PREFIX: the type of the engine's route for PREFIX in NS's VRF
  "$connroute" show --tables "$work/tables" routes --vrf "$1" --json |
    /usr/bin/python3 -c 'import json, sys
d = json.load(sys.stdin)
print(next((r["type"] for v in d["vrfs"] for r in v["ipv4Routes"] if r["prefix"] == sys.argv[1]), "none"))' "$2"
}
expect_type() { # NS PREFIX TYPE WHY: within 5 s
  local deadline=$((SECONDS + 5)) type
  while type=$(bc_type "$1" "$2"); [ "$type" != "$3" ] && [ $SECONDS -lt $deadline ]; do sleep 0.1; done
  [ "$type" = "$3" ] || { echo "$4: $2 has type $type, not $3" >&2; failures=$((failures + 1)); }
}
expect_type "$A" 10.2.0.255/32 3 "bc_forwarding on for a0 only"
ip netns exec "$A" sysctl -qw net.ipv4.conf.all.bc_forwarding=1
expect_type "$A" 10.2.0.255/32 4 "bc_forwarding on for a0 and all"
ip netns exec "$A" sysctl -qw net.ipv4.conf.a0.bc_forwarding=0
expect_type "$A" 10.2.0.255/32 3 "bc_forwarding on for all only"

kill "$agent"
wait "$agent"
status=$?
agent=
if [ "$status" -ne 0 ]; then
  echo "the agent did not stop cleanly on SIGTERM (exit $status): $(tail -3 "$work/live.err")" >&2
  failures=$((failures + 1))
fi

# 3. A hitless restart over the tables the agent left, with a receive
# buffer so small that a flood overflows it: the agent reads the namespace
# again and loses nothing. A namespace deleted while the agent was down
# leaves nothing behind, as after a cold start.
ip netns del "$C"
"$connroute" live --tables "$work/tables" --rcvbuf 4096 2> "$work/small.err" &
agent=$!
settled "$A" "$B"
grep -q "hitless restart" "$work/small.err" || { echo "the rerun was no hitless restart" >&2; failures=$((failures + 1)); }
if "$connroute" show --tables "$work/tables" summary | grep -q -e "$C" -e "^ *? "; then
  echo "the tables of $C, deleted while the agent was down, are still there: $("$connroute" show --tables "$work/tables" summary)" >&2
  failures=$((failures + 1))
fi
for i in $(seq 0 4999); do echo "addr add 10.201.$((i / 250)).$((i % 250 + 1))/32 dev b9"; done > "$work/flood.batch"
ip -n "$A" -batch "$work/flood.batch"
settled "$A"
grep -q "messages were lost" "$work/small.err" || echo "note: the small buffer did not overflow" >&2
kill "$agent"
wait "$agent"
agent=
echo "oracle.sh: $failures failures"
exit $((failures > 0))
