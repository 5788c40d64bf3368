#!/usr/bin/env python3
"""Keeps the published checksums together: the table in planex/scan/reference_checksums.cc, what
planex selftest computes, and the table in docs/reproducibility.md.

  update_reproducibility.py PLANEX            writes the table of the page
  update_reproducibility.py PLANEX --check    fails where one of the three is another
  update_reproducibility.py PLANEX --accept   makes what is computed the published: for scenes that
                                              come or go, and for others with a major version only
"""

import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/reproducibility.md"
SOURCE = ROOT / "planex/scan/reference_checksums.cc"


def replace_between(text, begin, end, inner):
    head, rest = text.split(begin, 1)
    return head + begin + inner + end + rest.split(end, 1)[1]


def accepted(result):
    """The checksums that all ways gave."""
    found = {scene["name"]: {scene["sha256"]} for scene in result["scenes"]}
    differing = {}
    for difference in result["differences"]:
        differing.setdefault(difference["name"], []).append(difference["found"])
    for name, sums in differing.items():
        found[name] = set(sums)
        if len(sums) < len(result["ways"]) or len(found[name]) > 1:
            sys.exit(f"{name}: differs between ways; nothing is accepted")
    return {name: sums.pop() for name, sums in found.items() if "" not in sums}


def main(planex, mode=""):
    run = subprocess.run([planex, "selftest", "--json"], stdout=subprocess.PIPE, check=False)
    result = json.loads(run.stdout)
    if mode == "--accept":
        rows = "".join(f'      {{"{name}",\n       "{checksum}"}},\n'
                       for name, checksum in accepted(result).items())
        SOURCE.write_text(replace_between(SOURCE.read_text(), "// clang-format off\n",
                                          "      // clang-format on", rows))
        return "build planex again, and write the page"
    if run.returncode != 0:
        return f"{result['differing']} scenes differ"
    rows = "\n\n| scene | SHA-256 |\n|---|---|\n" + "".join(
        f"| {scene['name']} | `{scene['sha256']}` |\n" for scene in result["scenes"]) + "\n"
    page = PAGE.read_text()
    wanted = replace_between(page, "<!-- scenes -->", "<!-- end of scenes -->", rows)
    if mode == "--check":
        return page != wanted and f"{PAGE} has another table; run {sys.argv[0]} {planex}"
    PAGE.write_text(wanted)
    return None


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) or 0)
