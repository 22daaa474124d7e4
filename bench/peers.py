"""Whole runs of zvol against a peer (vdb_tool) on the same work.

Each case is a set of commands run alternately (A B A B ...) after one warm-up
run of each, so that load from other work on the machine falls on all of them
alike. For each command it reports the median wall time and the median peak
memory (the largest resident set of the process, from the kernel's resource
usage of the child), and the ratios of the first command to the others.
"""
import os
import statistics
import subprocess
import time


def run(cmd):
    """Wall seconds and peak MiB of one run of `cmd`; exits on a failure."""
    start = time.perf_counter()
    proc = subprocess.Popen(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(proc.pid, 0)
    wall = time.perf_counter() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    if proc.returncode != 0:
        raise SystemExit(f"failed with status {proc.returncode}: {' '.join(cmd)}")
    return wall, usage.ru_maxrss / 1024.0


def compare(title, commands, runs, time_target=None, memory_target=None):
    """Runs `commands` (name -> argv, ours first) `runs` times each, interleaved,
    prints medians and ratios, and returns {name: (seconds, MiB)}."""
    for cmd in commands.values():
        run(cmd)  # warms the page cache and the libraries
    samples = {name: [] for name in commands}
    for _ in range(runs):
        for name, cmd in commands.items():
            samples[name].append(run(cmd))
    med = {name: (statistics.median(s[0] for s in v), statistics.median(s[1] for s in v))
           for name, v in samples.items()}
    for name, (seconds, mib) in med.items():
        print(f"{title:18s} {name:18s} {seconds * 1000:9.0f} ms {mib:8.0f} MiB peak  (medians of {runs})")
    ours = next(iter(commands))
    for name in list(commands)[1:]:
        t = med[ours][0] / med[name][0]
        m = med[ours][1] / med[name][1]
        tt = f"  (target <= {time_target})" if time_target is not None and name == list(commands)[1] else ""
        mt = f"  (target <= {memory_target})" if memory_target is not None and name == list(commands)[1] else ""
        print(f"{title:18s} {ours} / {name}: time {t:.2f}{tt}, peak memory {m:.2f}{mt}")
    return med
