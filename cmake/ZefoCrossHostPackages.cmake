# Header-only packages taken from the build machine when cross-compiling.
#
# CLI11 is header-only, so the host's copy (Debian libcli11-dev) serves every target. Its CMake
# package points at the host's /usr/include, which must not reach a cross compiler: the host's
# C library headers there would shadow the target's. The target CLI11::CLI11 is therefore defined
# here on a directory that holds nothing but CLI11's own headers; the later find_package(CLI11)
# in tools/ then finds it already defined.
find_path(ZEFO_HOST_CLI11_INCLUDE CLI/CLI.hpp PATHS /usr/include /usr/local/include
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_package(CLI11 CONFIG QUIET PATHS /usr/share/cmake /usr/lib/cmake /usr/local/share/cmake
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT ZEFO_HOST_CLI11_INCLUDE OR NOT TARGET CLI11::CLI11)
  message(FATAL_ERROR "CLI11 not found on the build machine (Debian: apt-get install libcli11-dev), "
                      "or configure with -DZEFO_BUILD_TOOLS=OFF")
endif()
set(_zefo_cli11_dir ${CMAKE_BINARY_DIR}/host-header-only/cli11)
file(MAKE_DIRECTORY ${_zefo_cli11_dir})
file(CREATE_LINK ${ZEFO_HOST_CLI11_INCLUDE}/CLI ${_zefo_cli11_dir}/CLI SYMBOLIC)
set_target_properties(CLI11::CLI11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${_zefo_cli11_dir})
