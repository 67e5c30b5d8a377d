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
endif()
