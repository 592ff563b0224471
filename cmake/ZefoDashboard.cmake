# The browser dashboard that zefo-monitor --listen serves at "/": web/ bundled by esbuild (with
# uPlot) into one HTML page, which cmake/ZefoEmbed.cmake turns into a C++ byte array.
#
# Needs Node.js (18 or later) and npm. `npm ci` installs the pinned web/package-lock.json into
# the build tree, once per lock file, with npm's cache outside the source tree (ZEFO_NPM_CACHE).
# Without Node.js or npm, when `npm ci` fails (no registry), or with ZEFO_WITH_DASHBOARD=OFF,
# everything else still builds and "/" says the dashboard was not built.
#
# Sets ZEFO_DASHBOARD_SOURCE: the C++ source that defines DashboardPage().

option(ZEFO_WITH_DASHBOARD "Build the browser dashboard of zefo-monitor --listen (needs Node.js and npm)" ON)
if(DEFINED ENV{XDG_CACHE_HOME})
  set(_zefo_npm_cache_default "$ENV{XDG_CACHE_HOME}/zefo/npm")
else()
  set(_zefo_npm_cache_default "$ENV{HOME}/.cache/zefo/npm")
endif()
set(ZEFO_NPM_CACHE "${_zefo_npm_cache_default}" CACHE PATH
    "npm's download cache for the dashboard build (kept outside the source tree)")

set(ZEFO_DASHBOARD_SOURCE ${PROJECT_SOURCE_DIR}/tools/zefo-monitor/dashboard_missing.cpp)
set(_zefo_web ${PROJECT_SOURCE_DIR}/web)
set(_zefo_web_build ${PROJECT_BINARY_DIR}/web)

function(_zefo_dashboard_skip reason)
  message(STATUS "zefo-monitor dashboard: not built (${reason})")
endfunction()

if(NOT ZEFO_WITH_DASHBOARD)
  _zefo_dashboard_skip("ZEFO_WITH_DASHBOARD is OFF")
  return()
endif()
find_program(ZEFO_NODE NAMES node nodejs)
find_program(ZEFO_NPM npm)
if(NOT ZEFO_NODE OR NOT ZEFO_NPM)
  _zefo_dashboard_skip("Node.js and npm are needed")
  return()
endif()
execute_process(COMMAND ${ZEFO_NODE} --version OUTPUT_VARIABLE _zefo_node_version
                OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE _zefo_node_result)
string(REGEX REPLACE "^v([0-9]+).*" "\\1" _zefo_node_major "${_zefo_node_version}")
if(NOT _zefo_node_result EQUAL 0 OR NOT _zefo_node_major GREATER_EQUAL 18)
  _zefo_dashboard_skip("Node.js 18 or later is needed, ${ZEFO_NODE} is '${_zefo_node_version}'")
  return()
endif()

# npm ci into the build tree when the lock file changed since the last install. Configuring
# again is what notices a new lock file.
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${_zefo_web}/package.json ${_zefo_web}/package-lock.json)
file(SHA256 ${_zefo_web}/package-lock.json _zefo_lock_hash)
set(_zefo_stamp ${_zefo_web_build}/npm-ci.stamp)
set(_zefo_installed "")
if(EXISTS ${_zefo_stamp})
  file(READ ${_zefo_stamp} _zefo_installed)
endif()
if(NOT _zefo_installed STREQUAL _zefo_lock_hash OR NOT EXISTS ${_zefo_web_build}/node_modules/esbuild)
  file(REMOVE ${_zefo_stamp})
  file(MAKE_DIRECTORY ${_zefo_web_build})
  configure_file(${_zefo_web}/package.json ${_zefo_web_build}/package.json COPYONLY)
  configure_file(${_zefo_web}/package-lock.json ${_zefo_web_build}/package-lock.json COPYONLY)
  message(STATUS "zefo-monitor dashboard: npm ci (cache ${ZEFO_NPM_CACHE})")
  # No install scripts: esbuild finds its binary in its platform package without them. Short
  # retries and timeouts, so that a machine without the registry gives up in about 20 s.
  execute_process(
    COMMAND ${ZEFO_NPM} ci --cache ${ZEFO_NPM_CACHE} --ignore-scripts --no-audit --no-fund
            --loglevel=error --fetch-retries=2 --fetch-retry-mintimeout=2000
            --fetch-retry-maxtimeout=10000 --fetch-timeout=60000
    WORKING_DIRECTORY ${_zefo_web_build}
    RESULT_VARIABLE _zefo_npm_result
    OUTPUT_VARIABLE _zefo_npm_output
    ERROR_VARIABLE _zefo_npm_output)
  if(NOT _zefo_npm_result EQUAL 0)
    message(WARNING "zefo-monitor dashboard: not built, npm ci failed:\n${_zefo_npm_output}")
    return()
  endif()
  file(WRITE ${_zefo_stamp} "${_zefo_lock_hash}")
endif()

set(_zefo_page ${_zefo_web_build}/dashboard.html)
set(_zefo_page_source ${_zefo_web_build}/dashboard_page.cpp)
add_custom_command(
  OUTPUT ${_zefo_page}
  COMMAND ${ZEFO_NODE} ${_zefo_web}/build.mjs --out ${_zefo_page}
          --node-modules ${_zefo_web_build}/node_modules
  DEPENDS
    ${_zefo_web}/build.mjs
    ${_zefo_web}/index.html
    ${_zefo_web}/dashboard.css
    ${_zefo_web}/dashboard.js
    ${_zefo_web}/charts.js
    ${_zefo_web}/table.js
    ${_zefo_web}/units.js
    ${_zefo_stamp}
  COMMENT "Bundling the dashboard"
  VERBATIM)
add_custom_command(
  OUTPUT ${_zefo_page_source}
  COMMAND ${CMAKE_COMMAND} -DINPUT=${_zefo_page} -DOUTPUT=${_zefo_page_source}
          -P ${CMAKE_CURRENT_LIST_DIR}/ZefoEmbed.cmake
  DEPENDS ${_zefo_page} ${CMAKE_CURRENT_LIST_DIR}/ZefoEmbed.cmake
  COMMENT "Embedding the dashboard"
  VERBATIM)
set(ZEFO_DASHBOARD_SOURCE ${_zefo_page_source})
message(STATUS "zefo-monitor dashboard: built with ${ZEFO_NODE} ${_zefo_node_version}")
