#!/usr/bin/env bash
# Runs every step of scripts/demo.d/ in order with the geotool binary given as first argument. Each step
# shows one area of the tool on the bundled data in data/samples/.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
export GEOTOOL=${1:-$here/build/apps/geotool/geotool}
export SAMPLES=$here/data/samples
export DEMO_TMP=$(mktemp -d)
trap 'rm -rf "$DEMO_TMP"' EXIT
for step in "$here"/scripts/demo.d/*.sh; do
  echo
  echo "=== $(sed -n 's/^# title: //p' "$step")"
  bash "$step"
done
