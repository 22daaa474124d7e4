#!/usr/bin/env bash
# The display of a level set of ~5M active voxels: its points, its buffers and
# a 1920x1080 frame with Mesa's software renderer; ratios against OpenVDB's
# own walk over the active voxels.
set -euo pipefail
BUILD="${1:-build}"
out=$(mktemp)
"$BUILD/bench/display_bench" --benchmark_repetitions=3 --benchmark_format=json >"$out"
/usr/bin/python3 - "$out" "$(dirname "$0")" <<'PY'
import sys
sys.path.insert(0, sys.argv[2])
from gbench import medians, ratio
med = medians(sys.argv[1])
ratio("points / plain walk ", med["CollectPoints"], med["PlainActiveWalk"])
ratio("buffers+frame / walk", med["BuildBuffersAndDraw"], med["PlainActiveWalk"])
PY
rm -f "$out"
