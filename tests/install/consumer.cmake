# Installs the build BUILD of the source tree SOURCE into a scratch prefix
# under WORK and builds examples/consumer against it: as a CMake package
# (find_package) and through pkg-config. Then builds the consumer with the
# source tree as a subproject and a shared library, installs that build and
# uses the shared package. Every consumer must print the golf tree exactly
# as arbor prints it.
cmake_minimum_required(VERSION 3.16)

set(golf ${SOURCE}/examples/golf)
set(consumer ${SOURCE}/examples/consumer)
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    string(REPLACE ";" " " line "${ARGV}")
    message(FATAL_ERROR "failed (${rc}): ${line}\n${out}${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

function(expect_file path)
  if(NOT EXISTS ${path})
    message(FATAL_ERROR "not installed: ${path}")
  endif()
endfunction()

# The one file matching `pattern` under `dir`, in `var`.
function(find_one var dir pattern)
  file(GLOB_RECURSE found ${dir}/${pattern})
  list(LENGTH found n)
  if(NOT n EQUAL 1)
    message(FATAL_ERROR "expected one ${pattern} under ${dir}, found: ${found}")
  endif()
  set(${var} ${found} PARENT_SCOPE)
endfunction()

# The tree text is what arbor's text report ends with.
run(${BUILD}/arbor -f ${golf} -tstd)
string(FIND "${run_output}" "Decision Tree\n\n" at)
if(at LESS 0)
  message(FATAL_ERROR "arbor printed no tree:\n${run_output}")
endif()
math(EXPR at "${at} + 15")
string(SUBSTRING "${run_output}" ${at} -1 expected_tree)

function(expect_golf_tree program)
  run(${program} ${golf})
  if(NOT run_output STREQUAL expected_tree)
    message(FATAL_ERROR "${program} printed:\n${run_output}\ninstead of:\n${expected_tree}")
  endif()
  message(STATUS "${program}: the golf tree")
endfunction()

# 1. Static library, installed.
set(static ${WORK}/static)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${static})
foreach(f bin/arbor bin/arbor-import include/sylva/sylva.h include/tarn/util/progress.h
          share/man/man1/arbor.1 share/man/man1/arbor-import.1)
  expect_file(${static}/${f})
endforeach()
find_one(library ${static} libsylva.a)
find_one(config ${static} sylvaConfig.cmake)
find_one(version ${static} sylvaConfigVersion.cmake)
find_one(pc ${static} sylva.pc)

# 2. find_package(sylva) against the installed prefix.
run(${CMAKE_COMMAND} -S ${consumer} -B ${WORK}/by-package -DCMAKE_PREFIX_PATH=${static}
    -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${WORK}/by-package)
expect_golf_tree(${WORK}/by-package/consumer)

# 3. pkg-config, with the compiler called by hand.
find_program(PKG_CONFIG NAMES pkg-config pkgconf)
if(NOT PKG_CONFIG)
  message(FATAL_ERROR "pkg-config is needed to test sylva.pc")
endif()
get_filename_component(pc_dir ${pc} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
run(${PKG_CONFIG} --cflags --libs sylva)
separate_arguments(flags UNIX_COMMAND "${run_output}")
run(${CXX} -std=c++17 ${consumer}/main.cpp ${flags} -o ${WORK}/by-pkg-config)
expect_golf_tree(${WORK}/by-pkg-config)

# 4. The source tree as a subproject, shared library; its tests and
# benchmarks stay off. No build type: the fastest compile.
set(subproject ${WORK}/by-source)
run(${CMAKE_COMMAND} -S ${consumer} -B ${subproject} -DSYLVA_SOURCE_DIR=${SOURCE} -DBUILD_SHARED_LIBS=ON
    -DCMAKE_CXX_COMPILER=${CXX})
file(STRINGS ${subproject}/CMakeCache.txt off REGEX "^ARBOR_BUILD_(TESTS|BENCH):BOOL=OFF$")
list(LENGTH off n)
if(NOT n EQUAL 2)
  message(FATAL_ERROR "as a subproject, tests and benchmarks must be off: ${off}")
endif()
run(${CMAKE_COMMAND} --build ${subproject} -j2)
expect_golf_tree(${subproject}/consumer)

# 5. That build installed: the shared package, and commands that find the
# library they were linked with.
set(shared ${WORK}/shared)
run(${CMAKE_COMMAND} --install ${subproject} --prefix ${shared})
find_one(library ${shared} libsylva.so)
run(${CMAKE_COMMAND} -S ${consumer} -B ${WORK}/by-shared-package -DCMAKE_PREFIX_PATH=${shared}
    -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${WORK}/by-shared-package)
expect_golf_tree(${WORK}/by-shared-package/consumer)
run(${shared}/bin/arbor -f ${golf} -tstd)
string(FIND "${run_output}" "${expected_tree}" at)
if(at LESS 0)
  message(FATAL_ERROR "the installed shared arbor printed:\n${run_output}")
endif()

file(REMOVE_RECURSE ${WORK})
