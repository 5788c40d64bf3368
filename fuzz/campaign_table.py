#!/usr/bin/env python3
"""Prints what a campaign did, for docs/design/fuzzing.md.

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
print("\n".join(table))
