#!/usr/bin/env bash
# Builds the API reference of the installed headers in build/docs/html, or in the directory named
# as argument. Fails on an undocumented public member, an unknown parameter, a broken reference, or
# a link in the documentation to a file that is not there.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh docs
output=${1:-build/docs}
mkdir -p "$output/include/planex"
version=$(sed -n 's/^  VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
IFS=. read -r major minor patch <<<"$version"
sed -e "s/@PROJECT_VERSION_MAJOR@/$major/" -e "s/@PROJECT_VERSION_MINOR@/$minor/" \
  -e "s/@PROJECT_VERSION_PATCH@/$patch/" -e "s/@PROJECT_VERSION@/$version/" \
  planex/version.h.in >"$output/include/planex/version.h"

mapfile -t headers < <(sed -n 's|^include/||p' tests/package/installed_{files,io,estimation,acquisition}.txt |
  grep -v '^planex/version.h$')
{
  cat docs/Doxyfile
  printf 'PROJECT_NUMBER = %s\nOUTPUT_DIRECTORY = "%s"\n' "$version" "$output"
  printf 'STRIP_FROM_PATH += "%s/include"\nSTRIP_FROM_INC_PATH += "%s/include"\n' "$output" "$output"
  printf 'INPUT += "%s"\n' docs/*.md docs/design/*.md docs/namespaces.dox \
    "$output/include/planex/version.h" "${headers[@]}"
} | doxygen -

# Doxygen lets a link pass whose file is missing.
broken=0
for page in *.md docs/*.md docs/design/*.md; do
  while IFS= read -r link; do
    if [ ! -e "$(dirname "$page")/$link" ]; then
      echo "$page: there is no $link" >&2
      broken=1
    fi
  done < <(grep -oP '\]\(\K(?!https?:)[^)#]+' "$page")
done
[ "$broken" -eq 0 ]
echo "API reference: $output/html/index.html"
