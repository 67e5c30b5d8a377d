# Renders each manual page in PAGES with every groff warning enabled, for
# the terminal and for print; any message at all fails the test.
foreach(page ${PAGES})
  foreach(device utf8 ps)
    execute_process(COMMAND ${GROFF} -ww -z -man -T${device} ${page}
                    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0 OR NOT "${out}${err}" STREQUAL "")
      message(FATAL_ERROR "${page} (-T${device}): groff exits with ${rc}:\n${out}${err}")
    endif()
  endforeach()
endforeach()
