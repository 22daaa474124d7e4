#!/usr/bin/env bash
# A million samples through zelmar's batched accessor against Python loops of
# single lookups in pyopenvdb and in zelmar (python_accessor_bench.py).
set -euo pipefail
BUILD="$1"
HERE="$(cd "$(dirname "$0")" && pwd)"
PYTHONPATH="$BUILD/python" /usr/bin/python3 "$HERE/python_accessor_bench.py"
