# s390x (64-bit, big-endian, unsigned char) with Debian's cross compiler;
# the programs run under qemu-user, which finds the target's loader and
# run-time libraries under the cross compiler's root.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE s390x-linux-gnu)
find_program(KT_QEMU_S390X qemu-s390x REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${KT_QEMU_S390X}" -L /usr/s390x-linux-gnu)

# The cross compiler's own root first, then the multiarch directories of
# the host (GoogleTest's s390x package); programs are the host's.
set(CMAKE_FIND_ROOT_PATH /usr/s390x-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
