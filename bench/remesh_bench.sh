#!/usr/bin/env bash
# Meshing both ways, against OpenVDB's own:
#  1. MeshToVolume and VolumeToMesh against the raw OpenVDB calls (Google Benchmark, target <= 1.05);
#  2. `zvol remesh` against `vdb_tool -read -mesh2ls -ls2mesh -write` on the same mesh, voxel size
#     and output format (OBJ), at 256 and 512 voxels along the longest side, alternating runs in
#     one session; wall-time ratios (target <= 1.0).
set -euo pipefail
BUILD="$(cd "${1:-build}" && pwd)"
ROOT="$(cd "$(dirname "$0")/.." && pwd)"
RUNS="${ZV_BENCH_RUNS:-3}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if [ -x "$BUILD/bench/mesh_bench" ]; then
  "$BUILD/bench/mesh_bench" --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true \
    --benchmark_format=json >"$work/tools.json"
  /usr/bin/python3 - "$work/tools.json" <<'PY'
import json, sys, statistics
runs = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") == "iteration":
        runs.setdefault(b["run_name"].replace("/real_time", ""), []).append(b["real_time"])
med = {k: statistics.median(v) for k, v in runs.items()}
for k, v in med.items():
    print(f"{k:28s} {v:9.1f} ms (median of {len(runs[k])})")
print(f"MeshToVolume / meshToLevelSet          = {med['MeshToVolumeTool'] / med['MeshToVolumePlain']:.3f}  (target <= 1.05)")
for a in ("0", "50"):
    r = med[f"VolumeToMeshTool/{a}"] / med[f"VolumeToMeshPlain/{a}"]
    print(f"VolumeToMesh / volumeToMesh, adapt {int(a) / 100:.1f} = {r:.3f}  (target <= 1.05)")
PY
else
  echo "remesh_bench: $BUILD/bench/mesh_bench not built; skipping the tool benchmark" >&2
fi

command -v vdb_tool >/dev/null || { echo "remesh_bench: vdb_tool missing (apt-get install libopenvdb-tools)" >&2; exit 1; }
mesh="$work/knot.obj"
/usr/bin/python3 "$ROOT/examples/make_knot.py" "$mesh" 1536 96
longest=$(awk '$1 == "v" { for (i = 2; i <= 4; ++i) { if (!(i in lo) || $i < lo[i]) lo[i] = $i; if (!(i in hi) || $i > hi[i]) hi[i] = $i } }
  END { m = 0; for (i = 2; i <= 4; ++i) if (hi[i] - lo[i] > m) m = hi[i] - lo[i]; printf "%.17g", m }' "$mesh")
echo "input: trefoil knot, $(grep -c '^f' "$mesh") quads, longest side $longest"

now() { date +%s.%N; }
for dim in 256 512; do
  voxel=$(awk -v l="$longest" -v d="$dim" 'BEGIN { printf "%.17g", l / d }')
  tz=0; tv=0
  for ((i = 0; i < RUNS; ++i)); do
    t0=$(now)
    "$BUILD/bin/zvol" --quiet remesh "$mesh" --voxel-size "$voxel" --half-width 3 -o "$work/zvol.obj"
    t1=$(now)
    vdb_tool -read "$mesh" -mesh2ls voxel="$voxel" width=3 -ls2mesh adapt=0 -write "$work/vdb_tool.obj" >/dev/null 2>&1
    t2=$(now)
    tz=$(awk -v a="$tz" -v b="$t0" -v c="$t1" 'BEGIN { print a + c - b }')
    tv=$(awk -v a="$tv" -v b="$t1" -v c="$t2" 'BEGIN { print a + c - b }')
  done
  awk -v d="$dim" -v z="$tz" -v v="$tv" -v n="$RUNS" -v fz="$(grep -c '^f' "$work/zvol.obj")" -v fv="$(grep -c '^f' "$work/vdb_tool.obj")" \
    'BEGIN { printf "remesh at %4d voxels: zvol %7.3f s, vdb_tool %7.3f s (mean of %d; %d / %d faces)  ratio %.3f  (target <= 1.0)\n", d, z / n, v / n, n, fz, fv, z / v }'
done
