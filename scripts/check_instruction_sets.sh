#!/usr/bin/env bash
# The tests of the numbers once more, built for one instruction set at a time and with another
# compiler. The checksums among them are the same everywhere.
set -euo pipefail
cd "$(dirname "$0")/.."

# check <name> <compiler> <flags>
check() {
  printf '\n--- %s\n' "$1"
  cmake -S . -B "build/check/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$2" \
    -DCMAKE_CXX_FLAGS="$3" -DPLANEX_BUILD_BENCH=OFF -DPLANEX_BUILD_EXAMPLES=OFF >/dev/null
  cmake --build "build/check/$1" --target planex_model_test planex_processing_test planex_api_test
  for layer in model processing api; do
    "build/check/$1/tests/planex_${layer}_test" --gtest_brief=1
  done
}

scripts/setup.sh build test check
for march in x86-64 x86-64-v3 native; do
  # A processor that lacks an instruction set cannot run its build.
  if [[ $march == x86-64-v3 ]] && ! grep -qw avx2 /proc/cpuinfo; then
    echo "--- $march: not on this processor"
    continue
  fi
  check "gcc-$march" g++ "-march=$march -DPLANEX_NO_MULTIVERSION"
done
check clang clang++-19 ""
check clang-native clang++-19 "-march=native -DPLANEX_NO_MULTIVERSION"
