# 32-bit ARM with a floating-point unit (ARMv7).
set(DEBIAN_ARCHITECTURE armhf)
set(GNU_ARCHITECTURE arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/debian-arm.cmake)
