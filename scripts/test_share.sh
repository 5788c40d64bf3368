#!/usr/bin/env bash
# Prints how many lines of test come on all other lines of code, and fails above 35 %, or above the
# percentage that is the argument. Lines that are blank or comment do not count.
set -euo pipefail
cd "$(dirname "$0")/.."

count() {
  xargs -0 cat -- | grep -acvE '^[[:space:]]*(//.*|#.*|\*.*|/\*.*)?$'
}
code=('*.c' '*.cc' '*.h' '*.py' '*.sh' '*.cmake' '*CMakeLists.txt')
all=$(git ls-files -z -- "${code[@]}" | count)
tests=$(git ls-files -z -- "${code[@]}" | grep -zE '^(tests|fuzz|python/tests)/' | count)
awk -v tests="$tests" -v other="$((all - tests))" -v most="${1:-35}" 'BEGIN {
  share = 100 * tests / other
  printf "%d lines of test on %d others: %.1f %%, at most %s %%\n", tests, other, share, most
  exit share > most
}'
