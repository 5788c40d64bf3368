#!/usr/bin/env bash
# The library in hosts that set the threads of OpenMP, bring a runtime of their own or fork: the same
# results, and the host's settings as they were. Usage: host_test.sh PROBE LIBRARY [OTHER_RUNTIME]
set -euo pipefail

probe=$1
library=$2
runtime=${3:-}
settings=(
  OMP_NUM_THREADS=1
  OMP_NUM_THREADS=3
  OMP_NUM_THREADS=7
  OMP_THREAD_LIMIT=1
  "OMP_NUM_THREADS=5 OMP_THREAD_LIMIT=3"
  "OMP_NUM_THREADS=5 OMP_DYNAMIC=true"
  OMP_MAX_ACTIVE_LEVELS=0
  "OMP_NUM_THREADS=2 OMP_SCHEDULE=dynamic,1 OMP_PROC_BIND=true"
)
if [ -n "$runtime" ]; then
  settings+=("LD_PRELOAD=$runtime" "LD_PRELOAD=$runtime OMP_NUM_THREADS=5 OMP_DYNAMIC=true")
fi

expected=$("$probe" checksum "$library")
for setting in "${settings[@]}"; do
  # shellcheck disable=SC2086  # several variables
  if ! found=$(env $setting "$probe" checksum "$library") || [ "$found" != "$expected" ]; then
    echo "$setting: '${found:-}' instead of '$expected'" >&2
    exit 1
  fi
done
echo "$expected under ${#settings[@]} settings"
