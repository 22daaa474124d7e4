#!/usr/bin/env bash
# The Volume Mesher against raw openvdb::tools::volumeToMesh on a sphere level
# set of 4.7M active voxels: time and peak memory per case, medians of
# alternating runs, each run in a process of its own (see mesher_bench.cpp).
set -euo pipefail
BUILD="$(cd "${1:-build}" && pwd)"
"$BUILD/bench/mesher_bench" "${ZV_BENCH_RUNS:-5}"
