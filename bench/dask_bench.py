#!/usr/bin/python3
"""Measures planex.dask beside the command: 100,000 profiles from a TIFF to a height map.

    bench/dask_bench.py [--build DIR] [--profiles N] [--rounds N]

One process of Dask, two of them, and `planex rectify --threads 1` make the same map of levels from
the same uncompressed TIFF, each into an NPY file; the maps are compared. The command reads and
writes on further threads, so one process stands beside it with two threads, too. Each has the
machine to itself for some rounds, twice: idle workers of the others would take time from it.
Starting workers does not count, and the file is in the cache. Elapsed time is the least of all
rounds, processor time that of the process, or of all workers. Build type Release, and
-DPLANEX_BUILD_PYTHON=ON.
"""

import argparse
import collections
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).parents[1]
MODEL = ROOT / "examples/models/simulated_camera.json"
COLUMNS, STEP = 2560, 1000


class NpyRows:
    """Rows of an NPY file, by its path: tasks write theirs side by side."""

    def __init__(self, path, shape, dtype):
        import numpy

        self.path, self.row_bytes = str(path), shape[1] * numpy.dtype(dtype).itemsize
        image = numpy.lib.format.open_memmap(path, "w+", dtype, shape)
        self.begin = image.offset

    def __setitem__(self, index, block):
        descriptor = os.open(self.path, os.O_WRONLY)
        try:
            os.pwrite(descriptor, memoryview(block), self.begin + index[0].start * self.row_bytes)
        finally:
            os.close(descriptor)


def write_scan(path, profiles):
    """Laser lines of a smooth surface, 12 % missing, in sixteenths of a row."""
    import numpy
    import tifffile

    random = numpy.random.default_rng(11)
    line = 8000 + 3000 * numpy.sin(numpy.arange(COLUMNS) / 300)
    block = line + 40 * random.standard_normal((STEP, COLUMNS))
    block = numpy.where(random.random(block.shape) < 0.12, 0, block).astype(numpy.uint16)
    file = tifffile.memmap(path, shape=(profiles, COLUMNS), dtype=numpy.uint16)
    for first in range(0, profiles, STEP):
        count = min(STEP, profiles - first)
        file[first:first + count] = numpy.roll(block, first // STEP, axis=0)[:count]
    file.flush()


class Command:
    """`planex rectify` with one thread that computes."""

    def __init__(self, build, scan, out):
        self.out = out
        self.arguments = [build / "tools/planex", "rectify", MODEL, scan, "-o", out, "--threads=1",
                          "--y-scale=1", "--force", "--quiet"]

    def run(self, number):
        before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.perf_counter()
        subprocess.run(self.arguments, check=True)
        elapsed, after = time.perf_counter() - start, resource.getrusage(resource.RUSAGE_CHILDREN)
        return elapsed, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime

    def close(self):
        pass


class Workers:
    """planex.dask on so many processes of so many threads."""

    def __init__(self, count, threads, scan, out):
        import distributed

        import planex.dask

        self.cluster = distributed.LocalCluster(
            n_workers=count, threads_per_worker=threads, memory_limit=0, dashboard_address=":0")
        self.client = self.cluster.get_client()
        self.planex, self.scan, self.out = planex, scan, out
        self.model = planex.Model.from_file(MODEL)
        self.client.run(__import__, "planex.dask")

    def run(self, number):
        import dask.array

        before, start = sum(self.client.run(time.process_time).values()), time.perf_counter()
        image = self.planex.dask.open_image(self.scan)
        sensor = self.planex.SensorTraits.full(self.model)
        # The number is not used in levels, but makes other tasks, which no worker remembers.
        heights = self.planex.dask.height_map(self.model, image, sensor, dtype="uint16",
                                              missing=float(number))
        target = NpyRows(self.out, heights.z.shape, heights.z.dtype)
        with self.client.as_current():
            dask.array.store(heights.z, target, lock=False)
        elapsed = time.perf_counter() - start
        return elapsed, sum(self.client.run(time.process_time).values()) - before

    def close(self):
        self.client.close()
        self.cluster.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--profiles", type=int, default=100_000)
    parser.add_argument("--rounds", type=int, default=5)
    options = parser.parse_args()
    sys.path.insert(0, str(options.build.resolve() / "python"))
    import numpy

    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        scan = folder / "scan.tif"
        write_scan(scan, options.profiles)
        contestants = {
            "planex rectify --threads 1":
                lambda: Command(options.build, scan, folder / "command.npy"),
            "planex.dask, one process": lambda: Workers(1, 1, scan, folder / "one.npy"),
            "one process of two threads": lambda: Workers(1, 2, scan, folder / "threads.npy"),
            "planex.dask, two processes": lambda: Workers(2, 1, scan, folder / "two.npy"),
        }
        elapsed, used = collections.defaultdict(list), collections.defaultdict(list)
        for _ in range(2):
            for work, start in contestants.items():
                contestant = start()
                contestant.run(0)  # loads what the first run needs
                for number in range(1, options.rounds + 1):
                    contestant.out.unlink()  # gives its memory back
                    seconds, processor = contestant.run(number)
                    elapsed[work].append(seconds)
                    used[work].append(processor)
                contestant.close()
        names = "command", "one", "threads", "two"
        command, *others = (numpy.load(folder / f"{name}.npy", "r") for name in names)
        if not all(numpy.array_equal(command, other) for other in others):
            sys.exit("the maps differ")
    print(f"load average {os.getloadavg()[0]:.1f} at the end, {os.cpu_count()} processors")
    for work in contestants:
        print(f"{work:28}{min(elapsed[work]):6.2f} s elapsed{min(used[work]):6.2f} s of processor")
    command, one, threads, two = (min(elapsed[work]) for work in contestants)
    of_command, of_one, *_ = (min(used[work]) for work in contestants)
    print(f"two processes: {one / two:.2f} times as fast as one")
    print(f"one process: {one / command:.2f} times the time of the command, "
          f"{of_one / of_command:.2f} times its processor time; "
          f"of two threads: {threads / command:.2f} times")


if __name__ == "__main__":
    main()
