# pelarix_subsystem(<target> [sources...])
# One object library per subsystem folder, so that each subsystem and its
# tests build on their own. A folder whose code has not been written yet gets
# an empty generated unit, so the libraries that gather the subsystems never
# need to know which of them have code.
function(pelarix_subsystem target)
  set(sources ${ARGN})
  if(NOT sources)
    set(sources ${CMAKE_CURRENT_BINARY_DIR}/${target}_empty.cpp)
    file(WRITE ${sources} "// ${target} has no code yet.\n")
  endif()
  add_library(${target} OBJECT ${sources})
  target_link_libraries(${target} PUBLIC pelarix_includes)
endfunction()

# pelarix_test(<subsystem> [sources...]): the test program <subsystem>_tests.
# ctest runs each case in a process of its own, so process-wide state (the
# init counter, the log sink) starts fresh in every case.
function(pelarix_test sub)
  if(NOT ARGN)
    return()
  endif()
  add_executable(${sub}_tests ${ARGN})
  target_link_libraries(${sub}_tests PRIVATE pelarix_testing)
  pelarix_discover_tests(${sub}_tests ${sub})
endfunction()

# pelarix_discover_tests(<program> <label>): ctest runs each case of the
# program in a process of its own. Where PELARIX_WHOLE_PROGRAMS is set (the
# engine's folders under Wine, where a process costs seconds and the engine
# leaves no state from one case to the next) the program runs whole as one
# test instead. Where PELARIX_TEST_LOCK names a resource, no two cases that
# hold it run at once.
function(pelarix_discover_tests program label)
  if(PELARIX_WHOLE_PROGRAMS)
    add_test(NAME ${program} COMMAND ${program})
    set_tests_properties(${program} PROPERTIES LABELS ${label})
  elseif(PELARIX_TEST_LOCK)
    gtest_discover_tests(${program} DISCOVERY_TIMEOUT 60
      PROPERTIES LABELS ${label} RESOURCE_LOCK ${PELARIX_TEST_LOCK})
  else()
    gtest_discover_tests(${program} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${label})
  endif()
endfunction()
