#!/usr/bin/env bash
# Builds connroute and runs its tests. Usage: scripts/test.sh [--sanitize]
#   --sanitize  build in build-asan with AddressSanitizer and UBSan instead.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

dir=build
flags=()
if [ "${1:-}" = "--sanitize" ]; then
  dir=build-asan
  flags=(-DCONNROUTE_SANITIZE=ON -DCONNROUTE_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug)
fi

cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir"
ctest --test-dir "$dir" --output-on-failure
