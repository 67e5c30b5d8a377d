#!/bin/sh
# Builds everything (Release) and runs the whole test suite; then builds it
# again with clang under AddressSanitizer and UndefinedBehaviorSanitizer,
# runs the whole test suite with it and each fuzz target for a fixed number
# of inputs over its seed corpus; then builds the test program under
# ThreadSanitizer and runs the task-farm, parallel-build, parallel-loading
# and whole-weight growth tests, and a parallel build of a medium data set,
# with it. The XML and DOT outputs are checked with xmllint and Graphviz, the
# manual pages with groff, the installed sylva.pc with pkg-config, and the
# Python package with Debian's Python packages: all installed here too.
set -e
cd "$(dirname "$0")/.."
ARBOR_PACKAGES="cmake g++ clang libclang-rt-dev zlib1g-dev libfast-float-dev libgtest-dev libbenchmark-dev libxml2-utils graphviz groff-base pkg-config"
# The Python package and its tests, for Debian's /usr/bin/python3.
ARBOR_PACKAGES="$ARBOR_PACKAGES python3-dev pybind11-dev python3-pybind11 python3-numpy python3-pandas python3-sklearn python3-pytest"
# Open MPI, for arbor-mpi and its comparisons with arbor (tests/mpi).
ARBOR_PACKAGES="$ARBOR_PACKAGES libopenmpi-dev openmpi-bin"
. scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j2
ctest --test-dir build --output-on-failure -j2

echo "== AddressSanitizer and UndefinedBehaviorSanitizer: whole test suite and fuzz targets"
CC=clang CXX=clang++ cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DARBOR_SANITIZE=address,undefined \
  -DARBOR_FUZZ=ON -DARBOR_BUILD_BENCH=OFF >/dev/null
cmake --build build-asan -j2
ctest --test-dir build-asan --output-on-failure -j2
FUZZ_BUILD=build-asan FUZZ_RUNS=3000 sh fuzz/run.sh

echo "== ThreadSanitizer: task farm, parallel build, parallel loading, whole-weight growth"
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DARBOR_SANITIZE=thread -DARBOR_BUILD_BENCH=OFF >/dev/null
cmake --build build-tsan -j2 --target arbor_tests arbor
export TSAN_OPTIONS="halt_on_error=1 exitcode=66"
./build-tsan/arbor_tests --gtest_filter='Ff*:Parallel*:LoadPasses*:ChunkSource*:TableLoad.Same*:TableLoad.Gzip*:TableLoad.TheFirst*:GrowWhole.SameTrees*'
adult=../shared/data/adult/adult
if [ -f "$adult.names" ]; then
  # As many workers as the machine allows, at most two.
  workers=$(nproc); [ "$workers" -gt 2 ] && workers=2
  ./build-tsan/arbor -f "$adult" -ff "$workers" -lstd >/dev/null
  echo "parallel build of adult on $workers workers: no race reported"
fi
