#!/usr/bin/env bash
# The whole test suite: a normal build and an AddressSanitizer +
# UndefinedBehaviorSanitizer build, each built and run with CTest, a
# ThreadSanitizer build of the concurrency tests, then every libFuzzer target
# for a bounded time on its seed corpus and the tool's sources compiled by
# Clang (when Clang is here).
# KT_FUZZ_SECONDS sets the time per fuzz target (default 30; 0 skips).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-deps.sh"
jobs=$(nproc)

run_suite() {
  local name=$1
  shift
  local build="$root/build/$name"
  echo "=== $name build ==="
  cmake -S "$root" -B "$build" -G Ninja "$@" >/dev/null
  cmake --build "$build" -j "$jobs"
  (cd "$build" && ctest --output-on-failure -j "$jobs" --timeout 600)
}

run_suite normal -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKT_BUILD_BENCHMARKS=ON

# Constant-time check: Memcheck reports any branch or address that depends
# on the secret exponents, which the program marks undefined.
ct_check="$root/build/normal/tests/kt_ct_check"
if command -v valgrind >/dev/null && [ -x "$ct_check" ]; then
  echo "=== constant-time check (valgrind) ==="
  valgrind -q --error-exitcode=1 "$ct_check"
fi
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run_suite sanitize -DCMAKE_BUILD_TYPE=Debug -DKT_SANITIZE=ON

# ThreadSanitizer: only the tests that run threads (the others are single-
# threaded and cannot race).
echo "=== thread sanitizer build ==="
build="$root/build/tsan"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKT_SANITIZE=thread \
  >/dev/null
cmake --build "$build" -j "$jobs" --target kt_threads_tests
(cd "$build" && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  ctest --output-on-failure -j "$jobs" --timeout 600 -R '^Stress')

fuzz_seconds=${KT_FUZZ_SECONDS:-30}
if [ "$fuzz_seconds" -gt 0 ] && command -v clang++ >/dev/null && [ -d "$root/fuzz" ] &&
   ls "$root"/fuzz/*_fuzz.cpp >/dev/null 2>&1; then
  echo "=== fuzz targets (${fuzz_seconds}s each) ==="
  # Its build is the one Clang build, and compiles the tool's sources too.
  "$root/scripts/fuzz.sh" --no-merge "$fuzz_seconds"
fi
echo "test suite: all builds passed"
