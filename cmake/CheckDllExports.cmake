# The export check of pelarix.dll, run by ctest on the build machine:
#   cmake -DOBJDUMP=<objdump> -DDLL=<pelarix.dll> -DNAMES=<exported_names.txt>
#         -P CheckDllExports.cmake
# The export table must hold exactly the names of NAMES (undecorated, each
# once), the resources must hold a version block (type 16, RT_VERSION), and
# the DLL must import nothing but system DLLs (the runtime is linked in).
cmake_minimum_required(VERSION 3.25)
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "${OBJDUMP} -p ${DLL} failed")
endif()
string(REPLACE "\n" ";" lines "${dump}")

set(exported "")
set(in_names FALSE)
set(version_resource FALSE)
set(imports "")
foreach(line IN LISTS lines)
  if(line MATCHES "^\\[Ordinal/Name Pointer\\] Table")
    set(in_names TRUE)
  elseif(in_names AND line MATCHES "^[ \t]+\\[ *[0-9]+\\] (.+)$")
    list(APPEND exported "${CMAKE_MATCH_1}")
  elseif(in_names)
    set(in_names FALSE)
  endif()
  if(line MATCHES "^010 +Entry: ID: 0x000010,")
    set(version_resource TRUE)  # the first entry of the type table
  endif()
  if(line MATCHES "DLL Name: (.+)$")
    list(APPEND imports "${CMAKE_MATCH_1}")
  endif()
endforeach()

file(STRINGS ${NAMES} expected)
list(SORT expected)
set(sorted ${exported})
list(SORT sorted)
if(NOT sorted STREQUAL expected)
  message(FATAL_ERROR "pelarix.dll exports\n  ${sorted}\nexpected\n  ${expected}")
endif()
list(LENGTH exported count)
message(STATUS "pelarix.dll exports exactly the ${count} names")

if(NOT version_resource)
  message(FATAL_ERROR "pelarix.dll has no VERSIONINFO resource")
endif()
message(STATUS "pelarix.dll has its VERSIONINFO resource")

set(system_dlls ADVAPI32.dll KERNEL32.dll msvcrt.dll SETUPAPI.dll VERSION.dll)
foreach(import IN LISTS imports)
  if(NOT import IN_LIST system_dlls)
    message(FATAL_ERROR "pelarix.dll imports ${import}, which a Windows machine lacks")
  endif()
endforeach()
message(STATUS "pelarix.dll imports only ${imports}")
