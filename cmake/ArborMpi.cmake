# arbor-mpi: one tree grown by the ranks of an MPI job. The distributed
# table, growth and evaluation (sylva/impls/dist_*) build into libraries of
# their own, so that the sylva library keeps no MPI dependency: the parts
# that make no MPI call (the composition of range scans, exact sums, cutting
# files into shares) into sylva_dist_core, which the test program links too;
# the rest into sylva_dist, built with arbor-mpi when MPI is found.

set(ARBOR_DIST_DIR ${PROJECT_SOURCE_DIR}/sylva/impls)
add_library(sylva_dist_core STATIC
  ${ARBOR_DIST_DIR}/dist_scan.cpp)
target_compile_options(sylva_dist_core PRIVATE ${ARBOR_COMPILE_OPTIONS})
target_link_libraries(sylva_dist_core PUBLIC sylva)
if(ARBOR_BUILD_TESTS)
  target_link_libraries(arbor_tests PRIVATE sylva_dist_core)
endif()

find_package(MPI COMPONENTS CXX QUIET)
if(MPI_CXX_FOUND)
  add_library(sylva_dist STATIC
    ${ARBOR_DIST_DIR}/dist_comm.cpp
    ${ARBOR_DIST_DIR}/dist_table.cpp
    ${ARBOR_DIST_DIR}/dist_grow.cpp
    ${ARBOR_DIST_DIR}/dist_runs.cpp
    ${ARBOR_DIST_DIR}/dist_build.cpp
    ${ARBOR_DIST_DIR}/dist_gather.cpp
    ${ARBOR_DIST_DIR}/dist_prune.cpp
    ${ARBOR_DIST_DIR}/dist_text.cpp
    ${ARBOR_DIST_DIR}/dist_eval.cpp)
  target_compile_options(sylva_dist PRIVATE ${ARBOR_COMPILE_OPTIONS})
  target_link_libraries(sylva_dist PUBLIC sylva_dist_core sylva MPI::MPI_CXX)

  add_executable(arbor-mpi ${PROJECT_SOURCE_DIR}/cmd/arbor_mpi.cpp ${PROJECT_SOURCE_DIR}/cmd/options.cpp
                           ${PROJECT_SOURCE_DIR}/cmd/steps.cpp)
  target_compile_options(arbor-mpi PRIVATE ${ARBOR_COMPILE_OPTIONS})
  target_link_libraries(arbor-mpi PRIVATE sylva_dist)
  if(ARBOR_BUILD_TESTS AND ARBOR_SANITIZE)
    # Open MPI's own allocations at exit read as leaks under the sanitizers,
    # and its progress threads as races: the comparisons run in the plain
    # build of the test command.
    add_test(NAME mpi.not_sanitized
      COMMAND sh -c "echo 'skipped: arbor-mpi is compared with arbor in the build without sanitizers'; exit 77")
    set_tests_properties(mpi.not_sanitized PROPERTIES SKIP_RETURN_CODE 77)
  elseif(ARBOR_BUILD_TESTS)
    include(${PROJECT_SOURCE_DIR}/tests/mpi/tests.cmake)
  endif()
else()
  message(STATUS "MPI not found: arbor-mpi is not built")
  if(ARBOR_BUILD_TESTS)
    add_test(NAME mpi.not_built COMMAND sh -c "echo 'skipped: MPI was not found (install libopenmpi-dev and openmpi-bin)'; exit 77")
    set_tests_properties(mpi.not_built PROPERTIES SKIP_RETURN_CODE 77)
  endif()
endif()
