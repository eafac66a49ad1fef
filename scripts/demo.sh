#!/usr/bin/env bash
# The main job: builds the library and runs the example host program, which
# activates traces, allocates and frees through the library and prints where
# its trace file went.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-deps.sh"
build="$root/build/release"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKT_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target kt_host_demo
trace="$build/kt_host_demo.trace"
"$build/kt_host_demo" "$trace"
echo "--- first lines of $trace ---"
head -n 12 "$trace"
