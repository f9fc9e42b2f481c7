# 32-bit big-endian PowerPC Linux, an e300/G2 (603e) core such as the MPC82xx has: Debian's cross
# compiler, and its C library's folder for the emulator. Another tool set of the same target only
# needs Q5_TARGET set.
set (Q5_TARGET powerpc-linux-gnu CACHE STRING "Prefix of the cross tools")
set (CMAKE_TRY_COMPILE_PLATFORM_VARIABLES Q5_TARGET)

set (CMAKE_SYSTEM_NAME Linux)
set (CMAKE_SYSTEM_PROCESSOR ppc)
set (CMAKE_CXX_COMPILER ${Q5_TARGET}-g++)
set (CMAKE_CXX_FLAGS_INIT "-mcpu=603e")
# The board's pages are 4 KiB; the linker would pad each segment to 64 KiB.
set (CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-z,max-page-size=4096")
set (CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-z,max-page-size=4096")
set (CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc -cpu g2 -L /usr/${Q5_TARGET})

set (CMAKE_FIND_ROOT_PATH /usr/${Q5_TARGET})
set (CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set (CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set (CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set (CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
