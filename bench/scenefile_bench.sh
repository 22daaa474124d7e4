#!/usr/bin/env bash
# Save and load of scene files in both forms (native and JSON): MB/s, the
# ratio of load to save time, peak memory, and the load time per node at
# 10,000 and 40,000 objects (linear loading keeps it flat).
set -euo pipefail
BUILD="${1:-build}"
out=$(mktemp)
"$BUILD/bench/scenefile_bench" --benchmark_repetitions=3 --benchmark_format=json >"$out"
/usr/bin/python3 - "$out" <<'PY'
import json, sys, statistics
runs = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") != "iteration":
        continue
    parts = b["run_name"].split("/")
    op = parts[0]
    form = next(p for p in parts if p.startswith("form:"))
    mesh = next(p for p in parts if p.startswith("mesh:"))
    size = next(p for p in parts if p.startswith("size:"))
    key = ("json " if form.endswith(":1") else "native ") + ("mesh " if mesh.endswith(":1") else "objects ") + size.split(":")[1]
    runs.setdefault((op, key), []).append(b)
def med(op, key, field):
    return statistics.median(r[field] for r in runs[(op, key)])
for key in sorted({k for _, k in runs}):
    save, load = med("BM_Save", key, "real_time"), med("BM_Load", key, "real_time")
    mb = med("BM_Save", key, "file_mb")
    print(f"{key:22s} file {mb:7.2f} MB  save {save:8.1f} ms ({mb / save * 1e3:6.1f} MB/s)  "
          f"load {load:8.1f} ms ({mb / load * 1e3:6.1f} MB/s)  load/save {load / save:.2f}  "
          f"peak {max(med('BM_Save', key, 'peak_rss_mb'), med('BM_Load', key, 'peak_rss_mb')):.0f} MB")
for form in ("native", "json"):
    a, b = med("BM_Load", form + " objects 10000", "us_per_node"), med("BM_Load", form + " objects 40000", "us_per_node")
    print(f"{form} load per node: {a:.2f} us at 10,000 objects, {b:.2f} us at 40,000 (ratio {b / a:.2f}; 1.0 is linear)")
PY
rm -f "$out"
