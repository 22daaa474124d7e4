#!/usr/bin/env bash
# zvol's level set filters and points2vol against OpenVDB's vdb_tool on the
# same grid and the same points, whole runs (read, work, write) alternating in
# one session; prints medians and zvol / vdb_tool ratios of wall time (target
# <= 1.0) and peak memory.
set -euo pipefail
BUILD="$(cd "${1:-build}" && pwd)"
ZVOL="$BUILD/bin/zvol"
RUNS="${ZV_BENCH_RUNS:-3}"
if ! command -v vdb_tool >/dev/null; then
  echo "vdb_tool not found (Debian package libopenvdb-tools)" >&2
  exit 1
fi
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# A sphere of radius 250 voxels (about 4.7M active voxels), and 1M particles
# of radius 2 voxels spread over a cube of 200 voxels.
"$ZVOL" -q sphere --radius 1 --voxel-size 0.004 -o "$work/sphere.vdb"
/usr/bin/python3 - "$work/points.ply" <<'PY'
import random, struct, sys
random.seed(7)
n = 1_000_000
with open(sys.argv[1], "wb") as out:
    out.write(b"ply\nformat binary_little_endian 1.0\nelement vertex %d\n" % n)
    out.write(b"property float x\nproperty float y\nproperty float z\nend_header\n")
    out.write(b"".join(struct.pack("<fff", random.uniform(-1, 1), random.uniform(-1, 1), random.uniform(-1, 1))
                       for _ in range(n)))
PY

S="$work/sphere.vdb"
O="$work/out.vdb"
/usr/bin/python3 - "$ZVOL" "$S" "$O" "$work/points.ply" "$RUNS" "$(dirname "$0")" <<'PY'
import sys
zvol, S, O, points, runs = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4], int(sys.argv[5])
sys.path.insert(0, sys.argv[6])
import peers
cases = [
    # First-order upwinding on both sides (vdb_tool's space=1, zvol's --accuracy first).
    ("gauss", ["filter", "sdf", "gaussian", S, "--width", "1", "-o", O],
     ["-read", S, "-gauss", "iter=1", "size=1", "space=1", "-write", O]),
    ("mean", ["filter", "sdf", "mean", S, "--width", "1", "-o", O],
     ["-read", S, "-mean", "iter=1", "size=1", "space=1", "-write", O]),
    ("median", ["filter", "sdf", "median", S, "--width", "1", "-o", O],
     ["-read", S, "-median", "iter=1", "size=1", "space=1", "-write", O]),
    # Two voxels of 0.004.
    ("dilate", ["filter", "sdf", "dilate", S, "--offset", "0.008", "-o", O],
     ["-read", S, "-dilate", "radius=2", "space=1", "-write", O]),
    ("erode", ["filter", "sdf", "erode", S, "--offset", "0.008", "-o", O],
     ["-read", S, "-erode", "radius=2", "space=1", "-write", O]),
    ("points2ls", ["points2vol", points, "--voxel-size", "0.01", "--radius", "0.02", "--half-width", "3", "-o", O],
     ["-read", points, "-points2ls", "voxel=0.01", "radius=2", "width=3", "-write", O]),
]
for name, ours, theirs in cases:
    peers.compare(name, {"zvol": [zvol, "-q"] + ours, "vdb_tool": ["vdb_tool"] + theirs}, runs, time_target=1.0)
PY
