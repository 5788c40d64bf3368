#!/usr/bin/env bash
# The tests of the numbers once more, built for one instruction set at a time and with another
# compiler. The checksums among them, and those of planex selftest, are the same everywhere.
# Usage: scripts/check_instruction_sets.sh [BUILD...], all of those below by default
set -euo pipefail
cd "$(dirname "$0")/.."

single="-DPLANEX_NO_MULTIVERSION"
declare -A compiler=([clang]=clang++-19 [clang-native]=clang++-19)
declare -A flags=([gcc-x86-64]="-march=x86-64 $single" [gcc-x86-64-v3]="-march=x86-64-v3 $single"
  [gcc-native]="-march=native $single" [clang]="" [clang-native]="-march=native $single")

scripts/setup.sh build test clang
[ $# -gt 0 ] || set -- gcc-x86-64 gcc-x86-64-v3 gcc-native clang clang-native
for name in "$@"; do
  printf '\n--- %s\n' "$name"
  # A processor that lacks an instruction set cannot run its build.
  if [[ $name == *-v3 ]] && ! grep -qw avx2 /proc/cpuinfo; then
    echo "not on this processor"
    continue
  fi
  cmake -S . -B "build/sets/$name" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_COMPILER="${compiler[$name]:-g++}" -DCMAKE_CXX_FLAGS="${flags[$name]}" \
    -DPLANEX_BUILD_BENCH=OFF -DPLANEX_BUILD_EXAMPLES=OFF -DPLANEX_BUILD_TOOLS=OFF \
    -DPLANEX_BUILD_IO=ON -DPLANEX_BUILD_ESTIMATION=OFF -DPLANEX_BUILD_ACQUISITION=OFF >/dev/null
  cmake --build "build/sets/$name" --target planex_{model,processing,api,io}_test
  for layer in model processing api; do
    "build/sets/$name/tests/planex_${layer}_test" --gtest_brief=1
  done
  "build/sets/$name/tests/planex_io_test" --gtest_brief=1 --gtest_filter='Selftest.*'
done
