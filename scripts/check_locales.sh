#!/usr/bin/env bash
# The whole test suite in locales with another decimal point, other digits and other letter case.
# Extra arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build test check
cmake --preset release >/dev/null
cmake --build --preset release
for locale in de_DE.UTF-8 tr_TR.UTF-8 ps_AF.UTF-8; do
  printf '\n--- %s\n' "$locale"
  LC_ALL=$locale PLANEX_REQUIRE_LOCALE=1 ctest --preset release "$@" | tail -n 20
done
