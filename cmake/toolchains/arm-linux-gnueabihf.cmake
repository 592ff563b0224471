# 32-bit ARM, hard float (Debian armhf) with g++-arm-linux-gnueabihf; tests run under qemu-arm.
set(ZEFO_CROSS_TRIPLET arm-linux-gnueabihf)
set(ZEFO_CROSS_PROCESSOR armv7l)
set(ZEFO_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross-common.cmake)
