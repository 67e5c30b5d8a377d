#!/bin/sh
# The test and score files read apart by the ranks: plain files cut into
# byte ranges, gzip files dealt by rank 0, each with a bad row in a later
# rank's share (arbor's message, the scores before it written), and a test
# file that does not exist. Every output is compared with arbor's.
#
# Usage: test_files.sh ARBOR ARBOR_MPI FROZEN_CLOCK WORK NAMES DATA
set -u
arbor=$1 mpi=$2 frozen=$3 work=$4 names=$5 data=$6
if [ ! -f "$data" ]; then echo "skipped: $data not found"; exit 77; fi
compare="$(dirname "$0")/compare.sh"
rm -rf "$work"
mkdir -p "$work"
rows=$(wc -l < "$data")
bad=$work/bad.data
awk -v a="$((rows * 3 / 4))" 'NR == a { print "not,a,row" } { print }' "$data" > "$bad"
gzip -c "$data" > "$work/good.data.gz"
gzip -c "$bad" > "$work/bad.data.gz"
failures=0
check() { # name ranks options...
    name=$1 ranks=$2
    shift 2
    echo "== $name"
    "$compare" "$arbor" "$mpi" "$frozen" "$work/$name" "$ranks" "$names" "$data" -- "$@" || failures=$((failures + 1))
}
check gzip "2 3" -ft "$work/good.data.gz" -fs "$work/good.data.gz"
check bad-test "3" -ft "$bad"
check bad-score "4" -fs "$bad"
check bad-gzip-score "2" -ft "$data" -fs "$work/bad.data.gz"
check bad-gzip-test "3" -ft "$work/bad.data.gz" -fs "$data"
check missing-test "2" -ft "$work/no-such-file" -fs "$data"
grep -q "bad row format" "$work/bad-test/arbor/stdout" || { echo "arbor met no bad row"; failures=$((failures + 1)); }
[ $failures = 0 ]
