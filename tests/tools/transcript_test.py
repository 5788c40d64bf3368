"""Usage: transcript_test.py PLANEX TRANSCRIPT [--update]

Runs the lines of a transcript that start with "$ " in a folder of its own and compares what follows
there with what they write: standard output, then standard error with "! " before each line, then
the exit status in brackets unless it is 0. --update writes the transcript anew.

In the folder are model.json, the example model; region.json, the same with a calibrated region;
damaged.json, which only the recovery check reads; and range.pgm and intensity.pgm, a small scan, on
the sensor as $SENSOR says. `edit` is documents.py, `image` is scans.py.
"""
import difflib
import json
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile

import documents
import scans


def run(line, folder, environment):
    done = subprocess.run(["/bin/sh", "-c", line], cwd=folder, env=environment, text=True,
                          capture_output=True, encoding="utf-8")
    # Line ends of documents are \r\n; a transcript has \n.
    text = done.stdout.replace("\r\n", "\n")
    if text and not text.endswith("\n"):
        text += "\n"
    # Programs that count their lines for coverage tell where files may not be written.
    errors = [line for line in done.stderr.splitlines() if not line.startswith("profiling:")]
    text += "".join(f"! {error}\n" for error in errors)
    return text + (f"[{done.returncode}]\n" if done.returncode else "")


def main():
    planex, transcript = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
    environment = dict(os.environ, PATH=f".:{planex.parent}:{os.environ['PATH']}",
                       LC_ALL="C.UTF-8", SENSOR=" ".join(scans.SENSOR))
    damaged = documents.example()
    del damaged["data"]["LensCoefficients"]
    expected = transcript.read_text(encoding="utf-8")
    actual = ""
    with tempfile.TemporaryDirectory() as folder:
        files = scans.write_scan(folder)
        for name, module in (("edit", documents), ("image", scans)):
            command = shlex.join([sys.executable, "-B", module.__file__])
            (files / name).write_bytes(os.fsencode(f'#!/bin/sh\nexec {command} "$@"\n'))
            (files / name).chmod(0o755)
        for name, document in (("model", documents.example()), ("damaged", damaged),
                               ("region", documents.with_region())):
            (files / f"{name}.json").write_text(json.dumps(document))
        for line in expected.splitlines():
            if line.startswith("#") or not line:
                actual += line + "\n"
            elif line.startswith("$ "):
                # A program that counts what it runs would cut its counts off with the files.
                counts = {"GCOV_PREFIX": "/dev/null"} if "ulimit -f" in line else {}
                actual += line + "\n" + run(line[2:], folder, {**environment, **counts})
    if "--update" in sys.argv:
        transcript.write_text(actual, encoding="utf-8")
        return 0
    print("\n".join(difflib.unified_diff(expected.splitlines(), actual.splitlines(),
                                         "expected", "actual", lineterm="")))
    return actual != expected


if __name__ == "__main__":
    sys.exit(main())
