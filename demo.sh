#!/usr/bin/env bash
# Builds planex, simulates a scan, measures it, turns it into a height map and a point cloud with the
# command planex, and into a labelled array with Python. Then estimates a model of the camera from
# scans of a target, and measures with that; and starts from frames of a plain camera. Installs what
# is missing. --installed: with planex as it is installed; only what simulates the scans is built.
set -euo pipefail
cd "$(dirname "$0")"

examples=(simulate_scan simulate_target simulate_frames height_map)
if [ "${1:-}" = --installed ]; then
  cmake -S examples -B build/examples
  cmake --build build/examples --target "${examples[@]}"
  programs=build/examples
  planex=planex
else
  scripts/setup.sh build python
  cmake --preset demo
  cmake --build --preset demo --target "${examples[@]}" planex_command planex_python
  programs=build/release/examples
  planex=build/release/tools/planex
  export PYTHONPATH=build/release/python
fi
scan=build/demo
mkdir -p "$scan"
echo
"$programs/simulate_scan" "$scan"
"$programs/height_map" "$scan" "$scan"
echo "raw data: $PWD/$scan/height.pgm, $PWD/$scan/intensity_map.pgm"

shown() { # an earlier demo's files may stand there
  echo
  echo "\$ planex ${*//$scan\//}"
  "$planex" "$@"
}
shown info "$scan/model.json" --plot "$scan/view.png" --force
shown rectify "$scan/model.json" "$scan/range.pgm" --intensity "$scan/intensity.pgm" \
  --fill 4 -o "$scan/map.tif" --preview "$scan/preview.png" --shade --force
shown rectify "$scan/model.json" "$scan/range.pgm" --aligned --float --layers count,sigma --fill 4 \
  -o "$scan/aligned.tif" --preview "$scan/aligned.png" --shade --force
shown stats "$scan/map.tif" --rect -47,18,-19,28 # the highest step of the gauge
shown view "$scan/map.tif" -o "$scan/map.html" --force
shown profile "$scan/map.tif" --at 50 -o "$scan/profile.png" --force
shown calibrate "$scan/model.json" "$scan/range.pgm" --intensity "$scan/intensity.pgm" \
  --aligned -o "$scan/points.ply" --force
echo
echo "\$ python3 examples/measure_step.py"
/usr/bin/python3 -B examples/measure_step.py "$scan" "$scan/python.png"

# The same camera, if nobody had its model.
echo
"$programs/simulate_target" "$scan"
shown estimate "$scan"/saw?.pgm --target "$scan/saw.json" --sensor 2560x1024 --up with-rows \
  --right with-columns -o "$scan/own.json" --report "$scan/own.html" --force
shown report "$scan/own.json" "$scan/range.pgm" -o "$scan/report.pdf" --force
echo
echo "\$ python3 examples/measure_with_own_model.py"
/usr/bin/python3 -B examples/measure_with_own_model.py "$scan" "$scan/own.json"

# The same scene, if the camera delivered frames, and nothing had found the laser line in them.
echo
"$programs/simulate_frames" "$scan"
shown extract "$scan/frames.pgm" --method cog --pick last --origin-x 64 --origin-z 376 \
  --y-scale 0.25 --y-offset 14 -o "$scan/lines.png" --intensity "$scan/lines_intensity.png" --force
shown calibrate "$scan/model.json" "$scan/lines.png" --intensity "$scan/lines_intensity.png" \
  -o "$scan/lines.ply" --force
shown rectify "$scan/model.json" "$scan/lines.png" --float --fill 4 -o "$scan/lines_map.tif" \
  --preview "$scan/lines_map.png" --shade --force
echo
echo "\$ python3 examples/measure_lines.py"
/usr/bin/python3 -B examples/measure_lines.py "$scan" "$scan/lines.png" "$scan/lines_map.tif"
echo
echo "look at: $PWD/$scan/preview.png, aligned.png, profile.png, view.png, python.png and lines_map.png, map.html and own.html in a browser, and report.pdf; $PWD/$scan/points.ply opens in any viewer of point clouds"
