#!/usr/bin/env bash
# Runs clang-tidy over all sources, or over those named as arguments. With --changed: over those that
# differ from the main branch, or on it from the commit before, and those that include a header that
# does.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset tidy >/dev/null
if [ "${1:-}" = --changed ]; then
  base=$(git merge-base HEAD origin/main 2>/dev/null || true)
  [ "${base:-$(git rev-parse HEAD)}" != "$(git rev-parse HEAD)" ] || base=HEAD~
  changed() { git diff --name-only --diff-filter=d "$base" -- "$@"; }
  mapfile -t sources < <({
    changed '*.cc' '*.c'
    git grep -lF -f <(changed '*.h' | sed 's/.*/#include "&"/') -- '*.cc' '*.c'
  } | sort -u)
  [ ${#sources[@]} -gt 0 ] || exit 0
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
