#!/usr/bin/env bash
# Builds the libFuzzer targets into build-fuzz/ (clang's libFuzzer, with
# AddressSanitizer and UBSan). Usage: fuzz/build.sh [value|scenario|rtnl]...
set -euo pipefail
cd "$(dirname "$0")/.."
mkdir -p build-fuzz
flags=(-std=c++20 -g -O1 -Wall -Wextra -Werror -fsanitize=fuzzer,address,undefined
       -fno-sanitize-recover=all -I.)
platform=$(find platform -name '*.cc' | sort)
libraries=(-llmdb -lmnl)  # the platform's tables and rtnetlink
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(value scenario rtnl)
for target in "${targets[@]}"; do
  case $target in
    value) clang++-14 "${flags[@]}" fuzz/ValueParseFuzz.cc $platform "${libraries[@]}" -o build-fuzz/value_parse_fuzz ;;
    scenario) clang++-14 "${flags[@]}" fuzz/ScenarioFuzz.cc app/Scenario.cc app/ScenarioDocument.cc \
                $platform "${libraries[@]}" -o build-fuzz/scenario_fuzz ;;
    rtnl) clang++-14 "${flags[@]}" fuzz/RtnlFuzz.cc platform/linux/RtnlMessages.cc -lmnl \
            -o build-fuzz/rtnl_fuzz ;;
    *) echo "unknown target '$target' (value, scenario, rtnl)" >&2; exit 2 ;;
  esac
done
