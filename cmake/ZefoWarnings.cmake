# zefo_set_warnings(<target>): the project's warning set, errors when ZEFO_WARNINGS_AS_ERRORS is on.
function(zefo_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
  if(ZEFO_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
