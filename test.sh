#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
# Arguments go to CMake: ./test.sh -DPLANEX_WERROR=ON
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh build test
cmake --preset release "$@"
cmake --build --preset release
ctest --preset release
