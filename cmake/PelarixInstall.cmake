# What `cmake --install` puts under its prefix: the shared library with its
# soname links, the exported C header, the engine's static library and C++
# headers, the tools, a CMake package (find_package(pelarix) gives
# pelarix::pelarix and pelarix::ordo_usb) and pkg-config files (pelarix,
# ordo_usb). Every path in the package files is relative to where they lie,
# so an installed tree may be moved as a whole.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(pelarix_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/pelarix)
set(pelarix_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS pelarix ordo_usb EXPORT pelarixTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/pelarix.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ordo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(tool pelarix-filter pelarix-vhubd pelarix-usbipd pelarix-demo)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
# What the demo reads when it runs from an installed tree: the real devices'
# descriptors and its settings, with the sample settings and service.
if(TARGET pelarix-demo)
  file(GLOB demo_descriptors ${PROJECT_SOURCE_DIR}/tests/data/realdesc/*.bin)
  install(FILES ${demo_descriptors} ${PROJECT_SOURCE_DIR}/tests/data/realdesc/INDEX.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/pelarix/realdesc)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/examples/demo.reg ${PROJECT_SOURCE_DIR}/examples/pelarix.reg
  ${PROJECT_SOURCE_DIR}/examples/minimal_service.c DESTINATION ${CMAKE_INSTALL_DATADIR}/pelarix/examples)

install(EXPORT pelarixTargets NAMESPACE pelarix:: DESTINATION ${pelarix_cmake_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/pelarixConfig.cmake.in
  ${CMAKE_BINARY_DIR}/package/pelarixConfig.cmake INSTALL_DESTINATION ${pelarix_cmake_dir})
# The soname changes with the major version, and so may the interface.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/pelarixConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/pelarixConfig.cmake
  ${CMAKE_BINARY_DIR}/package/pelarixConfigVersion.cmake DESTINATION ${pelarix_cmake_dir})

# pkg-config finds the prefix from the .pc file's own folder.
file(RELATIVE_PATH pelarix_pc_to_prefix ${CMAKE_INSTALL_PREFIX}/${pelarix_pkgconfig_dir}
  ${CMAKE_INSTALL_PREFIX})
foreach(pc pelarix ordo_usb)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in ${CMAKE_BINARY_DIR}/package/${pc}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/package/${pc}.pc DESTINATION ${pelarix_pkgconfig_dir})
endforeach()
