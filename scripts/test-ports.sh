#!/usr/bin/env bash
# The library and its GoogleTest suite on foreign hosts, each built with the
# toolchain file in cmake/toolchains/ and run with CTest:
#   i386   32-bit x86 (-m32), run natively;
#   s390x  64-bit big-endian with unsigned char, run under qemu-user.
# Usage: scripts/test-ports.sh [i386] [s390x]   (both by default)
#
# Only what the runs need is built: no benchmarks, no fuzzers; OpenSSL is
# not installable for these architectures, so its oracle tests are left out
# (KT_WITH_OPENSSL_TESTS=OFF; the normal build runs them). On s390x the
# tests start the foreign kt tool through the emulator too, and the
# installed-package test, which builds callers with the host's compiler, is
# not defined for a foreign target (tests/CMakeLists.txt).
# -O2 rather than Release's -O3: GCC 12 at -O3 -m32 stops the build on a
# false -Wrestrict inside std::string in a test.
# KT_PORTS_CMAKE_ARGS adds configure arguments.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-port-deps.sh"
jobs=$(nproc)
ports=("$@")
[ ${#ports[@]} -gt 0 ] || ports=(i386 s390x)

for port in "${ports[@]}"; do
  toolchain="$root/cmake/toolchains/$port-linux-gnu.cmake"
  [ -f "$toolchain" ] || { echo "unknown port $port (no $toolchain)" >&2; exit 2; }
  build="$root/build/port-$port"
  start=$SECONDS
  echo "=== $port build ==="
  # shellcheck disable=SC2086  # KT_PORTS_CMAKE_ARGS is a list of words
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" \
    -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" -DKT_BUILD_TESTS=ON -DKT_BUILD_BENCHMARKS=OFF \
    -DKT_BUILD_FUZZERS=OFF -DKT_WITH_OPENSSL_TESTS=OFF ${KT_PORTS_CMAKE_ARGS:-} >/dev/null
  cmake --build "$build" -j "$jobs"
  (cd "$build" && ctest --output-on-failure -j "$jobs" --timeout 600)
  echo "=== $port: passed in $((SECONDS - start)) s ==="
done
echo "ports: ${ports[*]} passed"
