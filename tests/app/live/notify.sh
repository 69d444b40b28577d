#!/usr/bin/env bash
# The agent under a service manager: a datagram socket stands in for
# systemd's NOTIFY_SOCKET, and the messages it gets are checked in order.
# With --once: READY=1 once every VRF is ready, then STOPPING=1. Running
# with a watchdog of 0.2 s until SIGTERM: WATCHDOG=1 every 0.1 s or so,
# STOPPING=1 last. Only the default namespace is served (an empty netns
# directory). Then the unit file passes `systemd-analyze verify`.
# Usage: notify.sh CONNROUTE PACKAGING_DIR
set -uo pipefail
connroute=$1 packaging=$2
if [ "$(id -u)" -ne 0 ]; then
  echo "notify.sh: skipped (the agent runs as root)"
  exit 0
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/netns"
failures=0

# listen SECONDS COMMAND...: runs COMMAND with NOTIFY_SOCKET set, collects
# what arrives until it exits, and prints one message a line.
listen() {
  /usr/bin/python3 - "$work/notify" "$@" <<'PY'
import os, socket, subprocess, sys
path, command = sys.argv[1], sys.argv[2:]
sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
sock.bind(path)
agent = subprocess.Popen(command, env=dict(os.environ, NOTIFY_SOCKET=path),
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
# Read as the messages come, as a service manager does: a datagram socket
# queues only a few (net.unix.max_dgram_qlen) before the sender must wait.
sock.settimeout(0.05)
while True:
    try:
        print(sock.recv(4096).decode(), flush=True)
    except socket.timeout:
        if agent.poll() is not None:
            break
os.unlink(path)
sys.exit(agent.returncode)
PY
}

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

once=$(listen "$connroute" live --once --netns-dir "$work/netns") || fail "live --once exited $?"
order=$(grep -v '^STATUS=' <<< "$once" | tr '\n' ' ')
[ "$order" = "READY=1 STOPPING=1 " ] || fail "live --once told '$order', not 'READY=1 STOPPING=1'"
grep -q '^STATUS=VRFs served 1, ready 1, routes [0-9]*, backlog 0$' <<< "$once" ||
  fail "no final status of one ready VRF: $once"

watched=$(listen env WATCHDOG_USEC=200000 timeout -s TERM 1 "$connroute" live --netns-dir "$work/netns")
pings=$(grep -c '^WATCHDOG=1$' <<< "$watched")
[ "$pings" -ge 5 ] || fail "$pings watchdog pings in a second at an interval of 0.2 s: $watched"
[ "$(grep -v '^STATUS=' <<< "$watched" | tail -1)" = STOPPING=1 ] || fail "STOPPING=1 is not the last word: $watched"
[ "$(grep -c '^READY=1$' <<< "$watched")" = 1 ] || fail "READY=1 not told exactly once: $watched"

if command -v systemd-analyze > /dev/null; then
  sed "s|/usr/local/bin/connroute|$(realpath "$connroute")|" "$packaging/connroute.service" > "$work/connroute.service"
  verified=$(systemd-analyze verify "$work/connroute.service" 2>&1) || fail "systemd-analyze verify: $verified"
else
  echo "notify.sh: systemd-analyze not installed, the unit file not verified"
fi
echo "notify.sh: $failures failures"
exit $((failures > 0))
