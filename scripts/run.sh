#!/usr/bin/env bash
# Builds connroute and plays its bundled example scenario.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target connroute_demo
./build/connroute_demo "$@"
