#!/usr/bin/env bash
# Everything .ci/run does, and the checks that take longer. Run it before a release.
set -euo pipefail
cd "$(dirname "$0")/.."

step() {
  printf '\n=== %s (after %d s)\n' "$1" "$SECONDS"
}

.ci/run
scripts/setup.sh check

step "Lint of all sources"
scripts/lint.sh

step "Logging under ThreadSanitizer"
cmake --preset tsan
cmake --build --preset tsan --target planex_infra_test
ctest --preset tsan

step "Interface tests under valgrind"
cmake --preset dev
cmake --build --preset dev --target planex_api_test
# One thread: the memory of the OpenMP thread pool is never returned and would count as lost.
OMP_NUM_THREADS=1 valgrind --quiet --error-exitcode=1 --leak-check=full \
  --errors-for-leak-kinds=definite build/dev/tests/planex_api_test \
  --gtest_filter='-*TakesLinearTime'

step "Instruction sets and compilers"
scripts/check_instruction_sets.sh

step "Fuzzing"
scripts/fuzz.sh 30

step "Binary interface"
scripts/check_abi.sh

step "Locales"
scripts/check_locales.sh

step "What the command writes, in Open3D; scans larger than memory"
/usr/bin/python3 tests/tools/read_back_test.py open3d build/release/tools/planex \
  build/release/tests/tools/whole_scan
/usr/bin/python3 tests/tools/large_scan_test.py build/release/tools/planex build/release/examples/scan

step "API reference, without warnings"
scripts/build_docs.sh

step "The commands of the README, from a fresh clone"
clone=$(mktemp -d)
trap 'rm -rf "$clone"' EXIT
git clone --quiet . "$clone/planex"
(cd "$clone/planex" && ./demo.sh && ./test.sh) </dev/null

step "Done"
