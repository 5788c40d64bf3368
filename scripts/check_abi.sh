#!/usr/bin/env bash
# Compares the binary interface of the library with its stored description, planex.abi.gz in
# tests/abi: exported functions and variables, and the types of the installed headers. A change
# fails; --update writes the description anew, and belongs into one commit with a line in
# CHANGELOG.md. The description is that of an x86-64 build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build abi
description=tests/abi/planex.abi.gz
build=build/abi
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-g \
  -DPLANEX_BUILD_TESTS=OFF -DPLANEX_BUILD_BENCH=OFF -DPLANEX_BUILD_EXAMPLES=OFF \
  -DPLANEX_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" --target planex
cmake --install "$build" --prefix "$build/prefix" >/dev/null
abidw --suppressions tests/abi/abi_scope.ini --exported-interfaces-only \
  --headers-dir "$build/prefix/include" --drop-private-types --no-show-locs --no-corpus-path \
  --no-comp-dir-path --no-parameter-names --no-write-default-sizes --no-elf-needed \
  --type-id-style hash --out-file "$build/planex.abi" "$build"/lib*/libplanex.so

if [ "${1:-}" = --update ]; then
  gzip --best --no-name --stdout "$build/planex.abi" >"$description"
  exit 0
fi
gunzip --stdout "$description" >"$build/expected.abi"
if ! abidiff "$build/expected.abi" "$build/planex.abi"; then
  echo "The binary interface has changed. If it is meant to: scripts/check_abi.sh --update," >&2
  echo "and a line in CHANGELOG.md." >&2
  exit 1
fi
