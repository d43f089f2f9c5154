# Cross build of pelarix.dll for 64-bit Windows with Debian's mingw-w64, the
# POSIX-threads flavour (std::thread and std::mutex need it). Programs run on
# the build machine under Wine: run-under-wine.sh gives every test run one
# fresh prefix of its own in the build directory.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(PELARIX_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${PELARIX_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${PELARIX_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${PELARIX_MINGW_PREFIX}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${PELARIX_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The runtime (libgcc, libstdc++, winpthread) goes into each module, so the
# DLL and the test programs need no runtime DLLs beside them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-under-wine.sh)
