#!/bin/sh
# arbor-mpi on the 10-million-row synthetic set with K = 1, 2 and 4 ranks:
# wall time of each run (median of RUNS, default 1), each rank's rows and
# peak memory, and the bytes each rank sent while growing, by tree depth
# (with the number of open nodes at that depth), as the ranks report them
# with ARBOR_MPI_STATS set. arbor's own time and peak memory come first.
#
# Usage: ARBOR_SCALE=/work/scale bench/mpi.sh [BUILD_DIR]
#   RANKS="1 2 4"  the rank counts;  RUNS=3  runs of each, for a median
set -eu
here=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
build=${1:-$here/build}
scale=${ARBOR_SCALE:-/tmp/arbor-scale}
stem=$scale/syn10m
ranks=${RANKS:-1 2 4}
runs=${RUNS:-1}
data=$stem.data; [ -f "$data" ] || data=$data.gz
if [ ! -f "$stem.names" ] || [ ! -f "$data" ]; then
    echo "$stem.names or its data not found (make it with ../shared/tools/make_scaling_sets.sh)"
    exit 1
fi
[ -x "$build/arbor-mpi" ] || { echo "$build/arbor-mpi not built (MPI not found?)"; exit 1; }
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

echo "== arbor, $(basename "$data")"
/usr/bin/time -f "%e s, peak memory %M KiB" "$build/arbor" -fm "$stem.names" -fd "$data" -t "$out/text" 2>&1 | tail -1
tree=$(grep "TREE SIZE" "$out/text")
echo "   $tree"

for k in $ranks; do
    : > "$out/times"
    for r in $(seq "$runs"); do
        start=$(date +%s.%N)
        ARBOR_MPI_STATS=1 mpirun --oversubscribe --allow-run-as-root -np "$k" -x ARBOR_MPI_STATS \
            "$build/arbor-mpi" -fm "$stem.names" -fd "$data" -t "$out/text.$k" 2> "$out/stats.$k" > /dev/null
        awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { printf "%.1f\n", b - a }' >> "$out/times"
    done
    echo "== K = $k: $(median < "$out/times") s (median of $runs: $(tr '\n' ' ' < "$out/times"))"
    cmp -s "$out/text" "$out/text.$k" && echo "   text identical to arbor's" || echo "   text DIFFERS from arbor's"
    grep '^rank ' "$out/stats.$k" | sort | while read -r line; do
        echo "   ${line%%, by depth*}"
        echo "     by depth (bytes/open nodes):${line#*by depth (bytes/open nodes):}" | fold -w 100 | sed '2,$s/^/       /'
    done
done
