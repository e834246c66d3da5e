# The device: 32-bit ARM, hard float, glibc with a 32-bit time_t.

set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)

set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm-static)
set(sysrootVariable TOLVEX_ARM_SYSROOT)
set(sysrootFolder arm-sysroot)
include(${CMAKE_CURRENT_LIST_DIR}/CrossToolchain.cmake)
