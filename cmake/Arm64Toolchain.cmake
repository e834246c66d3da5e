# 64-bit ARM, glibc. Built to be measured (scripts/footprint); the device is in ArmToolchain.cmake.

set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)

set(triplet aarch64-linux-gnu)
set(emulator qemu-aarch64-static)
set(sysrootVariable TOLVEX_ARM64_SYSROOT)
set(sysrootFolder arm64-sysroot)
include(${CMAKE_CURRENT_LIST_DIR}/CrossToolchain.cmake)
