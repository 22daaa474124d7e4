#!/usr/bin/env bash
# The demo: the project's trefoil knot (examples/knot.obj, made by make_knot.py)
# becomes a signed distance field, is remeshed through it, and is drawn into a PNG.
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
echo
echo "demo: the knot's level set is in $OUT/knot.vdb"
echo "demo: the remeshed knot is in $OUT/knot_remeshed.obj"
echo "demo: a picture of the level set is in $OUT/knot.png"
