# `cpack`: all that is installed, in one folder that may lie anywhere, as planex-VERSION-SYSTEM-CPU.tar.gz.
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_NAME planex)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
string(TOLOWER planex-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}
               CPACK_PACKAGE_FILE_NAME)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_THREADS 0)
configure_file(cmake/complete_archive.cmake.in complete_archive.cmake @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_BINARY_DIR}/complete_archive.cmake)
include(CPack)
