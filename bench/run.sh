#!/usr/bin/env bash
# Runs every benchmark script of this folder with the build folder as $1;
# each prints its figures and ratios against the peer it is measured with.
set -euo pipefail
BUILD="$(cd "${1:-build}" && pwd)"
HERE="$(cd "$(dirname "$0")" && pwd)"
status=0
for script in "$HERE"/*.sh; do
  [ "$(basename "$script")" = run.sh ] && continue
  echo "== $(basename "$script" .sh)"
  bash "$script" "$BUILD" || status=1
done
exit $status
