# Installs headers, the library, the CMake package and the pkg-config file.

include(CMakePackageConfigHelpers)

set(NORVANE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/norvane_core)

install(TARGETS norvane_core EXPORT norvane_coreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/norvane DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_BINARY_DIR}/include/norvane/export.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/norvane)

install(EXPORT norvane_coreTargets
  NAMESPACE norvane::
  FILE norvane_coreTargets.cmake
  DESTINATION ${NORVANE_CMAKE_DIR})

configure_package_config_file(cmake/norvane_coreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/norvane_coreConfig.cmake
  INSTALL_DESTINATION ${NORVANE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/norvane_coreConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/norvane_coreConfig.cmake
  ${PROJECT_BINARY_DIR}/norvane_coreConfigVersion.cmake
  DESTINATION ${NORVANE_CMAKE_DIR})

configure_file(cmake/norvane_core.pc.in ${PROJECT_BINARY_DIR}/norvane_core.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/norvane_core.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
