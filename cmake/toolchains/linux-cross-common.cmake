# Shared part of the Debian cross toolchains. The including file sets ZEFO_CROSS_TRIPLET,
# ZEFO_CROSS_PROCESSOR and ZEFO_CROSS_QEMU before including this one.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${ZEFO_CROSS_PROCESSOR})

# Debian's cross compilers (g++-<triplet>) and the target's libraries under /usr/<triplet>.
set(CMAKE_C_COMPILER ${ZEFO_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ZEFO_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ZEFO_CROSS_TRIPLET})

# Libraries, headers and CMake packages come from the target's prefix only; programs (ccache,
# qemu) from the host. Header-only packages the host may supply are taken explicitly
# (cmake/ZefoCrossHostPackages.cmake).
set(CMAKE_FIND_ROOT_PATH /usr/${ZEFO_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Target programs (the tests, gtest_discover_tests' listing run) go through qemu-user with the
# target's loader and libraries found under the cross sysroot.
find_program(ZEFO_CROSS_QEMU_PROGRAM ${ZEFO_CROSS_QEMU})
if(ZEFO_CROSS_QEMU_PROGRAM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ZEFO_CROSS_QEMU_PROGRAM};-L;/usr/${ZEFO_CROSS_TRIPLET})
endif()
