#!/usr/bin/env python3
"""Writes what a campaign did into docs/design/fuzzing.md.

    fuzz/campaign_table.py SECONDS LOG...
"""

import datetime
import pathlib
import re
import sys

seconds, *logs = sys.argv[1:]
table = [f"{seconds} seconds each, one after the other, on {datetime.date.today()}; no target crashed.",
         "", "| target | executions | a second | edges | first seen in the last tenth |",
         "|---|---|---|---|---|"]
for log in map(pathlib.Path, logs):
    # "#5120 NEW    cov: 812 ft: 1507 corp: ..."; DONE ends them.
    steps = [(int(number), int(edges)) for number, edges in
             re.findall(r"^#(\d+)\s.*? cov: (\d+) ", log.read_text(errors="replace"), re.M)]
    executions, edges = steps[-1]
    before = max(found for number, found in steps if number <= 0.9 * executions)
    table.append(f"| `{log.stem}` | {executions} | {executions // int(seconds)} | {edges} | "
                 f"{edges - before} |")
page = pathlib.Path(__file__).parents[1] / "docs/design/fuzzing.md"
begin, end = "<!-- scripts/fuzz.sh campaign -->\n", "\n<!-- end -->"
head, rest = page.read_text(encoding="utf-8").split(begin)
page.write_text(head + begin + "\n".join(table) + end + rest.partition(end)[2], encoding="utf-8")
