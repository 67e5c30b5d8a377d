#!/bin/sh
# Runs arbor on every data set with each pruning strategy and prints, per
# run: tree size, depth, training and test misclassification, build time.
#
# Usage: bench/datasets.sh [BUILD_DIR] [extra arbor options, e.g. -ff 2]
# Data sets come from ../shared/data, plus the synthetic sets of
# $ARBOR_SCALE (default /tmp/arbor-scale) when present.
set -eu
here=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
build=${1:-$here/build}
[ $# -gt 0 ] && shift
extra="$*"
arbor=$build/arbor
data=$here/../shared/data
scale=${ARBOR_SCALE:-/tmp/arbor-scale}

run() { # name stem data-file test-file
    name=$1 stem=$2 file=$3 test=$4
    for p in default -c4.5 -np; do
        opt=$p; [ "$p" = default ] && opt=""
        tf=""; [ -n "$test" ] && tf="-ft $test"
        out=$("$arbor" -fm "$stem.names" -fd "$file" $tf $opt $extra -tstd -lstd 2>&1) || true
        line=$(echo "$out" | sed -n 's/^ size:  \([0-9]*\) depth: \([0-9]*\) time:  \([^ ]*\) secs\./\1 \2 \3/p')
        size=$(echo "$line" | cut -d' ' -f1) depth=$(echo "$line" | cut -d' ' -f2) secs=$(echo "$line" | cut -d' ' -f3)
        train=$(echo "$out" | sed -n 's/^MISCLASSIFICATION on training: \([^%]*\)%.*/\1/p')
        tst=$(echo "$out" | sed -n 's/^MISCLASSIFICATION on test file: \([^%]*\)%.*/\1/p')
        printf '%-18s %-8s size %6s depth %3s  train %8s%%  test %8s%%  build %s s\n' \
            "$name" "$p" "${size:-?}" "${depth:-?}" "${train:-?}" "${tst:--}" "${secs:-?}"
    done
}

for name in golf iris vote car crx mushroom nursery adult letter covtype-10k kddcup10; do
    stem=$data/$name/$name
    [ -f "$stem.names" ] || continue
    d=$stem.data; [ -f "$d" ] || d=$stem.data.gz
    t=""; [ -f "$stem.test" ] && t=$stem.test
    run "$name" "$stem" "$d" "$t"
done
for name in syn1m syn1m-f9-missing; do
    stem=$scale/$name
    [ -f "$stem.names" ] && run "$name" "$stem" "$stem.data" "$stem.test"
done
