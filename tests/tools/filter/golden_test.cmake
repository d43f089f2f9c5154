# Runs pelarix-filter once and compares its exit status, its output and,
# where given, its error output with the expected ones.
#   TOOL, WORKDIR, ARGS (arguments joined with "|"), EXPECTED_STATUS, GOLDEN,
#   GOLDEN_ERR
string(REPLACE "|" ";" args "${ARGS}")
execute_process(COMMAND ${TOOL} ${args}
  WORKING_DIRECTORY ${WORKDIR}
  OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
if(NOT status STREQUAL EXPECTED_STATUS)
  message(FATAL_ERROR "exit status ${status}, expected ${EXPECTED_STATUS}\n${err}")
endif()
foreach(pair "out;GOLDEN" "err;GOLDEN_ERR")
  list(GET pair 0 stream)
  list(GET pair 1 file)
  if(DEFINED ${file})
    # PELARIX_UPDATE_GOLDEN=1 ctest -L tools writes the outputs as the new
    # golden files, to be read over before they are committed.
    if("$ENV{PELARIX_UPDATE_GOLDEN}" STREQUAL "1")
      file(WRITE ${${file}} "${${stream}}")
    endif()
    file(READ ${${file}} expected)
    if(NOT "${${stream}}" STREQUAL "${expected}")
      file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/actual.txt "${${stream}}")
      message(FATAL_ERROR "${stream} differs from ${${file}}; "
        "it is in ${CMAKE_CURRENT_BINARY_DIR}/actual.txt")
    endif()
  endif()
endforeach()
