# arbor-import, and the driver helpers it shares with arbor and the tests:
# the readers of the formats users hold their data in, and the live
# progress line.

add_library(arbor_cli STATIC
  ${PROJECT_SOURCE_DIR}/cmd/import_common.cpp
  ${PROJECT_SOURCE_DIR}/cmd/import_csv.cpp
  ${PROJECT_SOURCE_DIR}/cmd/import_c45.cpp
  ${PROJECT_SOURCE_DIR}/cmd/import_arff.cpp
  ${PROJECT_SOURCE_DIR}/cmd/import_convert.cpp
  ${PROJECT_SOURCE_DIR}/cmd/progress_line.cpp)
target_compile_options(arbor_cli PRIVATE ${ARBOR_COMPILE_OPTIONS})
target_link_libraries(arbor_cli PUBLIC sylva)

add_executable(arbor-import ${PROJECT_SOURCE_DIR}/cmd/arbor_import.cpp)
target_compile_options(arbor-import PRIVATE ${ARBOR_COMPILE_OPTIONS})
target_link_libraries(arbor-import PRIVATE arbor_cli)

# arbor's driver makes the progress line on standard error.
target_link_libraries(arbor PRIVATE arbor_cli)

if(ARBOR_BUILD_TESTS)
  target_link_libraries(arbor_tests PRIVATE arbor_cli)
  target_compile_definitions(arbor_tests PRIVATE ARBOR_IMPORT_EXE="$<TARGET_FILE:arbor-import>")
  add_dependencies(arbor_tests arbor-import)

  # The manual pages render without a single groff warning.
  find_program(ARBOR_GROFF groff)
  if(ARBOR_GROFF)
    add_test(NAME man.groff_warnings
      COMMAND ${CMAKE_COMMAND} -DGROFF=${ARBOR_GROFF}
              "-DPAGES=${PROJECT_SOURCE_DIR}/doc/arbor.1;${PROJECT_SOURCE_DIR}/doc/arbor-import.1"
              -P ${PROJECT_SOURCE_DIR}/tests/doc/check_man.cmake)
  else()
    message(STATUS "groff not found: the manual pages are not checked")
  endif()

  # Installs into a scratch prefix and builds the example consumer against
  # it (CMake package and pkg-config), then as a subproject with a shared
  # library. A sanitizer build is not installable for outside programs.
  if(NOT ARBOR_SANITIZE)
    add_test(NAME install.consumer
      COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR} -DSOURCE=${PROJECT_SOURCE_DIR}
              -DWORK=${PROJECT_BINARY_DIR}/install-test -DCXX=${CMAKE_CXX_COMPILER}
              -P ${PROJECT_SOURCE_DIR}/tests/install/consumer.cmake)
    set_tests_properties(install.consumer PROPERTIES TIMEOUT 1200)
  endif()
endif()
