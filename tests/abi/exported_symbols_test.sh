#!/usr/bin/env bash
# Usage: exported_symbols_test.sh LIBRARY LISTS...
# Compares the dynamic symbol table of the library with the lists of C functions and of classes and
# functions of the class-level interface, and looks at how the library is marked.
set -euo pipefail
export LC_ALL=C
library=$1
shift

# Reduces mangled names to their namespaces and the class or function in them; what is not mangled
# stays as it is. Mangled, because a demangled template starts with its return type.
class_level_names() {
  awk '
    BEGIN {
      split("datafusion planex io scan estimation acquisition basic cmnalg math impro shape shape3d etl base", names)
      for (i in names) namespaces[names[i]] = 1
    }
    !/^_Z/ { print; next }
    {
      rest = $0
      # Functions and data; typeinfo, its name, vtable, VTT; guards; thunks.
      if (!sub(/^_Z(T[ISVT]|GV|T[hv][n0-9_]+)?N[VK]*/, "", rest)) { print; next }
      path = ""
      while (match(rest, /^[0-9]+/)) {
        length_of_name = substr(rest, 1, RLENGTH) + 0
        name = substr(rest, RLENGTH + 1, length_of_name)
        rest = substr(rest, RLENGTH + 1 + length_of_name)
        path = path (path == "" ? "" : "::") name
        if (!(name in namespaces)) break
      }
      print path == "" ? $0 : path
    }' | sort -u
}

symbols=$(nm -D --defined-only "$library" | sed 's/^.* //; s/@.*//' | grep -v '^PLANEX_\(IO_\|ESTIMATION_\|ACQUISITION_\)\?1\(\.1\)\?$')
# "<": not exported, ">": exported, but in no list.
diff <(sort -u "$@") <(class_level_names <<<"$symbols")

# A name of ours may still drag in a type of others.
if c++filt <<<"$symbols" | grep -E 'Eigen::|ceres::|Arv[A-Z]|tavik::|CLI::|fmt::'; then
  exit 1
fi

dynamic=$(readelf --dynamic --wide "$library")
soname=$(basename "$library" | sed 's/\.so.*/.so.1/')
grep -F "[$soname]" <<<"$(grep SONAME <<<"$dynamic")"
# It cannot be unloaded.
[ "$soname" != libplanex.so.1 ] || grep 'FLAGS_1.*NODELETE' <<<"$dynamic"
