#!/usr/bin/env bash
# Builds the fuzzers and runs each, one after the other; fails at the first finding.
# Usage: scripts/fuzz.sh [SECONDS [TARGET...]] | scripts/fuzz.sh campaign SECONDS
#        | scripts/fuzz.sh merge TARGET...
# SECONDS per target, 30 by default; 0 only replays the stored inputs. TARGET is a name of a file in
# fuzz/corpus, all by default. What a run finds stays in build/fuzz/corpus, and the input of a crash
# in build/fuzz/findings. campaign writes the figures into docs/design/fuzzing.md, too. merge leaves
# in fuzz/corpus the fewest inputs, of those there and of those found, that reach every edge that
# all of them reach.
set -euo pipefail
cd "$(dirname "$0")/.."

what=run
seconds=${1:-30}
shift || true
if [ "$seconds" = campaign ]; then
  what=campaign
  seconds=${1:?scripts/fuzz.sh campaign SECONDS}
  shift
elif [ "$seconds" = merge ]; then
  what=merge
fi
[ $# -gt 0 ] || set -- $(basename -s .txt fuzz/corpus/*.txt)

scripts/setup.sh build clang
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

logs=()
for target in "$@"; do
  options=(-timeout=20 -max_len=1024)
  [ "$target" != document ] || options=(-timeout=20 -max_len=4096 -dict=fuzz/model.dict)
  found=build/fuzz/corpus/$target
  stored=build/fuzz/stored/$target
  log=build/fuzz/$target.log
  logs+=("$log")
  mkdir -p "$found" build/fuzz/findings
  rm -rf "$stored"
  fuzz/stored_inputs.py unpack "$target" "$stored"
  if [ "$what" = merge ]; then
    few=$(mktemp -d)
    OMP_NUM_THREADS=1 "build/fuzz/fuzz/planex_${target}_fuzz" "${options[@]}" -use_counters=0 \
      -set_cover_merge=1 "$few" "$stored" "$found" >"$log" 2>&1
    fuzz/stored_inputs.py pack "$target" "$few"
    rm -r "$few"
    continue
  fi
  [ "$seconds" -gt 0 ] && options+=("-max_total_time=$seconds") || options+=(-runs=0)
  printf '\n--- %s\n' "$target"
  if ! OMP_NUM_THREADS=1 "build/fuzz/fuzz/planex_${target}_fuzz" "${options[@]}" \
    -print_final_stats=1 "-artifact_prefix=build/fuzz/findings/$target-" \
    "$found" "$stored" >"$log" 2>&1; then
    tail -n 60 "$log"
    exit 1
  fi
  grep -E 'DONE|number_of_executed|average_exec' "$log"
done
[ "$what" != campaign ] || fuzz/campaign_table.py "$seconds" "${logs[@]}" |
  scripts/write_table.py docs/design/fuzzing.md "scripts/fuzz.sh campaign"
