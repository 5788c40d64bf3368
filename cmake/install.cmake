include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/planex)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(
  TARGETS planex
  EXPORT planexTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILE_SET generated_headers DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET planex_io)
  install(
    TARGETS planex_io
    EXPORT planexIoTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(
    EXPORT planexIoTargets
    NAMESPACE planex::
    FILE planex-ioTargets.cmake
    DESTINATION ${config_dir})
endif()
install(
  EXPORT planexTargets
  NAMESPACE planex::
  DESTINATION ${config_dir})

configure_file(cmake/planexConfig.cmake.in planexConfig.cmake @ONLY)
# The C interface and the binary layout hold for one major version.
write_basic_package_version_file(planexConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/planexConfig.cmake
              ${PROJECT_BINARY_DIR}/planexConfigVersion.cmake DESTINATION ${config_dir})

file(RELATIVE_PATH PLANEX_PC_PREFIX /${pkgconfig_dir} /)
string(REGEX REPLACE "/$" "" PLANEX_PC_PREFIX "${PLANEX_PC_PREFIX}")
configure_file(cmake/planex.pc.in planex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/planex.pc DESTINATION ${pkgconfig_dir})
if(TARGET planex_io)
  configure_file(cmake/planex-io.pc.in planex-io.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/planex-io.pc DESTINATION ${pkgconfig_dir})
endif()
