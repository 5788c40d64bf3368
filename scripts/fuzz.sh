#!/usr/bin/env bash
# Builds the fuzzers and runs each, one after the other; fails at the first finding.
# Usage: scripts/fuzz.sh [SECONDS [TARGET...]] | scripts/fuzz.sh merge TARGET...
# SECONDS per target, 30 by default; 0 only replays the stored corpora. TARGET is a name of a folder
# in fuzz/corpus, all by default. What a run finds stays in build/fuzz/corpus, and the input of a
# crash in build/fuzz/findings. merge leaves in fuzz/corpus the fewest inputs, of those there and
# of those found, that reach every edge that all of them reach.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-30}
shift || true
[ $# -gt 0 ] || set -- $(ls fuzz/corpus)

scripts/setup.sh build clang
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

for target in "$@"; do
  options=(-timeout=20 -max_len=1024)
  [ "$target" != document ] || options=(-timeout=20 -max_len=4096 -dict=fuzz/model.dict)
  found=build/fuzz/corpus/$target
  mkdir -p "$found" build/fuzz/findings
  if [ "$seconds" = merge ]; then
    few=$(mktemp -d)
    OMP_NUM_THREADS=1 "build/fuzz/fuzz/planex_${target}_fuzz" "${options[@]}" -use_counters=0 \
      -set_cover_merge=1 "$few" "fuzz/corpus/$target" "$found" >"build/fuzz/$target.log" 2>&1
    rm -f "fuzz/corpus/$target"/*
    mv "$few"/* "fuzz/corpus/$target"
    rmdir "$few"
    continue
  fi
  [ "$seconds" -gt 0 ] && options+=("-max_total_time=$seconds") || options+=(-runs=0)
  printf '\n--- %s\n' "$target"
  log=build/fuzz/$target.log
  if ! OMP_NUM_THREADS=1 "build/fuzz/fuzz/planex_${target}_fuzz" "${options[@]}" \
    -print_final_stats=1 "-artifact_prefix=build/fuzz/findings/$target-" \
    "$found" "fuzz/corpus/$target" >"$log" 2>&1; then
    tail -n 60 "$log"
    exit 1
  fi
  grep -E 'DONE|number_of_executed|average_exec' "$log"
done
