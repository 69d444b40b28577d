#!/usr/bin/env bash
# Reading a table directory from other programs. The reader library as
# another program uses it: installed with `cmake --install`, the example in
# examples/reader built with its Makefile through pkg-config alone, and run
# on a directory `run --tables` wrote: it prints the routes `show routes`
# does; a missing directory is an error. And Python's lmdb module, reading
# the same directories from docs/tables.md alone (lmdb_reader.py).
#
# Usage: example.sh CONNROUTE BUILD_DIR SOURCE_DIR [EXTRA_LINK_FLAGS]
set -uo pipefail
connroute=$1 build=$2 source=$3 extra=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

cmake --install "$build" --prefix "$work/prefix" > "$work/install.log" || { cat "$work/install.log" >&2; exit 1; }
cp "$source/examples/reader/routes.cc" "$source/examples/reader/Makefile" "$work/"
PKG_CONFIG_PATH=$work/prefix/lib/pkgconfig CXXFLAGS="$extra" LDFLAGS="$extra" make -s -C "$work" > "$work/make.log" 2>&1 ||
  { cat "$work/make.log" >&2; exit 1; }
[ -x "$work/prefix/bin/connroute" ] || fail "the program is not installed"

for example in "$source"/examples/*.json; do
  rm -rf "$work/t"
  "$connroute" run --tables "$work/t" "$example" > /dev/null
  "$work/connroute-routes" "$work/t" > "$work/printed" || fail "connroute-routes on $(basename "$example")"
  "$connroute" show --tables "$work/t" routes --json |
    /usr/bin/python3 -c 'import json, sys
for vrf in json.load(sys.stdin)["vrfs"]:
    name = vrf["vrf"]["name"] if vrf["vrf"]["name"] is not None else str(vrf["vrf"]["id"])
    for af in (4, 6):
        for r in vrf[f"ipv{af}Routes"]:
            print("%s ipv%d %s type %d viaSet %d" % (name, af, r["prefix"], r["type"], r["viaSet"]))' > "$work/shown"
  cmp -s "$work/printed" "$work/shown" || fail "$(basename "$example"): $(diff "$work/printed" "$work/shown" | head -5)"
  "$connroute" show --tables "$work/t" routes --json > "$work/show.json"
  "$connroute" show --tables "$work/t" metrics > "$work/metrics.txt"
  /usr/bin/python3 "$(dirname "$0")/lmdb_reader.py" "$work/t" "$work/show.json" "$work/metrics.txt" ||
    fail "$(basename "$example") read with Python's lmdb"
done
# The library's follower: the routes, a new writer announced, and SIGINT ends it.
"$work/connroute-routes" "$work/t" --follow > "$work/followed" 2>&1 &
follower=$!
# waits_for PATTERN: until the follower printed it (at most 10 s).
waits_for() {
  local deadline=$((SECONDS + 10))
  until grep -q "$1" "$work/followed"; do
    [ $SECONDS -lt $deadline ] || { fail "the library's follower never printed '$1': $(head -3 "$work/followed")"; return; }
    sleep 0.05
  done
}
waits_for " snapshot"
"$connroute" run --tables "$work/t" "$source/examples/two-vrfs.json" > /dev/null
waits_for " resync"
waits_for "vrf 1 ipv4 10.0.0.4/32"  # as of the snapshot, or added after it
kill -INT "$follower"
wait "$follower" || fail "the library's follower did not end with status 0 on SIGINT"

"$work/connroute-routes" "$work/missing" 2> "$work/err"
[ $? -eq 2 ] && grep -q "no such table directory" "$work/err" || fail "a missing directory: $(cat "$work/err")"
echo "example.sh: $failures failures"
exit $((failures > 0))
