#!/usr/bin/env bash
# Usage: include_layers_test.sh ROOT INSTALLED...
# Reads the #include lines of the sources under ROOT. The files INSTALLED list, among others, the
# installed headers as include/planex/...
set -euo pipefail
cd "$1"

grep -rnE '^[[:space:]]*#[[:space:]]*include' --include='*.h' --include='*.cc' --include='*.c' \
  planex examples tools |
  sed -E 's/^([^:]*):([0-9]+):[^<"]*[<"]([^>"]*)[>"].*/\1 \2 \3/' |
  awk -v lists="$(cat "${@:2}")" '
    # A layer includes itself and those behind it; the C interface stands aside.
    BEGIN {
      split("api scan io processing model foundation infra", layers)
      for (i in layers) rank[layers[i]] = i + 0
      rank["report"] = rank["api"]
      rank["estimation"] = rank["processing"]
      rank["acquisition"] = rank["scan"]
      split(lists, files, "\n")
      for (i in files) if (sub("^include/", "", files[i])) installed[files[i]] = 1
    }
    function layer(path) { return split(path, parts, "/") > 2 && parts[1] == "planex" ? parts[2] : "" }
    function fail(text) { print $1 ":" $2 ": " $3 " " text; failed = 1 }
    { from = layer($1); to = layer($3) }
    from && to && !(to in rank) { fail("is in no layer") }
    from && to && rank[to] < rank[from] { fail("is in a layer before") }
    # Outsiders see what is installed, and the libraries above the core see it of the core.
    $3 ~ /^planex\// && !(from in rank && rank[from] > rank["io"]) && from != "api" &&
      to !~ /^(io|scan|report|estimation|acquisition)$/ && !($3 in installed) { fail("is not installed") }
    !from && to ~ /^(io|scan|estimation|acquisition)$/ && !($3 in installed) { fail("is not installed") }
    to == "acquisition" && from != to && from { fail("stands apart") }
    to == "estimation" && from != to && from || from == "estimation" && to == "processing" {
      fail("stands apart")
    }
    to == "report" && $1 !~ /^(tools|planex\/report)\// { fail("belongs to the command") }
    !from { next }
    $3 ~ /^(tests|bench|examples)\// { fail("is none of the library") }
    $3 ~ /cJSON\.h$/ && $1 !~ /^planex\/(infra\/json_deserializer\.cc|io\/)/ { fail("has its places") }
    $3 == "omp.h" && $1 !~ /^planex\/(processing\/row_parallel|io\/ordered_work)\.cc$/ { fail("has its places") }
    $3 ~ /^cairo/ && $1 != "planex/report/canvas.cc" { fail("has one place") }
    $3 ~ /^ceres\// && $1 !~ /^planex\/estimation\/(camera_terms|robust_fit)\.cc$/ { fail("has its places") }
    $3 == "arv.h" && $1 != "planex/acquisition/aravis.h" { fail("has one place") }
    $1 in installed && $3 ~ /^(.*aravis\.h|Eigen\/.*|ceres\/.*|omp\.h|.*cJSON\.h|fmt\/.*|png\.h|tiffio\.h|CLI\/.*)$/ {
      fail("in an installed header")
    }
    END { exit failed || NR < 100 }'

parallel=$(grep -rlE '^[[:space:]]*#[[:space:]]*pragma omp (parallel|for)' planex || true)
[ "${parallel:-planex/processing/row_parallel.cc}" = planex/processing/row_parallel.cc ]
