#!/usr/bin/env bash
# A scene of 50 volume objects (about a million active voxels each) saved and
# loaded, against plain io::File on the same grids; prints the ratios.
set -euo pipefail
BUILD="${1:-build}"
out=$(mktemp)
"$BUILD/bench/volumescene_bench" --benchmark_repetitions=3 --benchmark_format=json >"$out"
/usr/bin/python3 - "$out" "$(dirname "$0")" <<'PY'
import sys
sys.path.insert(0, sys.argv[2])
from gbench import medians, ratio
med = medians(sys.argv[1])
ratio("scene save / plain write", med["SceneSave"], med["PlainWrite"], 1.1)
ratio("scene load / plain read ", med["SceneLoad"], med["PlainRead"], 1.1)
PY
rm -f "$out"
