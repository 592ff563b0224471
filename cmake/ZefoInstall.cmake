# Installs the libraries, headers, the exported CMake package ZefoResourceMonitor and a pkg-config
# file, so hosts find the library with find_package(ZefoResourceMonitor) or pkg-config.
include(CMakePackageConfigHelpers)

set(ZEFO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZefoResourceMonitor)

install(TARGETS zefo_resource_monitor zefo_format zefo_thread zefo_timmer zefo_utils
  EXPORT ZefoResourceMonitorTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/zefo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
  FILES_MATCHING PATTERN "*.h")

install(EXPORT ZefoResourceMonitorTargets
  NAMESPACE zefo::
  DESTINATION ${ZEFO_CMAKE_DIR}
  COMPONENT dev)
configure_package_config_file(cmake/ZefoResourceMonitorConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/ZefoResourceMonitorConfig.cmake
  INSTALL_DESTINATION ${ZEFO_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZefoResourceMonitorConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/ZefoResourceMonitorConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/ZefoResourceMonitorConfigVersion.cmake
  DESTINATION ${ZEFO_CMAKE_DIR}
  COMPONENT dev)

# The .pc file finds its prefix from its own place, so `cmake --install --prefix` anywhere works.
file(RELATIVE_PATH ZEFO_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" ZEFO_PC_TO_PREFIX "${ZEFO_PC_TO_PREFIX}")
configure_file(cmake/zefo_resource_monitor.pc.in ${CMAKE_CURRENT_BINARY_DIR}/zefo_resource_monitor.pc
  @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zefo_resource_monitor.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)
configure_file(cmake/zefo_format.pc.in ${CMAKE_CURRENT_BINARY_DIR}/zefo_format.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zefo_format.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)
if(TARGET zefo_record)
install(TARGETS zefo_record EXPORT ZefoResourceMonitorTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
configure_file(cmake/zefo_record.pc.in ${CMAKE_CURRENT_BINARY_DIR}/zefo_record.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zefo_record.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)
endif()
