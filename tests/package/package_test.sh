#!/usr/bin/env bash
# Usage: package_test.sh STEP SOURCE_DIR BUILD_DIR CC CXX CMAKE LIBDIR VERSION LISTS...
# STEP install lays the package out in a scratch prefix and compares it with the files that LISTS
# name; each other step uses what lies there.
set -euo pipefail
export LC_ALL=C
step=$1 source_dir=$2 build_dir=$3 cc=$4 cxx=$5 cmake=$6 libdir=$7 version=$8
shift 8
here=$source_dir/tests/package
scratch=$build_dir/tests/package/scratch
prefix=$scratch/prefix
model=$source_dir/examples/models/simulated_camera.json

step_install() {
  rm -rf "$scratch"
  "$cmake" --install "$build_dir" --prefix "$prefix" >/dev/null
  # Exported targets come in one file more per configuration, named after it.
  diff <(cd "$here" && sed "s|@LIBDIR@|$libdir|; s|@VERSION@|$version|" "$@" | sort) \
    <(cd "$prefix" && find . ! -type d | sed 's|^\./||; s|Targets-[a-z]*\.cmake|Targets-config.cmake|
      s|^lib.*/python3[.0-9]*/[a-z]*-packages/|python/|; s|/_core\..*\.so$|/_core.so|' | sort)
}

step_headers() { # each compiles alone
  local strict=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only)
  cd "$prefix/include"
  find planex -name '*.h' | while read -r header; do
    echo "#include <$header>" | "$cxx" -std=c++17 "${strict[@]}" -x c++ -I"$PWD" -
  done
  for header in planex/version.h planex/api/*.h; do # a C file must declare something
    printf '#include <%s>\nextern int used;\n' "$header" |
      "$cc" -std=c99 "${strict[@]}" -x c -I"$PWD" -
  done
}

step_cmake() {
  # The prefix was moved since it was configured: nothing in it may name another place.
  if grep -rIl -e "$source_dir" -e "$build_dir" "$prefix"; then
    exit 1
  fi
  "$cmake" -S "$here/consumer" -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
  "$cmake" --build "$scratch/cmake"
  for program in "$scratch"/cmake/*_consumer; do
    "$program" "$model"
  done
}

# consume <package> <compiler> <argument>...
consume() {
  # A blank in a path comes with a backslash before it, and so does each byte of other letters.
  mapfile -t flags < <(pkg-config --cflags --libs "$1 = $version" | xargs printf '%s\n')
  "${@:2}" -o "$scratch/consumer" "${flags[@]}" "-Wl,-rpath,$prefix/$libdir"
  "$scratch/consumer" "$model"
}

step_pkgconfig() {
  export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
  consume planex "$cc" -std=c99 "$source_dir/examples/minimal.c"
  consume planex "$cxx" -std=c++17 "$here/consumer/cxx_consumer.cc"
  pkg-config --exists planex-io || exit 0
  consume planex-io "$cxx" -std=c++17 "$here/consumer/io_consumer.cc"
}

step_python() { # it finds its library in the prefix
  local python
  python=$(sed -n 's/^Python_EXECUTABLE:[^=]*=//p' "$build_dir/CMakeCache.txt")
  env -u LD_LIBRARY_PATH PYTHONPATH="$(dirname "$(find "$prefix" -path '*-packages/planex')")" \
    "${python:-/usr/bin/python3}" -B -c "import planex; print(planex.Model.from_file('$model'))"
}

step_command() {
  # It finds its library beside itself.
  [ "$(env -u LD_LIBRARY_PATH "$prefix/bin/planex" --version)" = "planex $version" ]
  "$prefix/bin/planex" check "$model"
  # Nor does what was built look into the current folder, for which an empty entry stands.
  if readelf -d "$build_dir/tools/planex" "$build_dir/$libdir/libplanex-io.so" |
    grep -E 'R(UN)?PATH.*(\[:|::|:\])'; then
    exit 1
  fi
  # What estimation and cameras need, nothing else loads.
  if readelf -d "$build_dir/$libdir"/libplanex{,-io}.so | grep -E 'NEEDED.*(ceres|glog|aravis)'; then
    exit 1
  fi
  [ -z "$(groff -ww -man -Tutf8 -z "$prefix"/share/man/man1/*.1 2>&1)" ]
  # shellcheck disable=SC1091
  source "$prefix/share/bash-completion/completions/planex"
  cd "$source_dir/examples/models"
  set +e # as in a shell of people
  while read -r wanted line; do
    read -ra COMP_WORDS <<<"planex $line"
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _planex planex "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"
    [ "${COMPREPLY[*]}" = "$wanted" ] || exit 1
  done <<<"calibrate cal
--pixel-size rectify m.json --pi
darkest rectify m.json r.png --mode d
2 convert --file-version 2
simulated_camera.json diff sim"
}

"step_$step" "$@"
