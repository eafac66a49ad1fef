#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a C caller
# through pkg-config and a CMake caller through find_package(vlnvktosx).
set -euo pipefail
build=$1
abi=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix="$scratch/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
cc -std=c99 -pedantic-errors -Wall -Wextra -Werror "$abi/c_api_test.c" -o "$scratch/c_caller" \
  $(pkg-config --cflags --libs vlnvktosx)
mkdir -p "$scratch/tmp"
LD_LIBRARY_PATH="$prefix/lib" "$scratch/c_caller" "$scratch/tmp"

cmake -S "$abi/consumer" -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
LD_LIBRARY_PATH="$prefix/lib" "$scratch/consumer/consumer" "$scratch/tmp"
for header in "$prefix"/include/kt*.h; do
  echo "#include \"$(basename "$header")\"" > "$scratch/one.c"
  cc -std=c99 -pedantic-errors -Wall -Wextra -Werror -I"$prefix/include" -c "$scratch/one.c" \
    -o "$scratch/one.o"
  c++ -std=c++20 -Wall -Wextra -Werror -I"$prefix/include" -x c++ -c "$scratch/one.c" \
    -o "$scratch/one.o"
done
echo "installed package: pkg-config and find_package callers built and ran"
