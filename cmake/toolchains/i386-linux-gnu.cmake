# 32-bit x86 with the host's GCC and -m32; the programs run natively.
#
# Debian's gcc-multilib conflicts with the s390x cross compiler, so it is not
# installed (scripts/ensure-port-deps.sh). The one thing it would add is an
# asm/ directory for the kernel headers; the x86 headers serve both widths,
# so a directory linking asm to the x86-64 one is searched last.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)

set(kt_asm_dir "${CMAKE_BINARY_DIR}/i386-asm")
if(NOT EXISTS "${kt_asm_dir}/asm")
  file(MAKE_DIRECTORY "${kt_asm_dir}")
  file(CREATE_LINK /usr/include/x86_64-linux-gnu/asm "${kt_asm_dir}/asm" SYMBOLIC)
endif()
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter ${kt_asm_dir}")
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter ${kt_asm_dir}")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -m32)
endforeach()

# Libraries and packages of the target architecture (GoogleTest's i386
# package) come from the multiarch directories; programs are the host's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
