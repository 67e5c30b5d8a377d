#!/bin/sh
# A training file whose first bad row lies in the share of the last rank
# for every K up to 4 (past seven eighths of the file), with a second bad
# row after it: arbor-mpi must report the first with its row number in the
# file, as arbor does, and leave the same outputs (the log's counters
# included); plain (byte ranges) and gzip-compressed (rows dealt by rank 0).
#
# Usage: bad_row.sh ARBOR ARBOR_MPI FROZEN_CLOCK WORK "K..." NAMES DATA
set -u
arbor=$1 mpi=$2 frozen=$3 work=$4 ranks=$5 names=$6 data=$7
if [ ! -f "$data" ]; then echo "skipped: $data not found"; exit 77; fi
mkdir -p "$work"
rows=$(wc -l < "$data")
first=$((rows * 7 / 8))
bad=$work/bad.data
awk -v a="$first" -v b="$((first + 5))" \
    'NR == a { print "not,a,row" } NR == b { print "vhigh,vhigh,2,2,small,low,unknown-class" } { print }' \
    "$data" > "$bad"
gzip -c "$bad" > "$bad.gz"
"$(dirname "$0")/compare.sh" "$arbor" "$mpi" "$frozen" "$work/runs" "$ranks" "$names" "$bad" || exit 1
grep -q "(row $first)" "$work/runs/arbor/stdout" || { echo "arbor did not report row $first:"; cat "$work/runs/arbor/stdout"; exit 1; }
"$(dirname "$0")/compare.sh" "$arbor" "$mpi" "$frozen" "$work/gzip" "$ranks" "$names" "$bad.gz" || exit 1
