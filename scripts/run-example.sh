#!/bin/sh
# Builds arbor (Release) and grows, prunes and prints a tree for the bundled
# 14-row example, with its log.
set -e
cd "$(dirname "$0")/.."
ARBOR_PACKAGES="cmake g++ zlib1g-dev libfast-float-dev libgtest-dev libbenchmark-dev"
. scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j2 --target arbor
./build/arbor -f examples/golf -tstd -lstd
