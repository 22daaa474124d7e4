#!/usr/bin/env bash
# Union of two level sets of about 3M active voxels each, file to file:
# `zvol bool union` against `vdb_tool -union` on the same files, on equal and
# on unlike transforms (vdb_tool resamples the second grid first, as it needs),
# runs alternating in one session; prints medians and ratios of wall time and
# peak memory.
# Then the in-process benchmark, which shows the empty-accumulator union
# costing the same at every size of the other volume.
set -euo pipefail
BUILD="$(cd "${1:-build}" && pwd)"
RUNS="${ZV_BENCH_RUNS:-3}"
ZVOL="$BUILD/bin/zvol"
command -v vdb_tool >/dev/null || { echo "combine_bench: vdb_tool not found (Debian package libopenvdb-tools)" >&2; exit 1; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

"$ZVOL" -q sphere --radius 1 --voxel-size 0.005 -o "$dir/a.vdb"
"$ZVOL" -q sphere --radius 1 --center 0.8,0.1,0 --voxel-size 0.005 -o "$dir/b.vdb"
"$ZVOL" -q sphere --radius 1 --center 0.8,0.1,0 --voxel-size 0.0055 -o "$dir/b_unlike.vdb"

/usr/bin/python3 - "$dir" "$ZVOL" "$RUNS" "$(dirname "$0")" <<'PY'
import sys
d, zvol, runs = sys.argv[1], sys.argv[2], int(sys.argv[3])
sys.path.insert(0, sys.argv[4])
import peers
cases = {
    "equal": {
        "zvol": [zvol, "-q", "bool", "union", f"{d}/a.vdb", f"{d}/b.vdb", "-o", f"{d}/z.vdb"],
        "vdb_tool": ["vdb_tool", "-read", f"{d}/a.vdb", "-read", f"{d}/b.vdb",
                     "-union", "rebuild=false", "-write", f"{d}/v.vdb"],
        "vdb_tool+rebuild": ["vdb_tool", "-read", f"{d}/a.vdb", "-read", f"{d}/b.vdb",
                             "-union", "-write", f"{d}/v.vdb"],
    },
    # vdb_tool's union works index by index, so the second grid is first
    # resampled into the first one's transform with the quadratic kernel.
    # Its -resample consumes the grid whose transform it matches, hence a
    # second read of a.vdb (delayed loading makes that read nearly free).
    "unlike": {
        "zvol": [zvol, "-q", "bool", "union", f"{d}/a.vdb", f"{d}/b_unlike.vdb", "-o", f"{d}/z.vdb"],
        "vdb_tool": ["vdb_tool", "-read", f"{d}/a.vdb", "-read", f"{d}/b_unlike.vdb", "-read", f"{d}/a.vdb",
                     "-resample", "vdb=1,0", "order=2", "-union", "rebuild=false", "-write", f"{d}/v.vdb"],
        "vdb_tool+rebuild": ["vdb_tool", "-read", f"{d}/a.vdb", "-read", f"{d}/b_unlike.vdb", "-read", f"{d}/a.vdb",
                             "-resample", "vdb=1,0", "order=2", "-union", "-write", f"{d}/v.vdb"],
    },
}
for name, tools in cases.items():
    peers.compare(f"union {name}", tools, runs, time_target=1.0 if name == "equal" else None)
PY

"$BUILD/bench/combine_bench" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
