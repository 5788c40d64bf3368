#!/usr/bin/env bash
# Usage: exported_symbols_test.sh LIBRARY C_FUNCTIONS
# The dynamic symbol table of the library holds the listed C functions and the class-level
# interface, and no stranger.
set -euo pipefail
export LC_ALL=C
library=$1
c_functions=$2

failures=0
fail() {
  printf '%s\n' "$1"
  failures=$((failures + 1))
}

symbols=$(nm -D --defined-only "$library" | sed 's/^.* //; s/@.*//' | sort -u)

missing=$(comm -23 <(sort "$c_functions") <(echo "$symbols"))
[ -z "$missing" ] || fail "C functions not exported: $missing"

# Owners are told from mangled names: a demangled template starts with its return type.
owner='(10datafusion6planex|6cmnalg|3etl|4base)'
plain="_ZN[VK]*$owner"              # functions, members, static data
about="_Z(T[ISVT]|GV)N$owner"       # typeinfo, its name, vtable, VTT, guard of a static
thunk="_ZT[hv][n0-9_]+N$owner"      # calls through a second base class
others=$(comm -13 <(sort "$c_functions") <(echo "$symbols") | grep -v '^PLANEX_1$' || true)
strangers=$(grep -vE "^($plain|$about|$thunk)" <<<"$others" || true)
[ -z "$strangers" ] || fail "Strangers: $(c++filt <<<"$strangers")"

# A name of our own may still drag in a type of others as an argument. A pointer to cJSON is
# declared in a header, by name only.
foreign=$(c++filt <<<"$others" | grep -E 'Eigen::|tavik::|\bomp_' || true)
[ -z "$foreign" ] || fail "Foreign types in: $foreign"
[ "$(grep -cE "^$plain" <<<"$others")" -gt 50 ] || fail "The class-level interface is not exported"

dynamic=$(readelf --dynamic --wide "$library")
grep -q 'SONAME.*\[libplanex\.so\.1\]' <<<"$dynamic" || fail "SONAME is not libplanex.so.1"
grep -q 'FLAGS_1.*NODELETE' <<<"$dynamic" || fail "The library can be unloaded"

[ "$failures" -eq 0 ]
