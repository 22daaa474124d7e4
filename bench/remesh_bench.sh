#!/usr/bin/env bash
# Meshing both ways, against OpenVDB's own:
#  1. MeshToVolume and VolumeToMesh against the raw OpenVDB calls (Google Benchmark, target <= 1.05);
#  2. `zvol vol2mesh` of a level-set sphere of radius 1 at voxel size 0.002 (about 19M active
#     voxels; ZV_BENCH_SPHERE_VOXEL changes it) against `vdb_tool -read -ls2mesh adapt=0 -write`,
#     both to OBJ;
#  3. `zvol remesh` against `vdb_tool -read -mesh2ls -ls2mesh -write` on the same mesh and output
#     format (OBJ), at 256 and 512 voxels along the longest side.
# The whole runs alternate in one session; medians and ratios of wall time (target <= 1.0) and
# peak memory (target <= 1.2).
set -euo pipefail
BUILD="$(cd "${1:-build}" && pwd)"
ROOT="$(cd "$(dirname "$0")/.." && pwd)"
RUNS="${ZV_BENCH_RUNS:-3}"
SPHERE_VOXEL="${ZV_BENCH_SPHERE_VOXEL:-0.002}"
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
"$BUILD/bin/zvol" -q sphere --radius 1 --voxel-size "$SPHERE_VOXEL" -o "$work/sphere.vdb"
echo "input: trefoil knot, $(grep -c '^f' "$mesh") quads; sphere of radius 1 at voxel size $SPHERE_VOXEL"

/usr/bin/python3 - "$BUILD/bin/zvol" "$work" "$RUNS" "$(dirname "$0")" <<'PY'
import sys
zvol, work, runs = sys.argv[1], sys.argv[2], int(sys.argv[3])
sys.path.insert(0, sys.argv[4])
import peers

def faces(path):
    with open(path, "rb") as f:
        return sum(1 for line in f if line.startswith(b"f "))

peers.compare("vol2mesh", {
    "zvol": [zvol, "-q", "vol2mesh", f"{work}/sphere.vdb", "-o", f"{work}/zvol.obj"],
    "vdb_tool": ["vdb_tool", "-read", f"{work}/sphere.vdb", "-ls2mesh", "adapt=0", "-write", f"{work}/vdb_tool.obj"],
}, runs, time_target=1.0, memory_target=1.2)
print(f"vol2mesh faces: zvol {faces(f'{work}/zvol.obj')}, vdb_tool {faces(f'{work}/vdb_tool.obj')}")

# zvol's --dim counts voxels along the longest side of the mesh's box, as vdb_tool's dim does.
for dim in (256, 512):
    peers.compare(f"remesh dim {dim}", {
        "zvol": [zvol, "-q", "remesh", f"{work}/knot.obj", "--dim", str(dim), "--half-width", "3",
                 "-o", f"{work}/zvol.obj"],
        "vdb_tool": ["vdb_tool", "-read", f"{work}/knot.obj", "-mesh2ls", f"dim={dim}", "width=3",
                     "-ls2mesh", "adapt=0", "-write", f"{work}/vdb_tool.obj"],
    }, runs, time_target=1.0, memory_target=1.2)
    print(f"remesh dim {dim} faces: zvol {faces(f'{work}/zvol.obj')}, vdb_tool {faces(f'{work}/vdb_tool.obj')}")
PY
