#!/bin/sh
# The comparison on a set whose rows carry fractional weights: letter with
# a weights column appended (a quarter to two in steps of a quarter, by
# row), so that every sum of the build is a float sum whose order matters.
#
# Usage: weighted.sh ARBOR ARBOR_MPI FROZEN_CLOCK WORK "K..." NAMES DATA [-- OPTIONS...]
set -u
arbor=$1 mpi=$2 frozen=$3 work=$4 ranks=$5 names=$6 data=$7
shift 7
if [ ! -f "$names" ] || [ ! -f "$data" ]; then
    echo "skipped: $data or $names not found"
    exit 77
fi
set=$work/data
mkdir -p "$set"
{ cat "$names"; echo "w,float,weights"; } > "$set/weighted.names"
awk '{ printf "%s,%.2f\n", $0, 0.25 * (1 + NR % 8) }' "$data" > "$set/weighted.data"
exec "$(dirname "$0")/compare.sh" "$arbor" "$mpi" "$frozen" "$work/runs" "$ranks" \
    "$set/weighted.names" "$set/weighted.data" "$@"
