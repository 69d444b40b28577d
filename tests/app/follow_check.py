"""Replays what `connroute show follow --json` printed and compares the
routes it arrives at with `connroute show routes --json`.

Usage: follow_check.py EVENTS SHOW_ROUTES [TIMEOUT]

EVENTS is the follower's output, still being written: it is read again
until its routes equal the expected ones or TIMEOUT seconds (default 0:
once) have passed. Exit 0 when they are equal; 1 with the differences.
"""
import json
import sys
import time


def key(vrf, af):
    return (vrf["id"], af)


def replay(lines):
    """The routes the events describe: {(vrf id, af): {prefix: route}}."""
    tables, last_seq = {}, 0
    for number, line in enumerate(lines, 1):
        if not line.endswith("\n"):
            break  # the line being written
        event = json.loads(line)
        seq, kind = event["seq"], event["event"]
        if seq < last_seq:
            raise ValueError(f"line {number}: turn {seq} after turn {last_seq}")
        last_seq = seq
        if kind == "snapshot":
            tables = {}
        elif kind in ("route", "added", "changed"):
            route = event["route"]
            table = tables.setdefault(key(event["vrf"], event["af"]), {})
            # A snapshot or a log that reports a change twice shows here.
            if (route["prefix"] in table) != (kind == "changed"):
                raise ValueError(f"line {number}: {kind} {route['prefix']}, which is "
                                 f"{'already' if route['prefix'] in table else 'not'} there")
            table[route["prefix"]] = route
        elif kind == "removed":
            table = tables.get(key(event["vrf"], event["af"]), {})
            if event["prefix"] not in table:
                raise ValueError(f"line {number}: removes {event['prefix']}, which is not there")
            del table[event["prefix"]]
        elif kind == "cleared":
            for k in list(tables):
                if k[1] == event["af"] and (event["vrf"] is None or k[0] == event["vrf"]["id"]):
                    del tables[k]
        elif kind != "resync":
            raise ValueError(f"line {number}: unknown event {kind}")
    return {k: v for k, v in tables.items() if v}


def expected(path):
    with open(path) as f:
        document = json.load(f)
    tables = {}
    for vrf in document["vrfs"]:
        for af in (4, 6):
            routes = {}
            for route in vrf[f"ipv{af}Routes"]:
                route = dict(route)
                route.pop("owner")
                routes[route["prefix"]] = route
            if routes:
                tables[(vrf["vrf"]["id"], af)] = routes
    return tables


def differences(got, want):
    lines = []
    for k in sorted(set(got) | set(want)):
        g, w = got.get(k, {}), want.get(k, {})
        for prefix in sorted(set(g) | set(w)):
            if g.get(prefix) != w.get(prefix):
                lines.append(f"VRF {k[0]} ipv{k[1]} {prefix}: followed {g.get(prefix)}, shown {w.get(prefix)}")
    return lines


def main():
    events, show = sys.argv[1], sys.argv[2]
    deadline = time.monotonic() + (float(sys.argv[3]) if len(sys.argv) > 3 else 0)
    want = expected(show)
    while True:
        with open(events) as f:
            got = replay(f.readlines())
        diff = differences(got, want)
        if not diff or time.monotonic() >= deadline:
            break
        time.sleep(0.1)
    if diff:
        print(f"{len(diff)} routes differ; the first ones:", *diff[:10], sep="\n  ", file=sys.stderr)
        return 1
    print(f"follow_check: {sum(len(t) for t in got.values())} routes, as shown")
    return 0


if __name__ == "__main__":
    sys.exit(main())
