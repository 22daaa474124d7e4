#!/usr/bin/env bash
# zvol's level set filters and points2vol against OpenVDB's vdb_tool on the
# same grid and the same points, whole runs (read, work, write) timed once
# each; prints zvol / vdb_tool wall-time ratios (target <= 1.0).
set -euo pipefail
BUILD="$(cd "${1:-build}" && pwd)"
ZVOL="$BUILD/bin/zvol"
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

millis() { date +%s%N | cut -b1-13; }
# Runs a command and prints its wall time in milliseconds.
wall() {
  local start end
  start=$(millis)
  "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; return 1; }
  end=$(millis)
  echo $((end - start))
}

S="$work/sphere.vdb"
O="$work/out.vdb"
printf '%-10s %10s %10s %7s\n' case "zvol ms" "vdb_tool ms" ratio
status=0
compare() {
  local name="$1" z v
  shift
  # zvol's arguments, then "--", then vdb_tool's.
  local zargs=() vargs=()
  while [ "$1" != "--" ]; do zargs+=("$1"); shift; done
  shift
  vargs=("$@")
  z=$(wall "$ZVOL" -q "${zargs[@]}") || { status=1; return; }
  v=$(wall vdb_tool "${vargs[@]}") || { status=1; return; }
  printf '%-10s %10d %10d %7.2f\n' "$name" "$z" "$v" "$(awk -v z="$z" -v v="$v" 'BEGIN { print z / v }')"
}

# First-order upwinding on both sides (vdb_tool's space=1, zvol's --accuracy first).
compare gauss filter sdf gaussian "$S" --width 1 -o "$O" -- -read "$S" -gauss iter=1 size=1 space=1 -write "$O"
compare mean filter sdf mean "$S" --width 1 -o "$O" -- -read "$S" -mean iter=1 size=1 space=1 -write "$O"
compare median filter sdf median "$S" --width 1 -o "$O" -- -read "$S" -median iter=1 size=1 space=1 -write "$O"
# Two voxels of 0.004.
compare dilate filter sdf dilate "$S" --offset 0.008 -o "$O" -- -read "$S" -dilate radius=2 space=1 -write "$O"
compare erode filter sdf erode "$S" --offset 0.008 -o "$O" -- -read "$S" -erode radius=2 space=1 -write "$O"
compare points2ls points2vol "$work/points.ply" --voxel-size 0.01 --radius 0.02 --half-width 3 -o "$O" \
  -- -read "$work/points.ply" -points2ls voxel=0.01 radius=2 width=3 -write "$O"
exit $status
