#!/bin/sh
# Runs arbor and then arbor-mpi with K ranks for each K given on one data
# set, with the same options, and compares every output byte for byte:
# standard output, text, XML, DOT, log, score file and the binary model
# (uncompressed). Both run with a wall clock that stands still for their
# own code (frozen_clock.c), so the elapsed times they print agree.
#
# Usage: compare.sh ARBOR ARBOR_MPI FROZEN_CLOCK WORK "K..." NAMES DATA [TEST] [-- OPTIONS...]
# Exits 0 when every output is identical, 1 otherwise, 77 (skipped) when
# the data set is absent.
set -u
arbor=$1 mpi=$2 frozen=$3 work=$4 ranks=$5 names=$6 data=$7
shift 7
test_file=""
if [ $# -gt 0 ] && [ "$1" != "--" ]; then test_file=$1; shift; fi
[ $# -gt 0 ] && [ "$1" = "--" ] && shift
if [ ! -f "$names" ] || [ ! -f "$data" ]; then
    echo "skipped: $data or $names not found"
    exit 77
fi
rm -rf "$work"
mkdir -p "$work"
files=""
[ -n "$test_file" ] && files="-ft $test_file -fs $test_file"

# run DIR COMMAND...: every output of one run into DIR.
run() {
    dir=$1; shift
    mkdir -p "$dir"
    "$@" -fm "$names" -fd "$data" $files -tb "$dir/model" -t "$dir/text" -x "$dir/xml" -d "$dir/dot" \
        -l "$dir/log" -s "$dir/score" > "$dir/stdout" 2> "$dir/stderr"
    echo $? > "$dir/status"
}

run "$work/arbor" env LD_PRELOAD="$frozen" "$arbor" "$@"
failures=0
for k in $ranks; do
    run "$work/k$k" timeout 600 mpirun --oversubscribe --allow-run-as-root -np "$k" -x LD_PRELOAD="$frozen" \
        "$mpi" "$@"
    for f in status stdout text xml dot log score; do
        [ -f "$work/arbor/$f" ] || [ -f "$work/k$k/$f" ] || continue
        if ! cmp -s "$work/arbor/$f" "$work/k$k/$f"; then
            echo "K=$k: $f differs from arbor's"
            failures=$((failures + 1))
        fi
    done
    if [ -f "$work/arbor/model" ] || [ -f "$work/k$k/model" ]; then
        a=$(gzip -dc "$work/arbor/model" 2>/dev/null | sha256sum) m=$(gzip -dc "$work/k$k/model" 2>/dev/null | sha256sum)
        [ "$a" = "$m" ] || { echo "K=$k: model differs from arbor's"; failures=$((failures + 1)); }
    fi
    leftover=$(find "$work/k$k" -name '*.part*')
    [ -z "$leftover" ] || { echo "K=$k: temporary files left: $leftover"; failures=$((failures + 1)); }
    [ "$(cat "$work/k$k/status")" = 0 ] || sed 's/^/  /' "$work/k$k/stderr" | tail -20
done
if [ $failures -gt 0 ]; then
    echo "$failures outputs differ (kept in $work)"
    exit 1
fi
echo "all outputs identical to arbor's for K = $ranks"
