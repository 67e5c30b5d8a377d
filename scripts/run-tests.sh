#!/bin/sh
# Builds everything (Release) and runs the whole test suite. The XML and DOT
# outputs are checked with xmllint and Graphviz, installed here too.
set -e
cd "$(dirname "$0")/.."
ARBOR_PACKAGES="cmake g++ zlib1g-dev libgtest-dev libbenchmark-dev libxml2-utils graphviz"
. scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j2
ctest --test-dir build --output-on-failure -j2
