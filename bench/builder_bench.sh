#!/usr/bin/env bash
# A Volume Builder of ten meshes of about 300k active voxels each: a full
# rebuild against the rebuild after moving one input; prints the ratio.
set -euo pipefail
BUILD="${1:-build}"
out=$(mktemp)
"$BUILD/bench/builder_bench" --benchmark_repetitions=3 --benchmark_format=json >"$out"
/usr/bin/python3 - "$out" "$(dirname "$0")" <<'PY'
import json, sys
sys.path.insert(0, sys.argv[2])
from gbench import medians, ratio
med = medians(sys.argv[1])
ratio("move one / full rebuild", med["MoveOneRebuild"], med["FullRebuild"], 0.15)
ratio("one conversion / full rebuild (the floor of a move)", med["ConvertOneInput"], med["FullRebuild"])
peak = max(b.get("peak_rss_mib", 0) for b in json.load(open(sys.argv[1]))["benchmarks"])
print(f"peak resident memory {peak:.0f} MiB")
PY
rm -f "$out"
