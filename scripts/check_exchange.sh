#!/usr/bin/env bash
# Two builds of planex, for one processor and another: each writes documents, range images, points and
# height maps, both read all of them, and what comes out must be the same files.
# Usage: scripts/check_exchange.sh PLANEX OTHER..., a command and its arguments: qemu-s390x ... planex
set -euo pipefail
cd "$(dirname "$0")/.."

native=("$1")
foreign=("${@:2}")
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
/usr/bin/python3 -B tests/tools/scans.py frames "$folder/frames.pgm" 24
cp examples/models/simulated_camera.json "$folder/model.json"
cd "$folder"

write_files() { # FOLDER PLANEX...
  local to=$1 planex=("${@:2}") ending
  mkdir "$to"
  "${planex[@]}" convert model.json --compact -o "$to/model.json"
  for ending in npy png tif; do
    "${planex[@]}" extract frames.pgm --y-scale 0.5 -o "$to/lines.$ending" -q
    "${planex[@]}" rectify "$to/model.json" "$to/lines.$ending" -o "$to/levels.$ending" -q
  done
  for ending in none deflate zstd; do
    "${planex[@]}" rectify "$to/model.json" "$to/lines.tif" --float --compress "$ending" \
      -o "$to/heights_$ending.tif" -q
  done
  for ending in csv las npy pcd ply; do
    "${planex[@]}" calibrate "$to/model.json" "$to/lines.tif" --aligned -o "$to/points.$ending" -q
  done
}

read_files() { # FOLDER OUTPUT PLANEX...
  local from=$1 to=$2 planex=("${@:3}") ending file
  mkdir "$to"
  "${planex[@]}" convert "$from/model.json" -o "$to/model.json"
  for ending in npy png tif; do
    "${planex[@]}" calibrate "$from/model.json" "$from/lines.$ending" -o "$to/$ending.npy" -q
  done
  for file in "$from"/levels.* "$from"/heights_*.tif; do
    [[ $file != *.json ]] || continue
    "${planex[@]}" profile "$file" --at 3 -o "$to/$(basename "$file").csv" -q
  done
}

write_files by_native "${native[@]}"
write_files by_foreign "${foreign[@]}"
for file in model.json lines.npy levels.npy points.{csv,las,npy,pcd,ply}; do
  cmp "by_native/$file" "by_foreign/$file"
done
for writer in native foreign; do
  read_files "by_$writer" "${writer}_in_native" "${native[@]}"
  read_files "by_$writer" "${writer}_in_foreign" "${foreign[@]}"
done
for other in native_in_foreign foreign_in_native foreign_in_foreign; do
  diff -r --exclude='*.*.json' native_in_native "$other"
done
echo "files of both are the same, and are read as the same"
