#!/usr/bin/env bash
# Builds the Debian packages with `cpack -G DEB`, unpacks them into a scratch
# root with `dpkg -x` (no root rights, no container), and uses them as a
# user would: the tool runs with its manual page and completion beside it,
# the packages depend on one another, and C and CMake callers build against
# the development package and run on the library package.
# Usage: package_test.sh BUILD_DIR ABI_TEST_DIR
set -euo pipefail
build=$1
abi=$2
if ! command -v dpkg-deb >/dev/null || ! command -v cpack >/dev/null; then
  echo "dpkg-deb or cpack missing (scripts/ensure-deps.sh installs dpkg-dev)"
  exit 77
fi
scratch="$build/package-test"
rm -rf "$scratch"
mkdir -p "$scratch/root" "$scratch/tmp"
(cd "$scratch" && cpack --config "$build/CPackConfig.cmake" -G DEB -B "$scratch/debs" >/dev/null)

fail() {
  echo "package test: $*" >&2
  exit 1
}
debs=("$scratch"/debs/*.deb)
[ ${#debs[@]} -eq 3 ] || fail "expected 3 packages, got: ${debs[*]}"
version=$(sed -n 's/^kt \(.*\)$/\1/p' <(LD_LIBRARY_PATH="$build" "$build/bin/kt" --version))
for package in "libvlnvktosx1" "libvlnvktosx-dev" "kt"; do
  deb=$(ls "$scratch"/debs/${package}_*.deb) || fail "no package $package"
  [ "$(dpkg-deb -f "$deb" Package)" = "$package" ] || fail "$deb is not $package"
  [ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "$deb is not version $version"
  dpkg -x "$deb" "$scratch/root"
done
dpkg-deb -f "$scratch"/debs/kt_*.deb Depends | grep "libvlnvktosx1 (= $version)" >/dev/null ||
  fail "kt does not depend on libvlnvktosx1 $version"
dpkg-deb -f "$scratch"/debs/libvlnvktosx-dev_*.deb Depends | grep "libvlnvktosx1 (= $version)" >/dev/null ||
  fail "libvlnvktosx-dev does not depend on libvlnvktosx1 $version"
# Each file in the package it belongs to.
dpkg-deb -c "$scratch"/debs/libvlnvktosx1_*.deb | grep 'usr/lib/libvlnvktosx.so.1' >/dev/null ||
  fail "the library package lacks the shared object"
! dpkg-deb -c "$scratch"/debs/libvlnvktosx1_*.deb | grep 'include/' >/dev/null ||
  fail "the library package carries headers"
dpkg-deb -c "$scratch"/debs/kt_*.deb | grep 'usr/share/man/man1/kt.1' >/dev/null ||
  fail "the tool package lacks the manual page"

usr="$scratch/root/usr"
# The tool finds the library through its run path, nothing else.
env -u LD_LIBRARY_PATH "$usr/bin/kt" --version | grep "^kt $version" >/dev/null || fail "kt does not run"
grep -q 'DESCRIPTION FORMAT' "$usr/share/man/man1/kt.1" || fail "no description format in kt.1"
bash -c "source '$usr/share/bash-completion/completions/kt'; COMP_WORDS=(kt tables ''); COMP_CWORD=2; _kt; [ \"\${COMPREPLY[*]}\" = 'compile dump' ]" ||
  fail "the completion does not complete"

export PKG_CONFIG_PATH="$usr/lib/pkgconfig"
cc -std=c99 -pedantic-errors -Wall -Wextra -Werror "$abi/c_api_test.c" -o "$scratch/c_caller" \
  $(pkg-config --cflags --libs vlnvktosx)
LD_LIBRARY_PATH="$usr/lib" "$scratch/c_caller" "$scratch/tmp" >/dev/null
cmake -S "$abi/consumer" -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$usr" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
LD_LIBRARY_PATH="$usr/lib" "$scratch/consumer/consumer" "$scratch/tmp" >/dev/null
rm -rf "$scratch"
echo "Debian packages: 3 built, unpacked, tool run, C and CMake callers built and run"
