# 64-bit ARM (Debian arm64) with g++-aarch64-linux-gnu; tests run under qemu-aarch64.
set(ZEFO_CROSS_TRIPLET aarch64-linux-gnu)
set(ZEFO_CROSS_PROCESSOR aarch64)
set(ZEFO_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross-common.cmake)
