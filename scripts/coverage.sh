#!/usr/bin/env bash
# Lines and branches that the test suite reaches, per folder, and the lines that it does not.
# The pages of every file stand in build/coverage/html. --update writes the table into
# docs/design/testing.md.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build test check
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
# Instrumented code is slow, and says nothing of how time grows. It says so where a test leaves no
# place for its counts.
export GCOV_ERROR_FILE=/dev/null
ctest --preset coverage --quiet --timeout 1800 --exclude-regex "TakesLinearTime|Campaigns"

output=build/coverage/html
mkdir -p "$output"
# Branches of exceptions that may leave any call, and those that only the compiler sees, are none of
# the text's.
gcovr --root . --object-directory build/coverage --filter planex/ --exclude-throw-branches \
  --exclude-unreachable-branches --json "$output/coverage.json" \
  --html-details "$output/index.html" >/dev/null

python3 - "$output" <<'PY'
import collections
import json
import pathlib
import sys

output = pathlib.Path(sys.argv[1])
files = json.loads((output / "coverage.json").read_text(encoding="utf-8"))["files"]
totals = collections.defaultdict(lambda: [0, 0, 0, 0])
missing = []
for entry in files:
    name = entry.get("file", entry.get("filename"))
    folder = totals[name.split("/")[1]]
    lines = [line for line in entry["lines"] if not line.get("gcovr/noncode")]
    for line in lines:
        branches = [b for b in line["branches"] if not b.get("throw")]
        folder[0] += line["count"] > 0
        folder[1] += 1
        folder[2] += sum(b["count"] > 0 for b in branches)
        folder[3] += len(branches)
    numbers = [line["line_number"] for line in lines if line["count"] == 0]
    if numbers:
        missing.append((name, numbers))

def share(part, whole):
    return f"{part} of {whole}, {part / max(whole, 1):.1%}"


table = ["| folder | lines | branches |", "|---|---|---|"]
for folder, (hit, lines, taken, branches) in sorted(totals.items()):
    table.append(f"| `{folder}` | {share(hit, lines)} | {share(taken, branches)} |")
print("\n".join(table))
(output / "table.md").write_text("\n".join(table), encoding="utf-8")
print("\nlines not reached:")
for name, numbers in sorted(missing):
    print(f"  {name}: {', '.join(map(str, numbers))}")
PY
[ "${1:-}" != --update ] ||
  scripts/write_table.py docs/design/testing.md scripts/coverage.sh <"$output/table.md"
