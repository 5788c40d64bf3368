#!/usr/bin/env bash
# Runs clang-tidy over all sources, or over those named as arguments. With --changed: over the
# sources of what is installed and, of tests, benchmarks and examples, those that differ from the
# main branch; on the main branch, from the commit before.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset tidy >/dev/null
if [ "${1:-}" = --changed ]; then
  base=$(git merge-base HEAD origin/main 2>/dev/null || true)
  [ "${base:-$(git rev-parse HEAD)}" != "$(git rev-parse HEAD)" ] || base=HEAD~
  mapfile -t sources < <(
    git ls-files '*.cc' '*.c' ':!tests' ':!fuzz' ':!bench' ':!examples'
    git diff --name-only --diff-filter=d "$base" -- \
      {tests,fuzz,bench,examples}/{'*.cc','*.c'}
  )
  set -- "${sources[@]}"
elif [ $# -eq 0 ]; then
  mapfile -t sources < <(git ls-files '*.cc' '*.c')
  set -- "${sources[@]}"
fi
# Without -n1 one process would take all files, and one core.
# clang-tidy 14 borrows omp.h from 19: Debian's development packages of it exclude one another.
printf '%s\0' "$@" |
  xargs -0 -n1 -P"$(nproc)" clang-tidy-14 -p build/tidy --quiet --extra-arg=-idirafter \
    --extra-arg=/usr/lib/llvm-19/lib/clang/19/include
