#!/usr/bin/env bash
# Fuzzing campaign: builds every libFuzzer target (fuzz/*_fuzz.cpp, Clang
# only) and runs each in turn for SECONDS (default 3600) on one job, starting
# from its seeds in fuzz/corpus/<target>/. The new inputs a run finds are then
# merged into fuzz/corpus/<target>/, keeping only those that add coverage
# (-merge=1). Prints the executions each target reached.
#
#   scripts/fuzz.sh [--no-merge] [SECONDS]
#
# --no-merge leaves fuzz/corpus as it is (the bounded run of scripts/test.sh).
# Scratch files go to a directory in /dev/shm (memory) when there is one,
# removed at the end. Findings are kept in build/fuzz/findings/ and make the
# script fail once every target has run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
merge=1
if [ "${1:-}" = "--no-merge" ]; then
  merge=0
  shift
fi
seconds=${1:-3600}

build="$root/build/fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKT_BUILD_TESTS=OFF -DKT_BUILD_FUZZERS=ON >/dev/null
# The default build of this configuration: the fuzz targets, and the tool's
# sources compiled under Clang, so that a warning only Clang gives cannot
# hide there.
cmake --build "$build" -j "$(nproc)"
targets=()
for source in "$root"/fuzz/*_fuzz.cpp; do targets+=("$(basename "$source" .cpp)"); done

scratch_base="$build"
[ -d /dev/shm ] && [ -w /dev/shm ] && scratch_base=/dev/shm
scratch=$(mktemp -d "$scratch_base/kt-fuzz.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
export KT_FUZZ_TMPDIR="$scratch"
findings="$build/findings"
mkdir -p "$findings"

failed=()
for target in "${targets[@]}"; do
  seeds="$root/fuzz/corpus/$target"
  found="$scratch/$target.new"
  mkdir -p "$found"
  [ "$merge" = 1 ] && mkdir -p "$seeds"
  log="$build/$target.log"
  # New inputs go to the first directory; the seeds are only read.
  if "$build/fuzz/$target" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 \
       -artifact_prefix="$findings/$target-" "$found" "$seeds" >"$log" 2>&1; then
    status=ok
  else
    status=FINDING
    failed+=("$target")
    tail -n 40 "$log"
  fi
  runs=$(awk '/stat::number_of_executed_units/ {print $2}' "$log")
  rate=$(awk '/stat::average_exec_per_sec/ {print $2}' "$log")
  echo "$target: ${runs:-?} executions in ${seconds}s (${rate:-?}/s) $status"
  if [ "$merge" = 1 ] && [ "$status" = ok ]; then
    before=$(find "$seeds" -type f | wc -l)
    "$build/fuzz/$target" -merge=1 "$seeds" "$found" >"$build/$target.merge.log" 2>&1
    echo "$target: corpus $before -> $(find "$seeds" -type f | wc -l) inputs"
  fi
  rm -rf "$found"
done

if [ "${#failed[@]}" -gt 0 ]; then
  echo "findings in: ${failed[*]} (see $findings)" >&2
  exit 1
fi
