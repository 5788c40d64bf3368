#!/usr/bin/env bash
# Installs the Debian packages that are missing. Usage: scripts/setup.sh [GROUP...]
# The groups stand below; without an argument: build test.
set -euo pipefail

declare -A packages=(
  [build]="g++ cmake ninja-build pkg-config libcjson-dev libeigen3-dev libpng-dev
    libtiff-dev zlib1g-dev libzstd-dev nettle-dev libcli11-dev libfmt-dev libcairo2-dev
    fonts-dejavu-core libceres-dev libaravis-dev libusb-1.0-0-dev libjs-three"
  [test]="libgtest-dev libgmock-dev libbenchmark-dev groff-base python3 python3-numpy
    python3-tifffile python3-pil"
  [python]="python3-dev python3-numpy pybind11-dev python3-pytest python3-hypothesis
    python3-xarray python3-matplotlib python3-dask python3-distributed python3-zarr python3-venv
    mypy"
  [lint]="git clang-format-14 clang-tidy-14 libomp-19-dev"
  [clang]="clang-19 libclang-rt-19-dev libomp-19-dev"
  [abi]="abigail-tools"
  [check]="git valgrind locales-all gcovr python3-gdal python3-opencv python3-open3d time"
  [docs]="doxygen graphviz"
  [aarch64]="g++-aarch64-linux-gnu qemu-user"
  [s390x]="g++-s390x-linux-gnu qemu-user"
  [browser]="chromium chromium-driver python3-selenium python3-numpy python3-tifffile python3-pil"
  [npm]="npm"
  [packages]="mmdebstrap"
  [bench]="python3-numpy python3-scipy python3-opencv gmt"
)

[ $# -gt 0 ] || set -- build test
missing=()
for group in "$@"; do
  if [ -z "${packages[$group]+set}" ]; then
    echo "setup.sh: no group '$group'; there are: ${!packages[*]}" >&2
    exit 2
  fi
  for package in ${packages[$group]}; do
    status=$(dpkg-query --show --showformat '${db:Status-Status}' "$package" 2>/dev/null || true)
    [[ $status == installed* ]] || missing+=("$package")
  done
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup.sh: please install as root: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
