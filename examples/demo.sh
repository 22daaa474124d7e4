#!/usr/bin/env bash
# The demo: the project's trefoil knot (examples/knot.obj, made by make_knot.py)
# becomes a signed distance field, is remeshed through it, and is drawn into a PNG.
# Then the scene examples/scenes/knot.json (the knot and a sphere) is remeshed
# live: a Volume Mesher over a Volume Builder that holds both, with a smoothing
# filter layer; the scene is evaluated into a mesh and drawn. Last, the two
# Volume Builders of examples/scenes/builders.json (meshes, a spline, particles,
# a field; and a fog builder with three mix modes) are evaluated into a .vdb.
# usage: demo.sh ZVOL OUTDIR
set -euo pipefail
ZVOL="$1"
OUT="$2"
HERE="$(cd "$(dirname "$0")" && pwd)"
mkdir -p "$OUT"
OUT="$(cd "$OUT" && pwd)"

"$ZVOL" mesh2vol "$HERE/knot.obj" --dim 256 -o "$OUT/knot.vdb"
"$ZVOL" remesh "$HERE/knot.obj" --dim 256 --adaptivity 0.1 -o "$OUT/knot_remeshed.obj"
"$ZVOL" info "$OUT/knot.vdb"
"$ZVOL" render "$OUT/knot.vdb" -o "$OUT/knot.png" --size 800x600
"$ZVOL" scene remesh "$HERE/scenes/knot.json" --select knot,probe --live --voxel-size 0.05 --smooth 0.3 \
  -o "$OUT/knot-live.zscene"
"$ZVOL" scene eval "$OUT/knot-live.zscene" -o "$OUT/knot-live.ply"
"$ZVOL" render "$OUT/knot-live.zscene" -o "$OUT/knot-live.png" --size 800x600
"$ZVOL" scene eval "$HERE/scenes/builders.json" -o "$OUT/builders.vdb"
"$ZVOL" info "$OUT/builders.vdb"
echo
echo "demo: the knot's level set is in $OUT/knot.vdb"
echo "demo: the remeshed knot is in $OUT/knot_remeshed.obj"
echo "demo: a picture of the level set is in $OUT/knot.png"
echo "demo: the live scene (mesher over builder with a filter layer) is in $OUT/knot-live.zscene;"
echo "      its mesh, with UVs, is in $OUT/knot-live.ply and its picture in $OUT/knot-live.png"
echo "demo: the builders' volumes are in $OUT/builders.vdb"
