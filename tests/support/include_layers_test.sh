#!/usr/bin/env bash
# Usage: include_layers_test.sh ROOT INSTALLED...
# Reads the #include lines of the sources under ROOT. The files INSTALLED list, among others, the
# installed headers as include/planex/...
set -euo pipefail
cd "$1"
installed=$(sort -u "${@:2}")

failures=0
fail() {
  echo "$1"
  failures=$((failures + 1))
}

is_installed() {
  grep -qxF "include/$1" <<<"$installed"
}

# Lines "file:line:header" of every include directive in the files of a folder.
includes() {
  grep -rnE '^[[:space:]]*#[[:space:]]*include' --include='*.h' --include='*.cc' --include='*.c' "$1" |
    sed -E 's/^([^:]*:[0-9]+):[^<"]*[<"]([^>"]*)[>"].*/\1:\2/'
}

# A layer includes itself and those behind it; the C interface stands aside.
declare -A rank=([api]=0 [report]=0 [scan]=1 [io]=2 [processing]=3 [model]=4 [foundation]=5 [infra]=6)
lines=0
while IFS=: read -r file line header; do
  lines=$((lines + 1))
  layer=${file#planex/}
  layer=${layer%%/*}
  case "$layer:$header" in
    *:planex/*/*)
      target=${header#planex/}
      target=${target%%/*}
      [ -n "${rank[$target]:-}" ] || fail "$file:$line: $target is no layer"
      [ "${rank[$target]:-9}" -ge "${rank[$layer]:--1}" ] ||
        fail "$file:$line: $layer must not include $target"
      [[ ! $layer =~ ^(io|scan|report)$ || $target =~ ^(io|scan|report)$ ]] || is_installed "$header" ||
        fail "$file:$line: $header is not installed"
      ;;
    *:tests/* | *:bench/* | *:examples/*) fail "$file:$line: the library must not include $header" ;;
    *:*cJSON.h)
      [[ $file == planex/infra/json_deserializer.cc || $file == planex/io/* ]] ||
        fail "$file:$line: cJSON has its places"
      ;;
    *:omp.h)
      [[ $file =~ ^planex/(processing/row_parallel|io/ordered_work)\.cc$ ]] ||
        fail "$file:$line: OpenMP has its places"
      ;;
    *:cairo*)
      [ "$file" = planex/report/canvas.cc ] || fail "$file:$line: Cairo has one place"
      ;;
  esac
  case "$header" in
    Eigen/* | omp.h | *cJSON.h | fmt/* | png.h | tiffio.h | CLI/*)
      ! is_installed "$file" || fail "$file:$line: $header in an installed header"
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
    planex/report/*) [[ $file == tools/* ]] || fail "$file:$line: $header is not installed" ;;
    planex/*) is_installed "$header" || fail "$file:$line: $header is not installed" ;;
  esac
done < <(includes examples; includes tools)

[ "$failures" -eq 0 ]
