# Header-only packages taken from the build machine when cross-compiling.
#
# CLI11 and nlohmann-json are header-only, so the host's copies (Debian libcli11-dev,
# nlohmann-json3-dev) serve every target. Their CMake packages point at the host's /usr/include,
# which must not reach a cross compiler: the host's C library headers there would shadow the
# target's. Their targets are therefore defined here on directories that hold nothing but the
# package's own headers; the later find_package calls then find them already defined.

# zefo_host_header_only(<target> <header dir name> <probe header>)
function(zefo_host_header_only target dir probe)
  find_path(_zefo_host_include ${probe} PATHS /usr/include /usr/local/include
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH NO_CACHE)
  if(NOT _zefo_host_include)
    message(FATAL_ERROR "${probe} not found on the build machine (scripts/bootstrap installs it)")
  endif()
  set(_zefo_dir ${CMAKE_BINARY_DIR}/host-header-only/${dir})
  file(MAKE_DIRECTORY ${_zefo_dir})
  file(CREATE_LINK ${_zefo_host_include}/${dir} ${_zefo_dir}/${dir} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${_zefo_dir})
endfunction()

zefo_host_header_only(nlohmann_json::nlohmann_json nlohmann nlohmann/json.hpp)

if(NOT ZEFO_BUILD_TOOLS)
  return()
endif()
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
