#!/usr/bin/env python3
"""Replaces what stands on a page between the comments <!-- PROGRAM --> and <!-- end -->.

    scripts/write_table.py PAGE PROGRAM < TABLE
"""

import pathlib
import sys

page, begin, end = pathlib.Path(sys.argv[1]), f"<!-- {sys.argv[2]} -->\n", "\n<!-- end -->"
before, rest = page.read_text(encoding="utf-8").split(begin)
page.write_text(before + begin + sys.stdin.read().rstrip("\n") + end + rest.partition(end)[2],
                encoding="utf-8")
