"""Reads a connroute table directory with Python's lmdb module, from what
docs/tables.md says of its databases and rows and nothing else, and
compares it with `connroute show`.

Usage: lmdb_reader.py DIR SHOW_ROUTES_JSON METRICS_TEXT

Checks: the layout record; every row key's place is the hash of its key;
every VRF's routes (route tables and query tables) equal what
`show routes --json` printed; the feed record's turn is
the turns `show metrics` counts; and replaying the change log from an
empty directory gives the same routes. Exit 0 or 1.
"""
import ipaddress
import json
import struct
import sys

import lmdb

LAYOUT = (b"connroute-tables 3; Routing::Rib::Ip::ViaConfig via 12/64/4 viaMap 12/24/4; "
          b"Routing::Rib::IpRibRouteOrqTable routeQuery 24/72/4; Routing::Rib::RouteConfig route 20/48/4; "
          b"Routing::Rib::ViaSetConfig viaSet 4/56/4")


MASK64 = (1 << 64) - 1
MUL = 0x9E3779B97F4A7C15


def place(key):
    """The place of a row's own key bytes: where connroute keeps the row."""
    h = (len(key) * MUL) & MASK64
    at = 0
    while len(key) - at >= 8:
        h = ((h ^ int.from_bytes(key[at:at + 8], "little")) * MUL) & MASK64
        h ^= h >> 29
        at += 8
    if at < len(key):
        h = ((h ^ int.from_bytes(key[at:], "little")) * MUL) & MASK64
    h ^= h >> 32
    h = (h * MUL) & MASK64
    return min(h >> 32, 0xFFFFFFFE)


def own_key(key):
    """A placed row key's own key, after its place, which is checked."""
    own = bytes(key[4:])
    if struct.unpack_from(">I", key, 0)[0] != place(own):
        raise SystemExit(f"row key {bytes(key).hex()}: its place is not its key's")
    return own


def prefix_text(raw):
    family, length = raw[0], raw[1]
    if family == 1:
        return f"{ipaddress.IPv4Address(raw[4:8])}/{length}"
    return f"{ipaddress.IPv6Address(raw[4:20])}/{length}"


def route(raw):
    protocol, metric, preference, via_set, fec = struct.unpack_from("<5I", raw, 20)
    route_type = raw[40]
    (flags,) = struct.unpack_from("<I", raw, 44)
    return {"prefix": prefix_text(raw[0:20]), "type": route_type, "viaSet": via_set, "protocol": protocol,
            "metric": metric, "preference": preference, "fecIndex": fec, "flags": flags}


def family_of(raw_prefix):
    return 4 if raw_prefix[0] == 1 else 6


def table_key(path):
    """(kind, family, vrf id or None) of a route table's path, or None."""
    parts = path.split("/")
    if parts[:3] == ["routing", "rib", "routeConfig"] and len(parts) == 6:
        return ("route", int(parts[3][3:]), int(parts[4]))
    if parts[:3] == ["routing", "rib", "routeQuery"] and len(parts) == 4:
        return ("routeQuery", int(parts[3][3:]), None)
    return None


def put(routes, vrf, family, row):
    routes.setdefault((vrf, family), {})[row["prefix"]] = row


def numbered_databases(txn):
    """(kind, number, name) of every numbered database, rows:<kind>:<number>: a
    table's rows by the table's number, a VRF's candidates by its identifier."""
    found = []
    for name, _ in txn.cursor():
        parts = name.decode().split(":")
        if len(parts) == 3 and parts[0] == "rows":
            found.append((parts[1], int(parts[2]), name))
    return found


