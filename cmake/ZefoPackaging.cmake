# Debian packages, made by CPack's DEB generator from the install components:
#   libzefo-resource-monitor1     the four shared libraries                 (component runtime)
#   libzefo-resource-monitor-dev  headers, the unversioned .so links, the CMake package and the
#                                 pkg-config file                           (component dev)
#   zefo-monitor                  the command-line tool                     (component tools)
# Configure with CMAKE_INSTALL_PREFIX=/usr (the package-<arch> presets do), build, then
# `cpack --preset package-<arch>`; scripts/package does all three.

get_target_property(_zefo_soversion zefo_resource_monitor SOVERSION)
set(ZEFO_DEB_LIB_PACKAGE libzefo-resource-monitor${_zefo_soversion})
set(ZEFO_DEB_DEV_PACKAGE libzefo-resource-monitor-dev)
set(ZEFO_DEB_TOOLS_PACKAGE zefo-monitor)
set(ZEFO_DEB_MAINTAINER "Zefo platform developers <platform-dev@zefo.example>"
    CACHE STRING "Maintainer field of the Debian packages")
set(ZEFO_DEB_RELEASE 1 CACHE STRING "Debian revision of the packages")
set(_zefo_deb_version ${PROJECT_VERSION}-${ZEFO_DEB_RELEASE})

set(CPACK_PACKAGE_NAME zefo-resource-monitor)
set(CPACK_PACKAGE_VENDOR "Zefo")
set(CPACK_PACKAGE_CONTACT ${ZEFO_DEB_MAINTAINER})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package's description below starts with its own synopsis line. CPack puts a summary
# line in front of them unless the summary is its own default, so it is left at that default.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
if(ZEFO_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEBIAN_PACKAGE_RELEASE ${ZEFO_DEB_RELEASE})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${ZEFO_DEB_LIB_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "resource monitor for embedded Linux boards - shared libraries
A host process links libzefo_resource_monitor to sample, once per period on a
background thread, the board's CPU and accelerator load, disks, memory,
network, temperatures, DDR bandwidth and processes from the kernel's /proc,
/sys and /dev interfaces, and reads the figures back or prints a text report.
.
This package holds the library and its thread, timer and utility companions.")
# A shlibs file (only packages with shared libraries get one), and the ldconfig trigger that
# goes with it.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/runtime/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${ZEFO_DEB_DEV_PACKAGE})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${ZEFO_DEB_LIB_PACKAGE} (= ${_zefo_deb_version})")
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "resource monitor for embedded Linux boards - development files
A host process links libzefo_resource_monitor to sample, once per period on a
background thread, the board's CPU and accelerator load, disks, memory,
network, temperatures, DDR bandwidth and processes from the kernel's /proc,
/sys and /dev interfaces, and reads the figures back or prints a text report.
.
This package holds the headers and what a build needs to find the library:
the CMake package ZefoResourceMonitor and the pkg-config module
zefo_resource_monitor.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${ZEFO_DEB_TOOLS_PACKAGE})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${ZEFO_DEB_LIB_PACKAGE} (= ${_zefo_deb_version})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "resource monitor for embedded Linux boards - command-line tool
zefo-monitor prints the board's resource report (CPU, accelerator, disks,
memory, network, temperatures, DDR bandwidth, processes) after every sampling
pass, for the whole machine or for chosen processes.
.
The zefo-monitor service records every pass to /var/lib/zefo-monitor and
serves metrics and a dashboard on 127.0.0.1:9464.")
# The service: enabled and started on installation, stopped on removal.
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/tools/postinst
  ${PROJECT_SOURCE_DIR}/packaging/debian/tools/prerm ${PROJECT_SOURCE_DIR}/packaging/debian/tools/postrm)

if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps knows only the build machine's libraries, so a cross build names its
  # architecture and its dependencies itself. The floors follow the symbol versions the objects
  # need with Debian 12's toolchain (GLIBC_2.34, GLIBCXX_3.4.30, GCC_3.0); scripts/package checks
  # that the built objects need nothing newer.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
  else()
    message(WARNING "No Debian architecture known for ${CMAKE_SYSTEM_PROCESSOR}")
  endif()
  set(_zefo_system_depends "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 12)")
  string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${_zefo_system_depends}")
  string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", ${_zefo_system_depends}")
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
  # The tool's own libraries are not installed yet: let dpkg-shlibdeps find them in the build
  # tree (it then leaves them out, and the explicit dependency above covers them).
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
endif()

# Every Debian package carries its copyright file and changelog in /usr/share/doc/<package>/;
# they are installed only for packaging (the package presets turn ZEFO_DEBIAN_DOCS on), so a
# plain `cmake --install` does not spread three doc directories. The changelog's date is SOURCE_DATE_EPOCH when set (scripts/package sets it from the last
# commit), so rebuilding a commit gives the same file.
option(ZEFO_DEBIAN_DOCS "Install the Debian copyright and changelog files" OFF)
string(TIMESTAMP _zefo_deb_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(_zefo_deb_doc ${PROJECT_BINARY_DIR}/debian-doc)
file(WRITE ${_zefo_deb_doc}/changelog.Debian
     "zefo-resource-monitor (${_zefo_deb_version}) unstable; urgency=medium\n\n"
     "  * Release ${PROJECT_VERSION}.\n\n"
     " -- ${ZEFO_DEB_MAINTAINER}  ${_zefo_deb_date}\n")
find_program(ZEFO_GZIP gzip)
if(ZEFO_GZIP)
  execute_process(COMMAND ${ZEFO_GZIP} -9nf ${_zefo_deb_doc}/changelog.Debian)
endif()
foreach(_zefo_component runtime dev tools)
  if(NOT ZEFO_DEBIAN_DOCS)
    break()
  endif()
  string(TOUPPER ${_zefo_component} _zefo_upper)
  set(_zefo_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${_zefo_upper}_PACKAGE_NAME})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright
    DESTINATION ${_zefo_dir} COMPONENT ${_zefo_component})
  install(FILES ${_zefo_deb_doc}/changelog.Debian.gz
    DESTINATION ${_zefo_dir} COMPONENT ${_zefo_component} OPTIONAL)
endforeach()
# zefo-monitor's manual page and bash completion are written and installed by tools/.
if(ZEFO_BUILD_TOOLS AND ZEFO_DEBIAN_DOCS AND TARGET zefo_record)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/zefo-monitor.service.in
    ${_zefo_deb_doc}/zefo-monitor.service @ONLY)
  install(FILES ${_zefo_deb_doc}/zefo-monitor.service
    DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system COMPONENT tools)
endif()

include(CPack)
