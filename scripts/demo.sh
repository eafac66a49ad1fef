#!/usr/bin/env bash
# The main job: builds the kt tool with the library it runs on, then runs
# `kt demo`, which shows the library at work on an embedded sample dictionary
# and says where each file went (arguments are passed on: --dir DIR).
# Needs cmake and a C++20 compiler, no root rights; as root with apt it
# installs what is missing, otherwise it names the packages.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
if ! command -v cmake >/dev/null || ! command -v c++ >/dev/null; then
  "$root/scripts/ensure-deps.sh"
fi
build="$root/build/release"
generator=()
if [ ! -f "$build/CMakeCache.txt" ] && command -v ninja >/dev/null; then
  generator=(-G Ninja)
fi
cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release \
  -DKT_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target kt --parallel
"$build/bin/kt" demo "$@"
