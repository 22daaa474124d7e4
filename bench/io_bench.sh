#!/usr/bin/env bash
# Load and save of a level set of ~5M active voxels against plain io::File; prints the ratios.
set -euo pipefail
BUILD="${1:-build}"
out=$(mktemp)
"$BUILD/bench/io_bench" --benchmark_repetitions=5 --benchmark_format=json >"$out"
/usr/bin/python3 - "$out" "$(dirname "$0")" <<'PY'
import sys
sys.path.insert(0, sys.argv[2])
from gbench import medians, ratio
med = medians(sys.argv[1])
ratio("load / plain read ", med["ToolsLoad"], med["PlainRead"], 1.5)
ratio("save / plain write", med["ToolsSave"], med["PlainWrite"])
PY
rm -f "$out"
