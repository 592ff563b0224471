# Writes zefo-monitor's manual page (gzipped as Debian installs them) and its bash completion
# from the program's own option table (its hidden --help-man and --bash-completion), so neither
# can drift from the options. Run at build time:
#   cmake -DPROGRAM=<zefo-monitor> [-DEMULATOR=<qemu;...>] -DGZIP=<gzip> -DOUT=<dir> -P ZefoManual.cmake
foreach(_what man bash)
  if(_what STREQUAL "man")
    set(_flag --help-man)
    set(_file ${OUT}/zefo-monitor.1)
  else()
    set(_flag --bash-completion)
    set(_file ${OUT}/zefo-monitor.bash)
  endif()
  execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${_flag} OUTPUT_FILE ${_file}.new
    RESULT_VARIABLE _result)
  if(NOT _result EQUAL 0)
    message(FATAL_ERROR "${PROGRAM} ${_flag} failed: ${_result}")
  endif()
  file(RENAME ${_file}.new ${_file})
endforeach()
execute_process(COMMAND ${GZIP} -9nkf ${OUT}/zefo-monitor.1 RESULT_VARIABLE _result)
if(NOT _result EQUAL 0)
  message(FATAL_ERROR "gzip of the manual page failed: ${_result}")
endif()
