"""Parses Prometheus text with the client library's own parser and checks
what connroute's metrics must hold.

Usage: prometheus_check.py FILE|- [NAME=VALUE...]

Every family must have HELP and TYPE lines and the connroute_ prefix;
counters end in _total. Each NAME=VALUE (NAME may carry {label="v",...})
names a sample that must be there with that value. Exit 0 or 1.
"""
import sys

from prometheus_client.parser import text_string_to_metric_families


def main():
    source = sys.argv[1]
    text = sys.stdin.read() if source == "-" else open(source).read()
    failures = []
    samples = {}
    families = list(text_string_to_metric_families(text))
    if not families:
        failures.append("no metrics")
    for family in families:
        if not family.name.startswith("connroute_"):
            failures.append(f"{family.name}: not a connroute_ name")
        if not family.documentation:
            failures.append(f"{family.name}: no HELP")
        if family.type not in ("counter", "gauge"):
            failures.append(f"{family.name}: type {family.type}")
        for sample in family.samples:
            labels = ",".join(f'{k}="{v}"' for k, v in sorted(sample.labels.items()))
            samples[sample.name + (f"{{{labels}}}" if labels else "")] = sample.value
    for line in text.splitlines():
        if line.startswith("# TYPE") and line.split()[3] == "counter" and not line.split()[2].endswith("_total"):
            failures.append(f"{line}: a counter without _total")
    for want in sys.argv[2:]:
        name, value = want.rsplit("=", 1)
        if name not in samples:
            failures.append(f"{name}: missing (have {len(samples)} samples)")
        elif samples[name] != float(value):
            failures.append(f"{name}: {samples[name]}, not {value}")
    for failure in failures:
        print("prometheus_check:", failure, file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
