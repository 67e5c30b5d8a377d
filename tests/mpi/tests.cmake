# arbor-mpi against arbor: every output byte for byte with 1 to 4 ranks, on
# public sets, a synthetic set of a million rows made at test time, and a
# file with bad rows in the last rank's share; a rank killed or out of
# memory; and the refused options.
# Included by cmake/ArborMpi.cmake when MPI is found. A test whose data is
# absent reports why and is skipped (status 77).

set(ARBOR_MPI_TEST_DIR ${PROJECT_SOURCE_DIR}/tests/mpi)
set(ARBOR_MPI_WORK ${PROJECT_BINARY_DIR}/mpi-test)
set(ARBOR_MPI_RANKS "1 2 3 4")

# A wall clock that stands still for the programs' own code only: elapsed
# times in the log and the model then agree, while MPI keeps its real clock.
add_library(arbor_frozen_clock MODULE ${ARBOR_MPI_TEST_DIR}/frozen_clock.c)
target_link_libraries(arbor_frozen_clock PRIVATE ${CMAKE_DL_LIBS})
add_dependencies(arbor_tests arbor-mpi arbor_frozen_clock)
set(ARBOR_MPI_PROGRAMS $<TARGET_FILE:arbor> $<TARGET_FILE:arbor-mpi> $<TARGET_FILE:arbor_frozen_clock>)

# crx and adult have unknown values: their builds are gathered on rank 0.
foreach(set golf car letter kddcup10 crx adult)
  set(stem ${ARBOR_DATA_DIR}/${set}/${set})
  set(data ${stem}.data)
  if(NOT EXISTS ${data} AND EXISTS ${data}.gz)
    set(data ${data}.gz)
  endif()
  set(test_file)
  if(EXISTS ${stem}.test)
    set(test_file ${stem}.test)
  endif()
  add_test(NAME mpi.same_as_arbor.${set}
    COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/${set}
            ${ARBOR_MPI_RANKS} ${stem}.names ${data} ${test_file})
endforeach()

# Options other than the defaults: no pruning, another confidence and
# minimum, on a set with continuous attributes.
add_test(NAME mpi.same_as_arbor.letter_options
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/letter-options
          "2 3" ${ARBOR_DATA_DIR}/letter/letter.names ${ARBOR_DATA_DIR}/letter/letter.data -- -c 0.1 -m 5)
add_test(NAME mpi.same_as_arbor.car_unpruned
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/car-unpruned
          "3" ${ARBOR_DATA_DIR}/car/car.names ${ARBOR_DATA_DIR}/car/car.data -- -np)

# Threads per rank (-ff): each rank counts its rows on two threads.
add_test(NAME mpi.same_as_arbor.kddcup10_threads
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/kddcup10-threads
          "1 2" ${ARBOR_DATA_DIR}/kddcup10/kddcup10.names ${ARBOR_DATA_DIR}/kddcup10/kddcup10.data.gz -- -ff 2)
add_test(NAME mpi.same_as_arbor.letter_threads
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/letter-threads
          "3" ${ARBOR_DATA_DIR}/letter/letter.names ${ARBOR_DATA_DIR}/letter/letter.data -- -ff 2 -c4.5)

# The full pruning strategy, which every rank runs on the gathered
# combinations of what routing the cases reads.
add_test(NAME mpi.same_as_arbor.letter_c45
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/letter-c45
          "2 4" ${ARBOR_DATA_DIR}/letter/letter.names ${ARBOR_DATA_DIR}/letter/letter.data
          ${ARBOR_DATA_DIR}/letter/letter.test -- -c4.5)
add_test(NAME mpi.same_as_arbor.kddcup10_c45
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/kddcup10-c45
          "3" ${ARBOR_DATA_DIR}/kddcup10/kddcup10.names ${ARBOR_DATA_DIR}/kddcup10/kddcup10.data.gz -- -c4.5)
add_test(NAME mpi.same_as_arbor.car_c45_holdout
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/car-c45
          "1 3" ${ARBOR_DATA_DIR}/car/car.names ${ARBOR_DATA_DIR}/car/car.data -- -c4.5 -c 0.6 -hf 70)

# Test and score files read apart: byte ranges, gzip blocks dealt by rank
# 0 (kddcup10 makes many), bad rows in later shares, a missing file.
add_test(NAME mpi.same_as_arbor.car_test_files
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/test_files.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/car-files
          ${ARBOR_DATA_DIR}/car/car.names ${ARBOR_DATA_DIR}/car/car.data)
add_test(NAME mpi.same_as_arbor.kddcup10_gzip_files
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/kddcup10-files
          "3" ${ARBOR_DATA_DIR}/kddcup10/kddcup10.names ${ARBOR_DATA_DIR}/kddcup10/kddcup10.data.gz
          ${ARBOR_DATA_DIR}/kddcup10/kddcup10.data.gz)

