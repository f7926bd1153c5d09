#!/usr/bin/env bash
# Builds and runs every test twice: in the optimised Release build that the main job uses (build/) and in
# an AddressSanitizer + UndefinedBehaviorSanitizer build (build-asan/); runs the tests that search or fit
# from several threads at once under ThreadSanitizer (build-tsan/, the core alone); then runs every fuzz
# target for a short while (build-fuzz/). Exits non-zero if any build or test fails or a fuzz target finds a crash.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/install-deps.sh"
jobs=$(nproc)

# The viewer's monkey (ViewerMonkey.* in test_viewer) runs with the rest in both builds: 2000 random
# events from seed 1 unless QVGEO_MONKEY_SEED / QVGEO_MONKEY_EVENTS say otherwise. A longer run by hand:
#   QVGEO_MONKEY_SEED=7 QVGEO_MONKEY_EVENTS=20000 build/tests/test_viewer --gtest_filter='ViewerMonkey.Random*'
"$here/scripts/build.sh" "$here/build" -DCMAKE_BUILD_TYPE=Release
(cd "$here/build" && ctest --output-on-failure --parallel "$jobs")

# The sanitizer build skips the benchmarks: they are measured in the normal build only.
"$here/scripts/build.sh" "$here/build-asan" -DCMAKE_BUILD_TYPE=Debug -DQVGEO_SANITIZE=ON \
  -DQVGEO_BUILD_BENCH=OFF
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd "$here/build-asan" && ctest --output-on-failure --parallel "$jobs" --label-exclude install)

# ThreadSanitizer: the core without Qt (whose own threads it cannot see into), only the tests that run
# several threads, by name.
unset ASAN_OPTIONS UBSAN_OPTIONS
"$here/scripts/build.sh" "$here/build-tsan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQVGEO_TSAN=ON \
  -DQVGEO_BUILD_WIDGETS=OFF -DQVGEO_BUILD_BENCH=OFF -DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON
TSAN_OPTIONS=halt_on_error=1 bash -c "cd '$here/build-tsan' && ctest --output-on-failure --no-tests=error -R 'Concurrent|Threads'"

# Ten seconds per target keeps the fuzz step near three minutes with the build; scripts/fuzz.sh SECONDS
# runs longer.
"$here/scripts/fuzz.sh" 10
