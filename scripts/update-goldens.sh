#!/usr/bin/env bash
# Regenerates the golden output of every example scenario after a reviewed,
# intended change of output. Review the diff before committing.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target connroute
for example in examples/*.json; do
  name=$(basename "$example" .json)
  ./build/connroute run "$example" > "tests/app/golden/$name.txt"
  echo "updated tests/app/golden/$name.txt"
done