def read_directory(env):
    dbs = {name: env.open_db(name.encode(), create=False) for name in ("meta", "tables", "log")}
    try:
        dbs["rows:vrfName"] = env.open_db(b"rows:vrfName", create=False)
    except lmdb.NotFoundError:
        pass  # made with the first VRF
    with env.begin() as txn:
        named = numbered_databases(txn)
    numbered = [(kind, number, env.open_db(name, create=False)) for kind, number, name in named]
    with env.begin() as txn:
        if txn.get(b"layout", db=dbs["meta"]) != LAYOUT:
            raise SystemExit("another layout: " + repr(txn.get(b"layout", db=dbs["meta"])))
        tables = {}
        for path, number in txn.cursor(db=dbs["tables"]):
            key = table_key(path.decode())
            if key:
                tables[struct.unpack("<I", number)[0]] = key
        names, routes = {}, {}
        if "rows:vrfName" in dbs:
            names = {struct.unpack(">I", k)[0]: v.decode() for k, v in txn.cursor(db=dbs["rows:vrfName"])}
        for kind, number, db in numbered:
            for key, value in txn.cursor(db=db):
                own = own_key(key)  # every row, and every published candidate, is in its place
                if kind == "route" and number in tables:
                    if own != value[0:20]:
                        raise SystemExit("a route row's key is not its prefix")
                    _, family, vrf = tables[number]
                    put(routes, vrf, family, route(value))
                elif kind == "routeQuery" and number in tables:
                    (vrf,) = struct.unpack_from("<I", own)
                    put(routes, vrf, family_of(own[4:24]), route(value[24:72]))
        feed = struct.unpack("<5Q", txn.get(b"feed", db=dbs["meta"]))
        log = [(bytes(k), bytes(v)) for k, v in txn.cursor(db=dbs["log"])]
    return tables, names, routes, feed, log


def replay(tables, log):
    routes = {}
    for key, part in log:
        table, count, key_size, row_size, name_size = struct.unpack_from("<IIHHB", part)
        kind = part[13:13 + name_size].decode()
        at = 13 + name_size
        for _ in range(count):
            what = part[at]
            at += 1
            if what == 4:  # cleared
                if table in tables and kind == tables[table][0]:
                    _, family, vrf = tables[table]
                    for k in [k for k in routes if k[1] == family and (vrf is None or k[0] == vrf)]:
                        del routes[k]
                continue
            row_key = part[at:at + key_size]
            at += key_size
            row = part[at:at + row_size] if what in (1, 2) else None
            at += row_size if row is not None else 0
            if table not in tables or kind != tables[table][0]:
                continue
            _, family, vrf = tables[table]
            if kind == "routeQuery":
                (vrf,) = struct.unpack_from("<I", row_key)
                raw_prefix, row = row_key[4:24], (row[24:72] if row is not None else None)
            else:
                raw_prefix = row_key
            if row is None:
                routes.get((vrf, family), {}).pop(prefix_text(raw_prefix), None)
            else:
                put(routes, vrf, family, route(row))
        if at != len(part):
            raise SystemExit(f"a log part of turn {struct.unpack_from('>Q', key)[0]} is malformed")
    return {k: v for k, v in routes.items() if v}


def shown(path):
    routes, names = {}, {}
    for vrf in json.load(open(path))["vrfs"]:
        vrf_id = vrf["vrf"]["id"]
        names[vrf_id] = vrf["vrf"]["name"]
        for family in (4, 6):
            for row in vrf[f"ipv{family}Routes"]:
                row = dict(row)
                row.pop("owner")
                put(routes, vrf_id, family, row)
    return routes, names


def main():
    directory, show_path, metrics_path = sys.argv[1:4]
    env = lmdb.open(directory, readonly=True, max_dbs=16384, subdir=True)
    tables, names, routes, feed, log = read_directory(env)
    failures = []
    want, want_names = shown(show_path)
    if routes != want:
        failures.append(f"routes read with lmdb differ from show's: {len(routes)} tables against {len(want)}")
    for vrf_id, name in want_names.items():
        if name is not None and names.get(vrf_id) != name:
            failures.append(f"VRF {vrf_id} is named {names.get(vrf_id)!r} in vrfName, {name!r} by show")
    turns = [line.split()[1] for line in open(metrics_path) if line.startswith("connroute_turns_committed_total ")]
    if turns != [str(feed[1])]:
        failures.append(f"the feed record's turn {feed[1]} is not show metrics' {turns}")
    if feed[2] == 1:  # the log holds every turn: replayed from nothing, it gives the tables
        if replay(tables, log) != {k: v for k, v in routes.items() if v}:
            failures.append("replaying the change log does not give the routes")
    else:
        failures.append(f"the log of a small run begins at turn {feed[2]}, not 1")
    for failure in failures:
        print("lmdb_reader:", failure, file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
