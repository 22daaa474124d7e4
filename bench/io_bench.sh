#!/usr/bin/env bash
# Load and save of a level set of ~5M active voxels against plain io::File; prints the ratios.
set -euo pipefail
BUILD="${1:-build}"
out=$(mktemp)
"$BUILD/bench/io_bench" --benchmark_repetitions=5 --benchmark_format=json >"$out"
/usr/bin/python3 - "$out" <<'PY'
import json, sys, statistics
runs = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") == "iteration":
        runs.setdefault(b["run_name"].split("/")[0], []).append(b["real_time"])
med = {k: statistics.median(v) for k, v in runs.items()}
for k, v in med.items():
    print(f"{k:12s} {v:9.1f} ms (median of {len(runs[k])})")
print(f"load / plain read  = {med['ToolsLoad'] / med['PlainRead']:.2f}  (target <= 1.5)")
print(f"save / plain write = {med['ToolsSave'] / med['PlainWrite']:.2f}")
PY
rm -f "$out"
