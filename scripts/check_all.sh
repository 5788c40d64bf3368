#!/usr/bin/env bash
# Everything .ci/run does, and the checks that take longer. Run it before a release.
#   scripts/check_all.sh          the steps that have not passed on this commit yet
#   scripts/check_all.sh STEP...  these steps, whether they have passed or not
#   scripts/check_all.sh --list   the names of the steps
# A step that fails keeps no other from running; the end names it. What a step printed stays in
# build/check/STEP.log, that it passed in build/check/COMMIT; a working tree with changes leaves no
# such mark.
set -euo pipefail
cd "$(dirname "$0")/.."

steps=(ci asan lint tsan valgrind sets fuzz locales tools browser docs coverage trials aarch64 s390x wheel packages stubs dask clone)

build() {
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$@"
}

step_ci() { .ci/run; }
step_asan() {
  build asan
  # Simulated calibrations take a minute each here, and run what others and the commands run, too.
  ctest --preset asan --timeout 1800 --exclude-regex \
    'ScanCampaigns|PosePlan|UncertaintyTable|AreTold/(Wider|Narrower|Level|OtherPitch|Moved)'
}
step_lint() { scripts/lint.sh; }
step_sets() { scripts/check_instruction_sets.sh; }
step_fuzz() { scripts/fuzz.sh 30; }
step_locales() { scripts/check_locales.sh; }
step_docs() { scripts/build_docs.sh; }
step_coverage() { scripts/coverage.sh; }
step_aarch64() { scripts/check_architecture.sh aarch64; }
step_s390x() { scripts/check_architecture.sh s390x; }
step_wheel() { scripts/check_wheel.sh; }
step_packages() { scripts/build_packages.sh; }
step_tsan() { # logging only
  build tsan --target planex_infra_test
  ctest --preset tsan
}
step_valgrind() { # the C interface
  build dev --target planex_api_test
  # One thread: the memory of the OpenMP thread pool is never returned and would count as lost.
  OMP_NUM_THREADS=1 valgrind --quiet --error-exitcode=1 --leak-check=full \
    --errors-for-leak-kinds=definite build/dev/tests/planex_api_test \
    --gtest_filter='-*TakesLinearTime'
}
step_tools() { # what the command writes, in Open3D
  build release
  /usr/bin/python3 tests/tools/read_back_test.py open3d build/release/tools/planex \
    build/release/tests/tools/whole_scan
}
step_browser() { # pages of planex view, in Chromium; screenshots and axe-core are in build/browser
  scripts/setup.sh browser
  command -v npm >/dev/null || scripts/setup.sh npm # other builds of Node bring one along
  build release --target planex_command simulate_scan
  timeout 900 /usr/bin/python3 -B tests/tools/view_page_test.py browser \
    build/release/tools/planex build/release/examples/simulate_scan build/browser
}
step_trials() { scripts/trials.sh 100; }
step_stubs() { # the stub of the extension beside what it is
  cmake --preset release -DPLANEX_BUILD_PYTHON=ON >/dev/null
  cmake --build --preset release --target planex_python
  export PYTHONPATH=build/release/python MYPYPATH=build/release/python MYPY_CACHE_DIR=build/mypy
  stubtest planex._core --allowlist tests/python/stubtest_allowed.txt
}
step_dask() { # height maps of scans larger than the memory of the workers
  scripts/setup.sh python
  cmake --preset release -DPLANEX_BUILD_PYTHON=ON >/dev/null
  cmake --build --preset release --target planex_python
  timeout 300 /usr/bin/python3 -B tests/python/cluster_check.py build/release/python
}
step_clone() { # the commands of the README, in a clone whose path is no plain word
  clone=$(mktemp -d)
  trap 'rm -rf "$clone"' EXIT
  git clone --quiet . "$clone/plänex 2"
  cd "$clone/plänex 2"
  ./demo.sh
  ./test.sh
}

if [ "${1:-}" = --list ]; then
  printf '%s\n' "${steps[@]}"
  exit
elif [ "${1:-}" = --run ]; then # a process of its own: what fails in it ends it, and nothing else
  "step_$2" </dev/null
  exit
fi
for step in "$@"; do
  if ! declare -F "step_$step" >/dev/null; then
    echo "check_all.sh: no step '$step'; there are: ${steps[*]}" >&2
    exit 2
  fi
done

scripts/setup.sh build test python lint clang abi check docs
marks=build/check/$(git rev-parse HEAD)
mkdir -p "$marks"
failed=()
for step in "${@:-${steps[@]}}"; do
  if [ $# -eq 0 ] && [ -e "$marks/$step" ]; then
    echo "=== $step has passed"
    continue
  fi
  start=$SECONDS
  echo "=== $step"
  if scripts/check_all.sh --run "$step" 2>&1 | tee "build/check/$step.log"; then
    [ -n "$(git status --porcelain)" ] || touch "$marks/$step"
  else
    failed+=("$step")
  fi
  echo "=== $step: $((SECONDS - start)) s"
done
[ ${#failed[@]} -eq 0 ] || { echo "Failed: ${failed[*]}; see build/check/*.log" >&2; exit 1; }
