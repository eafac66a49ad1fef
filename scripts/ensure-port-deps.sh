#!/usr/bin/env bash
# Makes sure the packages of the foreign-host checks (scripts/test-ports.sh)
# are there: the s390x cross compiler with qemu-user, the 32-bit x86 libraries,
# and GoogleTest for both architectures. As root with apt-get it installs what
# is missing; otherwise it names the packages.
#
# gcc-multilib is left out on purpose: on Debian 12 it conflicts with the
# s390x cross compiler. The 32-bit run libraries below are enough for -m32;
# the toolchain file supplies the one thing gcc-multilib would add, the
# kernel's asm/ headers.
set -euo pipefail
architectures=(s390x i386)
packages=(g++-s390x-linux-gnu qemu-user
  libgtest-dev:s390x libgmock-dev:s390x
  lib32stdc++-12-dev lib32gcc-12-dev libc6-dev-i386
  libgtest-dev:i386 libgmock-dev:i386)
missing_architectures=()
for architecture in "${architectures[@]}"; do
  dpkg --print-foreign-architectures | grep -qx "$architecture" ||
    missing_architectures+=("$architecture")
done
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ] && [ ${#missing_architectures[@]} -eq 0 ]; then
  exit 0
fi
if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
  for architecture in "${missing_architectures[@]}"; do
    echo "adding architecture $architecture"
    dpkg --add-architecture "$architecture"
  done
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  # A mirror caught mid-sync fails one index now and then: the install
  # below decides.
  apt-get update -qq || echo "apt-get update reported errors; installing anyway" >&2
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
else
  [ ${#missing_architectures[@]} -eq 0 ] ||
    echo "add the architectures with: sudo dpkg --add-architecture ARCH (${missing_architectures[*]})" >&2
  echo "missing packages: ${missing[*]}" >&2
  echo "install them with: sudo apt-get install --no-install-recommends ${missing[*]}" >&2
  exit 1
fi
