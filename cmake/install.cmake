include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/planex)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(
  TARGETS planex
  EXPORT planexTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILE_SET generated_headers DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set(components)
foreach(component IN ITEMS io estimation acquisition)
  if(NOT TARGET planex_${component})
    continue()
  endif()
  list(APPEND components ${component})
  install(
    TARGETS planex_${component}
    EXPORT planex-${component}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(
    EXPORT planex-${component}Targets
    NAMESPACE planex::
    DESTINATION ${config_dir})
endforeach()
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
foreach(component IN LISTS components)
  configure_file(cmake/planex-${component}.pc.in planex-${component}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/planex-${component}.pc DESTINATION ${pkgconfig_dir})
endforeach()
