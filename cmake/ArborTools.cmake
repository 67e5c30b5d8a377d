# Driver helpers shared by the commands and the tests: the live progress
# line.

add_library(arbor_cli STATIC
  ${PROJECT_SOURCE_DIR}/cmd/progress_line.cpp)
target_compile_options(arbor_cli PRIVATE ${ARBOR_COMPILE_OPTIONS})
target_link_libraries(arbor_cli PUBLIC sylva)

# arbor's driver makes the progress line on standard error.
target_link_libraries(arbor PRIVATE arbor_cli)

if(ARBOR_BUILD_TESTS)
  target_link_libraries(arbor_tests PRIVATE arbor_cli)
endif()
