#!/bin/sh
# The comparison on a synthetic set of 1,000,000 rows (and a test file of
# 10,000), generated once into WORK by the project's generator.
#
# Usage: synthetic.sh SYNTH_PY ARBOR ARBOR_MPI FROZEN_CLOCK WORK "K..."
set -u
synth=$1 arbor=$2 mpi=$3 frozen=$4 work=$5 ranks=$6
python=/usr/bin/python3
if [ ! -f "$synth" ]; then echo "skipped: the generator $synth is absent"; exit 77; fi
if [ ! -x "$python" ]; then echo "skipped: $python is absent"; exit 77; fi
set=$work/data
if [ ! -f "$set/syn1m.test" ]; then
    mkdir -p "$set"
    "$python" "$synth" --rows 1M --test-rows 10000 --seed 1 --out "$set" --name syn1m --quiet || exit 1
fi
exec "$(dirname "$0")/compare.sh" "$arbor" "$mpi" "$frozen" "$work/runs" "$ranks" \
    "$set/syn1m.names" "$set/syn1m.data" "$set/syn1m.test"
