# Runs pelarix-demo with ARGS (|-separated) and compares its exit status and
# its standard output with GOLDEN. The rates (MB/s, items/s) and what they
# depend on (the storage rows' items and bytes) vary from run to run: every
# number with a decimal point, and the items and bytes of a row whose check
# says "disk verified", count as one "#"; runs of blanks count as one.
string(REPLACE "|" ";" args "${ARGS}")
execute_process(COMMAND ${TOOL} ${args} RESULT_VARIABLE status OUTPUT_VARIABLE out
  ERROR_VARIABLE err TIMEOUT 50)
function(steady text result)
  string(REGEX REPLACE "[0-9]+\\.[0-9]" "#" text "${text}")
  string(REGEX REPLACE " +" " " text "${text}")
  string(REGEX REPLACE "whole ([0-9]+) [0-9]+ [0-9]+ # # disk verified"
    "whole \\1 # # # # disk verified" text "${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()
file(READ ${GOLDEN} expected)
steady("${out}" actual)
steady("${expected}" expected)
if(NOT status EQUAL EXPECTED_STATUS)
  message(FATAL_ERROR "exit status ${status}, expected ${EXPECTED_STATUS}\n${out}\n${err}")
endif()
if(NOT actual STREQUAL expected)
  message(FATAL_ERROR "output differs from ${GOLDEN}:\n${out}\nstderr:\n${err}")
endif()
