#!/usr/bin/env bash
# Usage: include_layers_test.sh ROOT INSTALLED_HEADERS
# Reads the #include lines of the sources under ROOT. INSTALLED_HEADERS lists, among others, the
# installed headers as include/planex/...
set -euo pipefail
cd "$1"
installed=$2

failures=0
fail() {
  echo "$1"
  failures=$((failures + 1))
}

# Lines "file:line:header" of every include directive in the files of a folder.
includes() {
  grep -rnE '^[[:space:]]*#[[:space:]]*include' --include='*.h' --include='*.cc' --include='*.c' "$1" |
    sed -E 's/^([^:]*:[0-9]+):[^<"]*[<"]([^>"]*)[>"].*/\1:\2/'
}

# A layer includes itself and those behind it.
declare -A rank=([api]=0 [processing]=1 [model]=2 [foundation]=3 [infra]=4)
lines=0
while IFS=: read -r file line header; do
  lines=$((lines + 1))
  layer=${file#planex/}
  layer=${layer%%/*}
  case "$header" in
    planex/*/*)
      target=${header#planex/}
      target=${target%%/*}
      [ -n "${rank[$target]:-}" ] || fail "$file:$line: $target is no layer"
      [ "${rank[$target]:-9}" -ge "${rank[$layer]:--1}" ] ||
        fail "$file:$line: $layer must not include $target"
      ;;
    tests/* | bench/* | examples/*) fail "$file:$line: the library must not include $header" ;;
    *cJSON.h)
      [ "$file" = planex/infra/json_deserializer.cc ] || fail "$file:$line: cJSON has one place"
      ;;
    omp.h)
      [ "$file" = planex/processing/row_parallel.cc ] || fail "$file:$line: OpenMP has one place"
      ;;
  esac
  case "$header" in
    Eigen/* | omp.h | *cJSON.h)
      ! grep -qxF "include/$file" "$installed" || fail "$file:$line: $header in an installed header"
      ;;
  esac
done < <(includes planex)
[ "$lines" -gt 100 ] || fail "only $lines include lines found under $PWD/planex"

parallel=$(grep -rlE '^[[:space:]]*#[[:space:]]*pragma omp (parallel|for)' planex || true)
[ "${parallel:-planex/processing/row_parallel.cc}" = planex/processing/row_parallel.cc ] ||
  fail "parallel regions outside row_parallel.cc: $parallel"

# Outsiders see what is installed.
while IFS=: read -r file line header; do
  case "$header" in
    planex/*) grep -qxF "include/$header" "$installed" || fail "$file:$line: $header is not installed" ;;
  esac
done < <(includes examples; includes tools)

[ "$failures" -eq 0 ]
