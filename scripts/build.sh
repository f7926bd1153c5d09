#!/usr/bin/env bash
# Configures and builds one build tree: scripts/build.sh DIR [extra cmake arguments...]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
dir=$1
shift
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$here" -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
cmake --build "$dir" --parallel "$(nproc)"
