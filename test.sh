#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
# Arguments go to CMake: ./test.sh -DPLANEX_WERROR=ON
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh build test python
cmake --preset release -DPLANEX_BUILD_PYTHON=ON "$@"
cmake --build --preset release
ctest --preset release
