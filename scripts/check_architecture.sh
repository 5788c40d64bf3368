#!/usr/bin/env bash
# Builds library, command and tests for another processor and runs them under qemu: other vectors, other
# char, and on s390x the other byte order; but the same checksums. Then files that are written there are
# read here, and the other way round. Extra arguments go to ctest.
# Usage: scripts/check_architecture.sh aarch64|s390x [--no-tests | CTEST ARGUMENT...]
#
# Debian's libraries for the processor are unpacked into build/root; the system gets cross compiler and
# emulator only.
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A debian=([aarch64]=arm64 [s390x]=s390x)
processor=${1:-}
if [ -z "${debian[$processor]:-}" ]; then
  echo "check_architecture.sh: name one of: ${!debian[*]}" >&2
  exit 2
fi
shift
scripts/setup.sh build test "$processor"

libraries=(libstdc++6 libgomp1 libcjson-dev libeigen3-dev libpng-dev libtiff-dev zlib1g-dev
  libzstd-dev nettle-dev libcli11-dev libfmt-dev libcairo2-dev libgtest-dev libgmock-dev)
root=$PWD/build/root/$processor
if [ "$(cat "$root/libraries" 2>/dev/null)" != "${libraries[*]}" ]; then
  mkdir -p "$root"/apt/{lists,archives}/partial
  : >"$root/apt/status"
  apt=(apt-get -qq -o "APT::Architecture=${debian[$processor]}"
    -o "APT::Architectures=${debian[$processor]}" -o "APT::Sandbox::User=$(id -un)"
    -o Debug::NoLocking=1 -o "Dir::State=$root/apt" -o "Dir::State::status=$root/apt/status"
    -o "Dir::Cache=$root/apt")
  "${apt[@]}" update
  "${apt[@]}" install --yes --download-only --no-install-recommends "${libraries[@]}"
  for package in "$root"/apt/archives/*.deb; do dpkg-deb --extract "$package" "$root"; done
  rm "$root"/apt/archives/*.deb
  echo "${libraries[*]}" >"$root/libraries"
fi

host=$processor-linux-gnu
build=build/$processor
qemu=(qemu-"$processor" -L "$root")
export PKG_CONFIG_SYSROOT_DIR=$root
PKG_CONFIG_LIBDIR=$root/usr/lib/$host/pkgconfig:$root/usr/share/pkgconfig cmake -S . -B "$build" \
  -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_SYSTEM_NAME=Linux \
  -DCMAKE_SYSTEM_PROCESSOR="$processor" -DCMAKE_LIBRARY_ARCHITECTURE="$host" \
  -DCMAKE_C_COMPILER="$host-gcc" -DCMAKE_CXX_COMPILER="$host-g++" -DCMAKE_SYSROOT="$root" \
  -DCMAKE_FIND_ROOT_PATH="$root" -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER \
  -DCMAKE_FIND_ROOT_PATH_MODE_{LIBRARY,INCLUDE,PACKAGE}=ONLY \
  -DCMAKE_CROSSCOMPILING_EMULATOR="$(IFS=';' && echo "${qemu[*]}")" \
  -DPLANEX_BUILD_{ACQUISITION,BENCH,ESTIMATION,EXAMPLES}=OFF >/dev/null
tests=()
if [ "${1:-}" != --no-tests ]; then
  tests=(planex_{infra,foundation,model,processing,api,property,faults,io}_test)
fi
cmake --build "$build" --target planex_command "${tests[@]}"

# Teams of threads may hang under the emulator. No result depends on their number.
export OMP_THREAD_LIMIT=1
planex=("${qemu[@]}" "$PWD/$build/tools/planex")
"${planex[@]}" selftest --threads 1

cmake --preset release >/dev/null
cmake --build --preset release --target planex_command
scripts/check_exchange.sh "$PWD/build/release/tools/planex" "${planex[@]}"

[ ${#tests[@]} -gt 0 ] || exit 0
# Left out: what starts programs by itself, where no emulator stands in front of them, and what was not
# built; texts of millions of numbers, for which it is too slow; and teams of threads.
ctest --test-dir "$build" --output-on-failure -j "$(nproc)" --timeout 900 \
  -E '^package_|^host_|^Tool\.|^exported_|_NOT_BUILT|^FirstUse|TakesLinearTime|^JsonRoundTrip|LosesNoRecord|RowParallel|Thread|Team|Faults' \
  "$@"
