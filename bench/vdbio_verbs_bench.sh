#!/usr/bin/env bash
# zvol import and export of a file of four grids (about a million active
# voxels each) against Debian's pyopenvdb doing the same reads and writes:
# import reads the file and writes one file per grid beside the scene, export
# reads those files and writes one file. Prints medians and ratios with peak memory.
set -euo pipefail
BUILD="${1:-build}"
RUNS="${RUNS:-5}"
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
/usr/bin/python3 - "$dir" <<'PY'
import sys
import pyopenvdb as vdb
grids = []
for i, name in enumerate(["a", "b", "c", "d"]):
    g = vdb.createLevelSetSphere(radius=1.2, center=(3.0 * i, 0.0, 0.0), voxelSize=0.01)
    g.name = name
    grids.append(g)
print("active voxels per grid:", [g.activeVoxelCount() for g in grids])
vdb.write(sys.argv[1] + "/in.vdb", grids=grids)
PY
mkdir -p "$dir/keep"
"$BUILD/bin/zvol" import "$dir/in.vdb" -o "$dir/keep/s.zscene" >/dev/null 2>&1
cat >"$dir/peer_import.py" <<'PY'
import os, sys, pyopenvdb as vdb
d = sys.argv[2]
os.makedirs(d + "/vol", exist_ok=True)
for g in vdb.readAll(sys.argv[1])[0]:
    vdb.write(d + "/vol/" + g.name + ".vdb", grids=[g])
PY
cat >"$dir/peer_export.py" <<'PY'
import sys, pyopenvdb as vdb
grids = [vdb.readAll(sys.argv[1] + "/vol/" + n + ".vdb")[0][0] for n in ["a", "b", "c", "d"]]
vdb.write(sys.argv[2], grids=grids)
PY
/usr/bin/python3 - "$dir" "$BUILD" "$RUNS" "$(dirname "$0")" <<'PY'
import sys
sys.path.insert(0, sys.argv[4])
import peers
d, build, runs = sys.argv[1], sys.argv[2], int(sys.argv[3])
zvol = build + "/bin/zvol"
peers.compare("import", {
    "zvol import": ["sh", "-c", f"rm -rf {d}/i && mkdir {d}/i && exec {zvol} import {d}/in.vdb -o {d}/i/s.zscene"],
    "pyopenvdb": ["sh", "-c", f"rm -rf {d}/p && mkdir {d}/p && exec /usr/bin/python3 {d}/peer_import.py {d}/in.vdb {d}/p"],
}, runs)
peers.compare("export", {
    "zvol export": [zvol, "export", f"{d}/keep/s.zscene", "-o", f"{d}/out.vdb"],
    "pyopenvdb": ["/usr/bin/python3", f"{d}/peer_export.py", f"{d}/keep", f"{d}/peer.vdb"],
}, runs)
PY
