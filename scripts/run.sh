#!/usr/bin/env bash
# Builds connroute and plays a scenario: the bundled example, or the file given.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target connroute
./build/connroute run "$@"