# Hold-outs: the random one draws arbor's rows over all ranks' rows (the
# frozen clock gives both the same seed); golf's 0.5% trains on no row.
add_test(NAME mpi.same_as_arbor.letter_holdout
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/letter-holdout
          "2 4" ${ARBOR_DATA_DIR}/letter/letter.names ${ARBOR_DATA_DIR}/letter/letter.data -- -h 30)
add_test(NAME mpi.same_as_arbor.car_first_holdout
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/car-holdout
          "3" ${ARBOR_DATA_DIR}/car/car.names ${ARBOR_DATA_DIR}/car/car.data -- -hf 45)
add_test(NAME mpi.same_as_arbor.golf_empty_holdout
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/golf-holdout
          "2" ${ARBOR_DATA_DIR}/golf/golf.names ${ARBOR_DATA_DIR}/golf/golf.data -- -h 0.5)

# Fractional weights (crx and adult above: unknown values; a weights
# column here): rank 0 grows on the gathered rows, with threads, hold-outs
# and the full pruning strategy.
add_test(NAME mpi.same_as_arbor.adult_threads_holdout
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/adult-holdout
          "2 3" ${ARBOR_DATA_DIR}/adult/adult.names ${ARBOR_DATA_DIR}/adult/adult.data -- -h 30 -ff 2)
add_test(NAME mpi.same_as_arbor.crx_c45_holdout
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/compare.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/crx-c45
          "1 3" ${ARBOR_DATA_DIR}/crx/crx.names ${ARBOR_DATA_DIR}/crx/crx.data -- -c4.5 -hf 60)
add_test(NAME mpi.same_as_arbor.weighted_letter
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/weighted.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/weighted
          "1 2 4" ${ARBOR_DATA_DIR}/letter/letter.names ${ARBOR_DATA_DIR}/letter/letter.data -- -h 40 -c4.5)

add_test(NAME mpi.same_as_arbor.synthetic_1m
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/synthetic.sh ${ARBOR_DATA_DIR}/../tools/synth.py ${ARBOR_MPI_PROGRAMS}
          ${ARBOR_MPI_WORK}/synthetic ${ARBOR_MPI_RANKS})

add_test(NAME mpi.bad_row_in_last_share
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/bad_row.sh ${ARBOR_MPI_PROGRAMS} ${ARBOR_MPI_WORK}/bad-row ${ARBOR_MPI_RANKS}
          ${ARBOR_DATA_DIR}/car/car.names ${ARBOR_DATA_DIR}/car/car.data)

add_test(NAME mpi.killed_rank_ends_the_job
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/failing_rank.sh killed $<TARGET_FILE:arbor-mpi> ${ARBOR_MPI_WORK}/killed
          ${ARBOR_DATA_DIR}/kddcup10/kddcup10.names ${ARBOR_DATA_DIR}/kddcup10/kddcup10.data.gz)

add_test(NAME mpi.rank_out_of_memory_ends_the_job
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/failing_rank.sh oom $<TARGET_FILE:arbor-mpi> ${ARBOR_MPI_WORK}/oom
          ${ARBOR_DATA_DIR}/kddcup10/kddcup10.names ${ARBOR_DATA_DIR}/kddcup10/kddcup10.data.gz)

add_test(NAME mpi.refuses_table_binaries
  COMMAND sh ${ARBOR_MPI_TEST_DIR}/refused.sh $<TARGET_FILE:arbor-mpi> ${ARBOR_MPI_WORK}/refused
          ${ARBOR_DATA_DIR}/golf/golf.names ${ARBOR_DATA_DIR}/golf/golf.data)

set_tests_properties(
  mpi.same_as_arbor.golf mpi.same_as_arbor.car mpi.same_as_arbor.letter mpi.same_as_arbor.kddcup10
  mpi.same_as_arbor.letter_options mpi.same_as_arbor.car_unpruned mpi.same_as_arbor.synthetic_1m
  mpi.same_as_arbor.letter_holdout mpi.same_as_arbor.car_first_holdout mpi.same_as_arbor.golf_empty_holdout
  mpi.same_as_arbor.letter_c45 mpi.same_as_arbor.kddcup10_c45 mpi.same_as_arbor.car_c45_holdout
  mpi.same_as_arbor.car_test_files mpi.same_as_arbor.kddcup10_gzip_files
  mpi.same_as_arbor.crx mpi.same_as_arbor.adult mpi.same_as_arbor.adult_threads_holdout
  mpi.same_as_arbor.crx_c45_holdout mpi.same_as_arbor.weighted_letter
  mpi.same_as_arbor.kddcup10_threads mpi.same_as_arbor.letter_threads
  mpi.bad_row_in_last_share mpi.refuses_table_binaries mpi.killed_rank_ends_the_job
  mpi.rank_out_of_memory_ends_the_job
  PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 900 LABELS mpi)
