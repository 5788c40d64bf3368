#!/usr/bin/env bash
# Installs the Python package as people do, with pip and without network, from a clone and from its
# source archive: the same files, byte by byte, and the numbers of the package that CMake builds.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset release -DPLANEX_BUILD_PYTHON=ON >/dev/null
cmake --build --preset release --target planex_python
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
clone=$scratch/plänex\ 2
git clone --quiet . "$clone"
/usr/bin/python3 -m venv --system-site-packages "$scratch/venv"
python=$scratch/venv/bin/python

"$python" -m pip install --quiet --no-index "$clone"
if [ -n "$(git -C "$clone" status --porcelain --ignored)" ]; then
  echo "the build left files in the tree" >&2
  exit 1
fi
numbers='
import hashlib, sys, numpy, planex
model = planex.Model.from_file(sys.argv[1])
scan = numpy.random.default_rng(1).integers(0, 16000, (99, 2560), numpy.uint16)
points = planex.calibrate(model, scan, planex.SensorTraits.full(model))
print([hashlib.sha256(part.tobytes()).hexdigest() for part in points], model.check())
print(planex.__file__, file=sys.stderr)'
model=$PWD/examples/models/simulated_camera.json
built=$(PYTHONPATH=$PWD/build/release/python /usr/bin/python3 -c "$numbers" "$model")
cd "$scratch"
[ "$(env -u LD_LIBRARY_PATH -u PYTHONPATH "$python" -c "$numbers" "$model")" = "$built" ]

# backend FOLDER HOOK ARGUMENT: as a front end calls it
backend() {
  (cd "$1" && PYTHONPATH=python "$python" -B -c \
    'import sys, build_backend; getattr(build_backend, sys.argv[1])(sys.argv[2])' "${@:2}")
}
backend "$clone" build_sdist "$scratch"
tar -xf planex-*.tar.gz
backend "$scratch"/planex-*[0-9]/ build_wheel "$scratch" >/dev/null
# What the wheel holds and its digests stand in RECORD, to which pip adds what it makes itself.
"$python" -m zipfile -e planex-*.whl unpacked
digests() { tr -d '\r' <"$(find "$1" -path '*/planex-*.dist-info/RECORD')" | sort; }
digests venv >installed
digests unpacked | comm -23 - installed >different
if [ -s different ]; then
  cat different >&2
  exit 1
fi

if PATH='' backend "$clone" build_wheel "$scratch" 2>problem; then
  exit 1
fi
grep -q 'there is no cmake' problem && grep -q 'scripts/setup.sh build python' problem
