#!/usr/bin/env python3
"""Writes a large scenario for the program's scale measurements.

Each interface gets an IPv4 address, an IPv4 secondary and an IPv6 address
(10 routes). Usage: gen-scenario.py VRFS INTERFACES_PER_VRF DUMPS > file.json
"""
import json
import sys

vrfs, per_vrf, dumps = (int(a) for a in sys.argv[1:4])
steps = [{"vrfIdMap": {"set": {"default" if v == 0 else f"vrf{v}": v for v in range(vrfs)}}}]
for v in range(1, vrfs):
    steps.append({"vrfLocal": {"vrf": f"vrf{v}", "netns": f"ns{v}", "state": "active"}})
for v in range(vrfs):
    vrf = "default" if v == 0 else f"vrf{v}"
    ns = "default" if v == 0 else f"ns{v}"
    steps.append({"kernel": {"netns": ns, "up": [f"e{i}" for i in range(per_vrf)]}})
    for i in range(per_vrf):
        a, b = divmod(i, 250)
        steps.append({"ipv4": {"vrf": vrf, "intf": f"e{i}", "active": f"10.{a % 256}.{b}.1/24",
                               "secondaries": {f"100.{64 + a}.{b}.1/24": True}}})
        steps.append({"ipv6": {"vrf": vrf, "intf": f"e{i}", "add": [f"2001:db8:{a:x}:{b:x}::1/64"]}})
steps.append({"start": {}})
steps.append({"run": "idle"})
for d in range(dumps):
    steps.append({"dump": f"dump {d + 1}"})
json.dump({"description": f"{vrfs} VRFs x {per_vrf} interfaces", "steps": steps}, sys.stdout)
