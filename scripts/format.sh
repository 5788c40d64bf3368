#!/usr/bin/env bash
# Formats all C and C++ sources; with --check, only reports what is not formatted, and fails.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run --Werror)
git ls-files -z --cached --others --exclude-standard '*.c' '*.cc' '*.h' |
  xargs -0 clang-format-14 "${mode[@]}"
