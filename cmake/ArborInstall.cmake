# Installation: the commands, the sylva library (static, or shared with
# BUILD_SHARED_LIBS), its public headers, a CMake package exporting
# sylva::sylva, a pkg-config file and the manual pages.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

option(ARBOR_INSTALL "Generate the install rules" ON)
if(NOT ARBOR_INSTALL)
  return()
endif()

set_target_properties(sylva PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
if(BUILD_SHARED_LIBS)
  # Installed commands find the library beside them, wherever the prefix.
  file(RELATIVE_PATH ARBOR_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(arbor arbor-import PROPERTIES INSTALL_RPATH "\$ORIGIN/${ARBOR_BIN_TO_LIB}")
endif()

install(TARGETS sylva EXPORT sylvaTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS arbor arbor-import RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/sylva/sylva.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sylva)
install(FILES ${PROJECT_SOURCE_DIR}/tarn/util/progress.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarn/util)
install(FILES ${PROJECT_SOURCE_DIR}/doc/arbor.1 ${PROJECT_SOURCE_DIR}/doc/arbor-import.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

set(ARBOR_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/sylva)
install(EXPORT sylvaTargets NAMESPACE sylva:: DESTINATION ${ARBOR_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/sylvaConfig.cmake.in
  ${PROJECT_BINARY_DIR}/sylvaConfig.cmake INSTALL_DESTINATION ${ARBOR_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/sylvaConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sylvaConfig.cmake ${PROJECT_BINARY_DIR}/sylvaConfigVersion.cmake
        DESTINATION ${ARBOR_PACKAGE_DIR})

# The .pc file finds the prefix from its own place, so that it stays right
# for any --prefix given at install time. A static library brings its
# dependencies into Libs, as users of pkg-config rarely pass --static.
set(ARBOR_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${ARBOR_PC_DIR}")
  set(ARBOR_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH ARBOR_PC_UP "/p/${ARBOR_PC_DIR}" "/p")
  string(REGEX REPLACE "/$" "" ARBOR_PC_UP "${ARBOR_PC_UP}")
  set(ARBOR_PC_PREFIX "\${pcfiledir}/${ARBOR_PC_UP}")
endif()
if(BUILD_SHARED_LIBS)
  set(ARBOR_PC_REQUIRES "Requires.private: zlib")
  set(ARBOR_PC_LIBS "Libs: -L\${libdir} -lsylva\nLibs.private: -pthread")
else()
  set(ARBOR_PC_REQUIRES "Requires: zlib")
  set(ARBOR_PC_LIBS "Libs: -L\${libdir} -lsylva -pthread")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/sylva.pc.in ${PROJECT_BINARY_DIR}/sylva.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sylva.pc DESTINATION ${ARBOR_PC_DIR})
