#!/bin/sh
# Compares the outputs (text, XML, DOT) of the sequential build with those
# of the parallel build on 1 and 2 workers, for the large data sets, and
# prints the build times. Timings aside, outputs must be identical wherever
# case weights stay whole.
#
# Usage: bench/parallel.sh [BUILD_DIR]    ($ARBOR_SCALE as in datasets.sh)
set -eu
here=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
arbor=${1:-$here/build}/arbor
data=$here/../shared/data
scale=${ARBOR_SCALE:-/tmp/arbor-scale}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

compare() { # name names-file data-file
    for n in 0 1 2; do
        ff=""; [ "$n" -gt 0 ] && ff="-ff $n"
        "$arbor" -fm "$2" -fd "$3" $ff -t "$out/$n.txt" -x "$out/$n.xml" -d "$out/$n.dot" -l "$out/$n.log" >/dev/null
    done
    verdict=identical
    for n in 1 2; do
        for f in txt xml dot; do cmp -s "$out/0.$f" "$out/$n.$f" || verdict="DIFFERENT ($f, $n workers)"; done
    done
    times=$(grep -h "size:" "$out/0.log" "$out/1.log" "$out/2.log" | sed 's/.*time:  \([^ ]*\) secs./\1/' | tr '\n' ' ')
    echo "$1: $verdict; build seconds (sequential, 1, 2 workers): $times"
    rm -f "$out"/*
}

compare kddcup10 "$data/kddcup10/kddcup10.names" "$data/kddcup10/kddcup10.data.gz"
for name in syn1m syn10m; do
    d=$scale/$name.data; [ -f "$d" ] || d=$d.gz
    [ -f "$scale/$name.names" ] && compare "$name" "$scale/$name.names" "$d"
done
