#!/usr/bin/env bash
# The demo: a sphere and a dodecahedron as level sets, written as .vdb files
# that any OpenVDB program reads, and described by zvol info.
# usage: demo.sh ZVOL OUTDIR
set -euo pipefail
ZVOL="$1"
OUT="$2"
mkdir -p "$OUT"
OUT="$(cd "$OUT" && pwd)"

"$ZVOL" sphere --radius 1 --center 0,0,2 --voxel-size 0.02 -o "$OUT/sphere.vdb"
"$ZVOL" platonic --faces 12 --size 1 --voxel-size 0.02 -o "$OUT/dodecahedron.vdb"
"$ZVOL" info "$OUT/sphere.vdb"
echo
echo "demo: the sphere's level set is in $OUT/sphere.vdb"
echo "demo: the dodecahedron's level set is in $OUT/dodecahedron.vdb"
