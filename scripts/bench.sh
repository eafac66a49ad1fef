#!/usr/bin/env bash
# Builds the benchmarks in release mode and runs each one (or those whose
# name matches the first argument).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-deps.sh"
build="$root/build/bench"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKT_BUILD_TESTS=OFF \
  -DKT_BUILD_BENCHMARKS=ON >/dev/null
cmake --build "$build" -j "$(nproc)"
for bench in "$build"/bench/*_bench; do
  case "$(basename "$bench")" in *"${1:-}"*) "$bench" ;; esac
done
