#!/usr/bin/env bash
# connroute live beside a widely used routing daemon on the same kernel
# addresses: one network namespace with N IPv4 addresses (each its own /24)
# and N/5 IPv6 addresses, on veth links of at most 1,000 addresses each (the
# kernel's time to add an address grows with the link's addresses).
#
#   start-up sync: from the daemon's start to every route in place
#   flood lag:     from the end of a flood of N address additions (ip -batch)
#                  to every route in place
#   lost:          routes missing at the end (an overflow the daemon did not
#                  recover from)
#   CPU, peak RSS: of the daemon, for the start-up sync
#
# After each connroute row, the size of its table directory on disk at the
# end of the start-up sync; after each bird2 row, connroute over bird2: the
# start-up sync, the CPU per route and the memory per route (connroute's
# peak RSS plus its table directory, over bird2's peak RSS), each daemon
# per route it writes (connroute writes four per IPv4 address, bird2 one).
#
# bird2 (its direct protocol, one route per address) runs when installed
# (apt-get install bird2); the benchmark never runs in CI.
# Usage: bench/peers/peers.sh CONNROUTE [N...]   (as root; default N: 1000 10000 50000)
set -euo pipefail
connroute=$(realpath "$1")
shift
sizes=("${@:-1000 10000 50000}")
[ $# -eq 0 ] && sizes=(1000 10000 50000)
work=$(mktemp -d)
# The table directory in shared memory, where it belongs on a switch: on a
# disk's file system every first touch of a page of the write map reads it.
tables=$(mktemp -d -p /dev/shm)/t
ns=peers$$
cleanup() {
  pkill -f "bird -c $work" 2> /dev/null || true
  umount "$work/netns/$ns" 2> /dev/null || true
  ip netns del "$ns" 2> /dev/null || true
  rm -rf "$work" "$(dirname "$tables")"
}
trap cleanup EXIT
now() { date +%s.%N; }
since() { echo "$(now) - $1" | bc -l | xargs printf '%.3f'; }

links() { echo $((($1 + 999) / 1000)); }

batch() { # N: the addresses as `ip -batch` lines
  for ((i = 0; i < $1; i++)); do
    echo "addr add 10.$((16 + i / 256)).$((i % 256)).1/24 dev p$((i / 1000))"
  done
  for ((i = 0; i < $1 / 5; i++)); do
    printf 'addr add 2001:db8:%x:%x::1/64 dev p%d nodad\n' $((i / 65536)) $((i % 65536)) $((i / 1000))
  done
}

fresh_namespace() { # N
  ip netns del "$ns" 2> /dev/null || true
  ip netns add "$ns"
  for ((l = 0; l < $(links "$1"); l++)); do
    echo "link add p$l type veth peer name q$l"
    echo "link set p$l up"
    echo "link set q$l up"
  done > "$work/links"
  ip -n "$ns" -batch "$work/links"
  mkdir -p "$work/netns"
  umount "$work/netns/$ns" 2> /dev/null || true
  touch "$work/netns/$ns"
  mount --bind "/run/netns/$ns" "$work/netns/$ns"
}

# Routes connroute has for the namespace's VRF, from its table directory
# (`show summary`: columns vrf, id, ipv4Routes, ipv6Routes, ...).
connroute_routes() {
  "$connroute" show --tables "$1" summary 2> /dev/null | awk -v ns="$ns" '$1 == ns {n = $3 + $4} END {print n + 0}'
}

bird_routes() {
  # one line per table (master4, master6): "N of N routes for N networks in table ..."
  birdc -s "$work/bird.ctl" show route count 2> /dev/null | awk '/routes for/ {n += $1} END {print n + 0}'
}

start_bird() {
  cat > "$work/bird.conf" << EOF
router id 10.255.255.1;
protocol device { scan time 10; }
protocol direct { ipv4; ipv6; interface "p*"; }
EOF
  ip netns exec "$ns" bird -c "$work/bird.conf" -s "$work/bird.ctl" -P "$work/bird.pid" -f &
}

peak() { # PID: sets cpu (seconds) and rss (KiB, the peak so far)
  cpu=$(echo "$(awk '{print $14 + $15}' "/proc/$1/stat") / $(getconf CLK_TCK)" | bc -l)
  rss=$(awk '/VmHWM/ {print $2}' "/proc/$1/status")
}
usage() { printf '%.2f s  %d MiB' "$cpu" $((rss / 1024)); }
ratio() { echo "($1) / ($2)" | bc -l | xargs printf '%.2f'; }

printf '| N | daemon | routes | start-up sync | CPU, peak RSS | flood lag | lost |\n|---|---|---|---|---|---|---|\n'
for n in "${sizes[@]}"; do
  batch "$n" > "$work/batch"
  want4=$((n * 4)) want6=$((n / 5 * 2))

  # connroute: start-up sync with the addresses in place.
  fresh_namespace "$n"
  ip -n "$ns" -batch "$work/batch"
  rm -rf "$tables"
  t0=$(now)
  "$connroute" live --tables "$tables" --netns-dir "$work/netns" 2> "$work/live.err" &
  pid=$!
  until [ "$(connroute_routes "$tables")" -ge $((want4 + want6)) ]; do sleep 0.01; done
  sync=$(since "$t0")
  peak "$pid"
  c_sync=$sync c_cpu=$cpu c_rss=$rss c_usage=$(usage)
  c_dir=$(du -sk "$tables" | awk '{print $1}')  # KiB on disk
  kill "$pid"; wait "$pid" || true
  # connroute: flood lag.
  fresh_namespace "$n"
  rm -rf "$tables"
  "$connroute" live --tables "$tables" --netns-dir "$work/netns" 2> "$work/live.err" &
  pid=$!
  until "$connroute" show --tables "$tables" ready 2> /dev/null | grep -q "$ns .*yes"; do sleep 0.01; done
  ip -n "$ns" -batch "$work/batch"
  t0=$(now)
  deadline=$((SECONDS + 120))
  until [ "$(connroute_routes "$tables")" -ge $((want4 + want6)) ] || [ $SECONDS -ge $deadline ]; do sleep 0.005; done
  lag=$(since "$t0")
  have=$(connroute_routes "$tables")
  kill "$pid"; wait "$pid" || true
  c_routes=$((want4 + want6))
  printf '| %d | connroute | %d | %s s | %s | %s s | %d |\n' "$n" "$c_routes" "$c_sync" "$c_usage" "$lag" \
    $((c_routes - have))
  printf 'table directory: %d MiB\n' $((c_dir / 1024))

  if command -v bird > /dev/null; then
    fresh_namespace "$n"
    ip -n "$ns" -batch "$work/batch"
    want=$((n + n / 5))
    t0=$(now)
    start_bird
    until [ "$(bird_routes)" -ge "$want" ] 2> /dev/null; do sleep 0.01; done
    sync=$(since "$t0")
    peak "$(cat "$work/bird.pid")"
    b_sync=$sync b_cpu=$cpu b_rss=$rss b_usage=$(usage)
    kill "$(cat "$work/bird.pid")"; sleep 0.2
    fresh_namespace "$n"
    start_bird
    until birdc -s "$work/bird.ctl" show status > /dev/null 2>&1; do sleep 0.01; done
    ip -n "$ns" -batch "$work/batch"
    t0=$(now)
    deadline=$((SECONDS + 120))
    until [ "$(bird_routes)" -ge "$want" ] 2> /dev/null || [ $SECONDS -ge $deadline ]; do sleep 0.005; done
    lag=$(since "$t0")
    have=$(bird_routes)
    kill "$(cat "$work/bird.pid")"; sleep 0.2
    printf '| %d | bird2 (direct) | %d | %s s | %s | %s s | %d |\n' "$n" "$want" "$b_sync" "$b_usage" "$lag" \
      $((want - have))
    printf 'connroute over bird2: start-up %sx, CPU per route %sx, memory per route %sx\n' \
      "$(ratio "$c_sync" "$b_sync")" "$(ratio "$c_cpu / $c_routes" "$b_cpu / $want")" \
      "$(ratio "($c_rss + $c_dir) / $c_routes" "$b_rss / $want")"
  fi
done
