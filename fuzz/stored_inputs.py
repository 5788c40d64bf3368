#!/usr/bin/env python3
"""Stored inputs: a text for each target in fuzz/corpus, a folder of files for the fuzzer.

    fuzz/stored_inputs.py unpack TARGET FOLDER
    fuzz/stored_inputs.py pack TARGET FOLDER

A line is an input: printable ASCII as it is, every other byte, the backslash and # as \\xNN. A line
that begins with # names the input below it; others are named by their digest, as the fuzzer does.
"""

import hashlib
import pathlib
import re
import sys

ESCAPED = {*b"\\#", *range(0x20), *range(0x7F, 0x100)}


def text_of(data):
    return "".join(f"\\x{byte:02x}" if byte in ESCAPED else chr(byte) for byte in data)


def data_of(line):
    return re.sub(rb"\\x(..)", lambda code: bytes([int(code[1], 16)]), line.encode("ascii"))


def pack(text, folder):
    with text.open("w", encoding="ascii") as out:
        for file in sorted(folder.iterdir()):
            data = file.read_bytes()
            if file.name != hashlib.sha1(data).hexdigest():
                out.write(f"# {file.name}\n")
            out.write(text_of(data) + "\n")


def unpack(text, folder):
    folder.mkdir(parents=True, exist_ok=True)
    name = None
    for line in text.read_text(encoding="ascii").split("\n")[:-1]:
        if line.startswith("# "):
            name = line[2:]
            continue
        data = data_of(line)
        (folder / (name or hashlib.sha1(data).hexdigest())).write_bytes(data)
        name = None


if __name__ == "__main__":
    what, target, path = sys.argv[1:]
    stored = pathlib.Path(__file__).parent / "corpus" / f"{target}.txt"
    {"pack": pack, "unpack": unpack}[what](stored, pathlib.Path(path))
