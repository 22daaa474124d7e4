#!/usr/bin/env bash
# The display of a level set of ~5M active voxels: its points, its buffers and
# a 1920x1080 frame with Mesa's software renderer; ratios against OpenVDB's
# own walk over the active voxels. Beside the time on the clock, the processor
# time of all the process's threads (the renderer's included), which a
# shared machine inflates less, and the peak memory.
set -euo pipefail
BUILD="${1:-build}"
out=$(mktemp)
"$BUILD/bench/display_bench" --benchmark_repetitions=3 --benchmark_format=json >"$out"
/usr/bin/python3 - "$out" "$(dirname "$0")" <<'PY'
import json, statistics, sys
sys.path.insert(0, sys.argv[2])
from gbench import medians, ratio
med = medians(sys.argv[1])
cpu, peak, shown = {}, {}, {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") != "iteration":
        continue
    name = b["run_name"].split("/")[0]
    cpu.setdefault(name, []).append(b.get("cpu_ms", 0.0))
    peak[name] = max(peak.get(name, 0.0), b.get("peak_MB", 0.0))
    if "shown" in b:
        shown[name] = b["shown"]
for name, values in cpu.items():
    print(f"{name:20s} processor {statistics.median(values):8.1f} ms, peak {peak[name]:6.1f} MB")
for name, n in shown.items():
    print(f"{name:20s} voxels in the buffers: {n:.0f}")
ratio("points / plain walk ", med["CollectPoints"], med["PlainActiveWalk"])
ratio("buffers+frame / walk", med["BuildBuffersAndDraw"], med["PlainActiveWalk"])
ratio("frame / empty frame ", med["DrawFrame"], med["EmptyFrame"])
PY
rm -f "$out"
