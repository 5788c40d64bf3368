#!/usr/bin/env bash
# Builds planex and its examples, simulates a scan and measures it. Installs what is missing.
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh build
cmake --preset demo
cmake --build --preset demo --target simulate_scan height_map

programs=build/release/examples
scan=build/demo
mkdir -p "$scan"
echo
"$programs/simulate_scan" "$scan"
"$programs/height_map" "$scan" "$scan"
echo "look at: $PWD/$scan/height_color.png"
echo "also:    $PWD/$scan/height.png, $PWD/$scan/intensity.png"
