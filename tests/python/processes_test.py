"""Children of each kind, after what a parent may have done before. Each parent is a process of its
own, which runs this file."""

import ctypes
import hashlib
import multiprocessing
import os
import pathlib
import signal
import subprocess
import sys
import threading

import numpy
import pytest

import planex

CASES = [("fork", "nothing"), ("fork", "a team"), ("fork", "another library's team"),
         ("fork", "a busy thread"), ("spawn", "a team"), ("forkserver", "a team")]


def calls(text):
    """What each process does: a model read, a refusal, and an image that is worth a team."""
    model = planex.Model.from_json(text)
    sensor = planex.SensorTraits.full(model)
    scan = numpy.random.default_rng(3).integers(0, 16000, (400, 2560), numpy.uint16)
    said = ""
    try:
        planex.calibrate(model.replace(focal_length=0), scan, sensor)
    except planex.Error as error:
        said = str(error)
    points = planex.calibrate(model, scan, sensor)
    heights = planex.height_map(model, scan, sensor)
    return said, *[hashlib.sha256(a.tobytes()).hexdigest() for a in (*points, heights.z)]


def prepare(before, text):
    if before == "a team":
        calls(text)
    elif before == "another library's team":
        libc, openmp = ctypes.CDLL(None), ctypes.CDLL("libgomp.so.1")
        openmp.GOMP_parallel(libc.sched_yield, None, 4, 0)
    elif before == "a busy thread":  # it holds locks at any moment
        def work():
            while True:
                calls(text)

        threading.Thread(target=work, daemon=True).start()


def parent(method, before, model_file):
    text = pathlib.Path(model_file).read_text(encoding="utf-8")
    prepare(before, text)
    for _ in range(5 if before == "a busy thread" else 1):
        with multiprocessing.get_context(method).Pool(2) as pool:
            results = pool.map_async(calls, [text] * 4, 1).get(timeout=60)
    assert results == [calls(text)] * 4 and results[0][0] == "Invalid focal length.", results
    os._exit(0)  # a busy thread is not waited for


@pytest.mark.parametrize("method, before", CASES)
def test_pools_finish_with_the_same_bytes(model, tmp_path, method, before):
    model.to_file(tmp_path / "model.json")
    package = str(pathlib.Path(planex.__file__).parents[1])
    with subprocess.Popen([sys.executable, "-B", __file__, method, before, tmp_path / "model.json"],
                          env={**os.environ, "PYTHONPATH": package, "OMP_NUM_THREADS": "4"},
                          start_new_session=True) as process:
        try:
            assert process.wait(timeout=120) == 0
        finally:
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGKILL)


if __name__ == "__main__":
    parent(*sys.argv[1:])
