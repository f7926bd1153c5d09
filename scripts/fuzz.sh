#!/usr/bin/env bash
# Builds the libFuzzer targets in build-fuzz/ (clang, AddressSanitizer + UndefinedBehaviorSanitizer) and
# runs each for SECONDS (default 20), one after the other on one core:
#   scripts/fuzz.sh [SECONDS] [TARGET...]
# Each run starts from the committed seeds in fuzz/corpus/TARGET/ and from what earlier runs of this
# tree found (build-fuzz/fuzz/corpus/TARGET/, not committed). A crash, sanitizer report, leak or timeout
# leaves its input in build-fuzz/fuzz/artifacts/TARGET/ and makes the script exit non-zero after all
# targets have run. Replay one: build-fuzz/fuzz/fuzz_TARGET FILE
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
shift || true
build=$here/build-fuzz

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$here" -B "$build" -G Ninja "${launcher[@]}" -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQVGEO_BUILD_FUZZ=ON -DQVGEO_BUILD_TESTS=OFF \
  -DQVGEO_BUILD_BENCH=OFF -DQVGEO_BUILD_APPS=OFF >/dev/null
cmake --build "$build" --target qvgeo_fuzz --parallel "$(nproc)"

if [ $# -gt 0 ]; then
  targets=("$@")
else
  mapfile -t targets < "$build/fuzz/targets.txt"
fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
failed=()
for t in "${targets[@]}"; do
  corpus=$build/fuzz/corpus/$t
  artifacts=$build/fuzz/artifacts/$t
  mkdir -p "$corpus" "$artifacts"
  seeds=()
  if [ -d "$here/fuzz/corpus/$t" ]; then
    seeds=("$here/fuzz/corpus/$t")
  fi
  log=$build/fuzz/$t.log
  status=0
  "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=8192 \
    -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" "${seeds[@]}" >"$log" 2>&1 || status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  if [ "$status" -ne 0 ]; then
    failed+=("$t")
    echo "fuzz $t: FAILED after ${runs:-?} runs (exit $status); log $log" >&2
    grep -E "^(==[0-9]+==ERROR|SUMMARY|.*runtime error|qvgeo fuzz:)" "$log" | head -5 >&2 || true
  else
    echo "fuzz $t: ${runs:-?} runs in ${seconds} s, no crash"
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: crashes in ${failed[*]}; inputs in $build/fuzz/artifacts/" >&2
  exit 1
fi
