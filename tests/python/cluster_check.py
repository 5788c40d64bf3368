"""Usage: cluster_check.py FOLDER_OF_PACKAGE

Two processes make a height map of files that are larger than the memory they may have, first
undisturbed, then while one of them is killed.
"""

import os
import pathlib
import resource
import signal
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).parents[2]
ROWS, COLUMNS, STEP = 240_000, 1000, 1000
MEMORY = 120 << 20  # of a worker, beyond what it has when it starts


def write_scan(folder):
    import numpy

    random = numpy.random.default_rng(3)
    for name, least, most in (("scan.npy", 3000, 12000), ("grey.npy", 1000, 5000)):
        block = random.integers(least, most, (STEP, COLUMNS), numpy.uint16)
        file = numpy.lib.format.open_memmap(folder / name, "w+", numpy.uint16, (ROWS, COLUMNS))
        for first in range(0, ROWS, STEP):
            file[first:first + STEP] = block + first // STEP  # limits of their own
    return numpy.load(folder / "scan.npy", "r"), numpy.load(folder / "grey.npy", "r")


def anonymous():
    with open("/proc/self/status", encoding="ascii") as file:
        return int(next(line for line in file if line.startswith("VmData")).split()[1]) << 10


def limit_memory():
    limit = anonymous() + MEMORY
    resource.setrlimit(resource.RLIMIT_DATA, (limit, limit))
    return os.getpid()


def differing_rows(path, model, sensor, grid, scan, grey):
    import numpy
    import zarr

    import planex

    stored, limits, count = zarr.open(str(path), "r"), planex.intensity_limits(grey), 0
    for first in range(0, ROWS, 10 * STEP):
        rows = slice(first, first + 10 * STEP)
        want = planex.height_map(model, scan[rows], sensor, grid, intensity=grey[rows],
                                 intensity_limits=limits)
        for name, part in (("z", want.z), ("intensity", want.intensity)):
            got = stored[name][rows]
            count += (got.view(numpy.uint8) != part.view(numpy.uint8)).any(axis=1).sum()
    return count


def check(folder):
    import dask
    import distributed

    import planex.dask

    scan, grey = write_scan(folder)
    model = planex.Model.from_file(ROOT / "examples/models/simulated_camera.json")
    sensor = planex.SensorTraits(COLUMNS, 1024, origin_x=700.0)
    grid = planex.bounds(model, sensor, COLUMNS).grid()
    lazy = [planex.dask.open_image(folder / name, rows=STEP) for name in ("scan.npy", "grey.npy")]
    heights = planex.dask.height_map(model, lazy[0], sensor, grid, intensity=lazy[1])
    # What does not fit must fail, rather than go to the disk or wait.
    dask.config.set({f"distributed.worker.memory.{key}": False for key in
                     ("target", "spill", "pause", "terminate")})
    for killed in (False, True):
        path = folder / f"heights{killed}.zarr"
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None,
                                      local_directory=str(folder)) as cluster, \
                cluster.get_client() as client:
            workers = client.run(limit_memory)
            done = client.compute(planex.dask.to_zarr(heights, path, compute=False))
            if killed:
                def kill():
                    while sum(1 for _ in path.glob("z/*")) < 60:
                        time.sleep(0.01)
                    os.kill(min(workers.values()), signal.SIGKILL)

                threading.Thread(target=kill).start()
            start = time.time()
            distributed.progress(done, notebook=False)
            done.result()
            pids = set(client.run(os.getpid).values())
            assert killed != (pids == set(workers.values())), (pids, workers)
            print(f"\n{(scan.nbytes + grey.nbytes) >> 20} MB read by two processes that may have "
                  f"{MEMORY >> 20} MB each{', one killed' * killed}: {time.time() - start:.1f} s")
        differing = differing_rows(path, model, sensor, grid, scan, grey)
        assert differing == 0, f"{differing} rows differ"


if __name__ == "__main__":
    sys.path.insert(0, sys.argv[1])
    with tempfile.TemporaryDirectory() as name:
        check(pathlib.Path(name))
