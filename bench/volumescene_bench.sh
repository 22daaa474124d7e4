#!/usr/bin/env bash
# A scene of 50 volume objects (about a million active voxels each) saved and
# loaded, against plain io::File on the same grids; prints the ratios.
set -euo pipefail
BUILD="${1:-build}"
out=$(mktemp)
"$BUILD/bench/volumescene_bench" --benchmark_repetitions=3 --benchmark_format=json >"$out"
/usr/bin/python3 - "$out" <<'PY'
import json, sys, statistics
runs = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") == "iteration":
        runs.setdefault(b["run_name"].split("/")[0], []).append(b["real_time"])
med = {k: statistics.median(v) for k, v in runs.items()}
for k, v in med.items():
    print(f"{k:12s} {v:9.1f} ms (median of {len(runs[k])})")
print(f"scene save / plain write = {med['SceneSave'] / med['PlainWrite']:.2f}  (target <= 1.1)")
print(f"scene load / plain read  = {med['SceneLoad'] / med['PlainRead']:.2f}  (target <= 1.1)")
PY
rm -f "$out"
