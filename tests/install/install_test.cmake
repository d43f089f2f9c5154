# Installs the build into a fresh prefix, checks what lies there, and builds
# and runs a consumer against it both ways: through the CMake package and
# through pkg-config. Run by ctest with -P; every input comes as -D:
#   BUILD_DIR, WORK_DIR, CONSUMER_DIR, VERSION, SOVERSION, OBJDUMP,
#   C_COMPILER, CXX_COMPILER, C_FLAGS, CXX_FLAGS, LINKER_FLAGS (the build's
#   own, so that a sanitizer build's library meets a consumer built alike)
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out
    ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "${command}\nfailed (${status}):\n${out}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

function(expect_output program expected)
  run(${program})
  if(NOT run_output STREQUAL expected)
    message(FATAL_ERROR "${program} printed\n${run_output}\ninstead of\n${expected}")
  endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# The tree. The soname link names the real file, which carries the version.
set(lib ${prefix}/lib)
foreach(file include/pelarix.h include/ordo/usb/filter.h include/ordo/usb/cxx20.h
    lib/libordo_usb.a bin/pelarix-filter bin/pelarix-vhubd bin/pelarix-usbipd bin/pelarix-demo
    share/pelarix/realdesc/hub_nec_0409_0058.bin share/pelarix/examples/demo.reg
    share/pelarix/examples/pelarix.reg share/pelarix/examples/minimal_service.c
    lib/cmake/pelarix/pelarixConfig.cmake lib/cmake/pelarix/pelarixConfigVersion.cmake
    lib/cmake/pelarix/pelarixTargets.cmake lib/pkgconfig/pelarix.pc lib/pkgconfig/ordo_usb.pc)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()
if(IS_SYMLINK ${lib}/libpelarix.so.${VERSION} OR NOT EXISTS ${lib}/libpelarix.so.${VERSION})
  message(FATAL_ERROR "libpelarix.so.${VERSION} is not the real file")
endif()
foreach(link libpelarix.so libpelarix.so.${SOVERSION})
  if(NOT IS_SYMLINK ${lib}/${link})
    message(FATAL_ERROR "${link} is not a link")
  endif()
  file(REAL_PATH ${lib}/${link} real)
  if(NOT real STREQUAL "${lib}/libpelarix.so.${VERSION}")
    message(FATAL_ERROR "${link} leads to ${real}")
  endif()
endforeach()
run(${OBJDUMP} -p ${lib}/libpelarix.so.${VERSION})
if(NOT run_output MATCHES "SONAME +libpelarix\\.so\\.${SOVERSION}\n")
  message(FATAL_ERROR "soname of libpelarix.so.${VERSION} is not libpelarix.so.${SOVERSION}")
endif()

set(flags -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
  "-DCMAKE_C_FLAGS=${C_FLAGS}" "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
  "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}")

# The CMake package, found through the prefix alone.
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-consumer
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Debug ${flags})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-consumer)
expect_output(${WORK_DIR}/cmake-consumer/c_consumer "pelarix interface version 2\n")
expect_output(${WORK_DIR}/cmake-consumer/engine_consumer
  "vid-1234_pid-5678 blocked, vid-1234_pid-0001 allowed\n")

# pkg-config, with only the .pc files' folder named; the program finds the
# library through the run path it is linked with.
find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${lib}/pkgconfig)
foreach(package pelarix ordo_usb)
  run(${PKG_CONFIG} --cflags --libs ${package})
  string(STRIP "${run_output}" ${package}_args)
  separate_arguments(${package}_args UNIX_COMMAND "${${package}_args}")
endforeach()
run(${PKG_CONFIG} --modversion pelarix)
if(NOT run_output STREQUAL "${VERSION}\n")
  message(FATAL_ERROR "pkg-config gives version ${run_output}")
endif()
separate_arguments(c_flags UNIX_COMMAND "${C_FLAGS} ${LINKER_FLAGS}")
separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS} ${LINKER_FLAGS}")
set(out ${WORK_DIR}/pkg-config-consumer)
file(MAKE_DIRECTORY ${out})
run(${C_COMPILER} ${c_flags} ${CONSUMER_DIR}/consumer.c ${pelarix_args} -Wl,-rpath,${lib}
  -o ${out}/c_consumer)
run(${CXX_COMPILER} -std=c++20 ${cxx_flags} ${CONSUMER_DIR}/engine_consumer.cpp ${ordo_usb_args}
  -o ${out}/engine_consumer)
expect_output(${out}/c_consumer "pelarix interface version 2\n")
expect_output(${out}/engine_consumer "vid-1234_pid-5678 blocked, vid-1234_pid-0001 allowed\n")
message(STATUS "installed tree and both consumers fine")

# The installed demo finds its descriptors and settings beside it.
run(${prefix}/bin/pelarix-demo --devices hub_nec --duration 0)
if(NOT run_output MATCHES "1 plugged in; every check passed\n$")
  message(FATAL_ERROR "the installed pelarix-demo printed\n${run_output}")
endif()
