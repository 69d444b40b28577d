#!/usr/bin/env python3
"""Compares the routes connroute wrote for one VRF with the routes the Linux
kernel derived from the same addresses in that VRF's namespace.

Usage: routes_vs_kernel.py ROUTES_JSON VRF KERNEL_V4_JSON KERNEL_V6_JSON [DOWN_ADDRS]

ROUTES_JSON is a `connroute live --once --json` dump or a `connroute show
routes --json` document; the kernel files are `ip -j [-6] route show table
all` of the namespace; DOWN_ADDRS lists (comma-separated) the IPv4 addresses
of administratively down links. Prints every difference that is not one of
the engine's deliberate ones, and exits 1 if there is any.

Deliberate differences:
- the engine adds a receive route for an IPv4 subnet's network address
  (type 3); kernels since 5.14 add no broadcast route for it;
- routes the kernel adds that are not the engine's job: multicast,
  link-local (fe80::/10), anycast, and everything on the loopback link;
- the kernel keeps the local route of an address on an administratively
  down link; the engine treats the link as absent;
- for an IPv6 address of length 128 the kernel adds a route for the /128
  in its main table besides the local one; the engine writes one
  full-length receive route;
- a full-length route of a point-to-point peer that is an own address of
  the namespace besides its local route: the engine's receive route;
- a broadcast route that is no kernel subnet's all-ones address (an
  explicit `brd ADDR`, or the subnet of a noprefixroute IPv4 address, which
  the kernel does not attach): the engine has no broadcast route for it.

With directed broadcast on (bc_forwarding), the engine's broadcast route has
the directed-broadcast type (4); the kernel's is a broadcast route either way.
"""
import ipaddress
import json
import sys

SUBNET, RECEIVE, FULL_LENGTH, BROADCAST, DIRECTED_BROADCAST = 11, 1, 2, 3, 4


def engine_routes(path, vrf):
    with open(path) as f:
        doc = json.load(f)
    vrfs = doc["dumps"][-1]["vrfs"] if "dumps" in doc else doc["vrfs"]
    for entry in vrfs:
        name = entry["vrf"]["name"]
        if name == vrf:
            return entry.get("ipv4Routes", []) + entry.get("ipv6Routes", [])
    return []


def kernel_routes(path):
    with open(path) as f:
        return json.load(f)


def host(dst):
    net = ipaddress.ip_network(dst, strict=False)
    return str(net) if "/" in dst else str(ipaddress.ip_network(dst + ("/32" if net.version == 4 else "/128")))


def main():
    routes_json, vrf, v4_json, v6_json = sys.argv[1:5]
    down = set(a for a in (sys.argv[5] if len(sys.argv) > 5 else "").split(",") if a)
    engine = engine_routes(routes_json, vrf)
    by_type = {}
    for r in engine:
        by_type.setdefault(r["type"], set()).add(r["prefix"])

    k_subnet, k_local, k_broadcast = set(), set(), set()
    for r in kernel_routes(v4_json) + kernel_routes(v6_json):
        dst, dev, kind = r.get("dst", ""), r.get("dev", ""), r.get("type", "unicast")
        if dev == "lo" or dst in ("default",) or r.get("protocol") != "kernel":
            continue
        net = ipaddress.ip_network(dst if "/" in dst else host(dst), strict=False)
        if net.is_link_local or net.is_multicast or kind in ("multicast", "anycast"):
            continue
        if kind == "unicast" and r.get("table", "main") == "main":
            if net.version == 6 and net.prefixlen == 128 and str(net) in by_type.get(FULL_LENGTH, set()):
                continue  # the kernel's /128 prefix route: deliberate
            k_subnet.add(str(net))
        elif kind == "local":
            if str(net.network_address) in down:
                continue  # kept by the kernel on a down link: deliberate
            k_local.add(str(net))
        elif kind == "broadcast":
            k_broadcast.add(str(net))

    # A full-length attached route for an address that is also local (a
    # point-to-point peer equal to an own address): the RIB holds one route
    # per prefix, and the kernel's local route wins: deliberate.
    k_subnet -= {p for p in k_subnet if p in k_local and ipaddress.ip_network(p).prefixlen
                 == ipaddress.ip_network(p).max_prefixlen}

    e_subnet = by_type.get(SUBNET, set())
    e_receive = by_type.get(RECEIVE, set()) | by_type.get(FULL_LENGTH, set())
    e_broadcast = by_type.get(BROADCAST, set()) | by_type.get(DIRECTED_BROADCAST, set())

    problems = []
    # One address with both a local and a broadcast route in the kernel (an
    # address equal to its subnet's broadcast address, or to another link's):
    # the RIB holds one route per prefix, receive or broadcast: deliberate.
    dual = k_local & k_broadcast
    for p in sorted(dual - e_receive - e_broadcast):
        problems.append(f"{vrf}: the kernel has a local and a broadcast route {p}, connroute neither")
    k_local, k_broadcast = k_local - dual, k_broadcast - dual
    e_receive, e_broadcast = e_receive - dual, e_broadcast - dual
    # A broadcast route that is no kernel subnet's all-ones address was
    # configured explicitly (`brd ADDR`), or belongs to a noprefixroute
    # address's subnet, which is not attached: the engine has none.
    all_ones = set()
    for prefix in k_subnet:
        net = ipaddress.ip_network(prefix)
        if net.version == 4 and net.prefixlen <= 30:
            all_ones.add(f"{net.broadcast_address}/32")
    k_broadcast &= all_ones
    # The network address of every IPv4 subnet of length 30 or less: the
    # engine's receive route the kernel no longer has.
    network_addresses = set()
    for prefix in e_subnet:
        net = ipaddress.ip_network(prefix)
        if net.version == 4 and net.prefixlen <= 30:
            network_addresses.add(f"{net.network_address}/32")

    for what, engine_side, kernel_side in (
            ("attached-subnet route", e_subnet, k_subnet),
            ("receive route", e_receive, k_local),
            ("broadcast receive route", e_broadcast - network_addresses, k_broadcast)):
        for p in sorted(kernel_side - engine_side):
            problems.append(f"{vrf}: the kernel has {p}, connroute has no {what} for it")
        for p in sorted(engine_side - kernel_side):
            problems.append(f"{vrf}: connroute has a {what} {p} the kernel does not have")
    for p in sorted(network_addresses - e_broadcast - e_receive):
        problems.append(f"{vrf}: no receive route for the network address {p}")
    for line in problems:
        print(line)
    print(f"{vrf}: {len(e_subnet)} subnet, {len(e_receive)} receive, {len(e_broadcast)} broadcast "
          f"routes; {len(problems)} unexpected differences")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
