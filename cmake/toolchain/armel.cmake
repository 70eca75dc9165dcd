# 32-bit ARM without a floating-point unit (ARMv5TE).
set(DEBIAN_ARCHITECTURE armel)
set(GNU_ARCHITECTURE arm-linux-gnueabi)
include(${CMAKE_CURRENT_LIST_DIR}/debian-arm.cmake)
