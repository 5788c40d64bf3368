#!/usr/bin/env bash
# Runs clang-tidy over all sources, or over those named as arguments.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset tidy >/dev/null
if [ $# -eq 0 ]; then
  mapfile -t sources < <(git ls-files '*.cc' '*.c')
  set -- "${sources[@]}"
fi
# Without -n1 one process would take all files, and one core.
# clang-tidy 14 borrows omp.h from 19: Debian's development packages of it exclude one another.
printf '%s\0' "$@" |
  xargs -0 -n1 -P"$(nproc)" clang-tidy-14 -p build/tidy --quiet --extra-arg=-idirafter \
    --extra-arg=/usr/lib/llvm-19/lib/clang/19/include
