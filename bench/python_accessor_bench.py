"""A million samples of a level set sphere from Python, in one run:

- zelmar: Volume.sample over a (N, 3) array in one call (nearest and linear);
- pyopenvdb: a Python loop of single lookups (world to index, then getValue),
  the way a script reads voxels with OpenVDB's own module;
- zelmar single: a Python loop over the native module's single lookup.

The loops run on a part of the samples and are scaled to N; the figures are
per million samples, with the ratio of each loop to the batched call and the
peak resident memory of the process after each step.

Usage: PYTHONPATH=build/python python3 bench/python_accessor_bench.py [N] [LOOP_N]
"""
import resource
import sys
import tempfile
import time

import numpy as np

import zelmar
from zelmar import tools
from zelmar.volume import _zelmar_volume as zv


def peak_mb():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024.0


def timed(fn, repeat=3):
    best = float("inf")
    out = None
    for _ in range(repeat):
        t = time.perf_counter()
        out = fn()
        best = min(best, time.perf_counter() - t)
    return best, out


def main():
    n = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
    loop_n = int(sys.argv[2]) if len(sys.argv) > 2 else 200_000
    sphere = tools.sphere(1.0, voxel_size=0.01, half_width=3)
    rng = np.random.default_rng(7)
    pts = rng.uniform(-1.1, 1.1, size=(n, 3))
    print(f"grid: {sphere.active_voxel_count} active voxels; {n} samples; loops over {loop_n} and scaled")

    t_near, v_near = timed(lambda: sphere.sample(pts, "nearest"))
    print(f"zelmar batched nearest   {t_near * 1e6 / n:10.3f} s/M   peak {peak_mb():7.1f} MB")
    t_lin, _ = timed(lambda: sphere.sample(pts, "linear"))
    print(f"zelmar batched linear    {t_lin * 1e6 / n:10.3f} s/M   peak {peak_mb():7.1f} MB")

    rows = []
    try:
        import pyopenvdb as vdb
        with tempfile.TemporaryDirectory() as d:
            path = d + "/s.vdb"
            sphere.name = "s"
            sphere.save(path)
            grid = vdb.read(path, "s")
        acc = grid.getConstAccessor()
        xf = grid.transform
        sub = [tuple(p) for p in pts[:loop_n]]

        def loop():
            out = []
            for p in sub:
                i = xf.worldToIndexCellCentered(p)
                out.append(acc.getValue(i))
            return out

        t_vdb, v_vdb = timed(loop, repeat=1)
        t_vdb *= n / loop_n
        agree = np.allclose(np.array(v_vdb), v_near[:loop_n])
        rows.append(("pyopenvdb loop", t_vdb, agree))
        print(f"pyopenvdb python loop    {t_vdb * 1e6 / n:10.3f} s/M   peak {peak_mb():7.1f} MB   "
              f"({t_vdb / t_near:6.1f}x the batched call; same values: {agree})")
    except ImportError:
        print("pyopenvdb is not installed (python3-openvdb); no peer figure")

    capsule = zv.GridAccessorInterface_Create("float")
    zv.GridAccessorInterface_Init(capsule, sphere, 1)
    sub = [tuple(p) for p in pts[:loop_n]]
    t_one, v_one = timed(lambda: [zv.GridAccessorInterface_GetValueVector(capsule, p) for p in sub], repeat=1)
    t_one *= n / loop_n
    agree = np.allclose(np.array(v_one), v_near[:loop_n])
    print(f"zelmar single-call loop  {t_one * 1e6 / n:10.3f} s/M   peak {peak_mb():7.1f} MB   "
          f"({t_one / t_near:6.1f}x the batched call; same values: {agree})")


if __name__ == "__main__":
    main()
