#!/bin/sh
# Byte-for-byte check of arbor's outputs against recorded checksums.
#
# Runs every data set of ../shared/data and the synthetic sets of
# $ARBOR_SCALE (syn1m, syn1m-f9-missing, syn10m; default /tmp/arbor-scale,
# made by ../shared/tools/make_scaling_sets.sh) with default options, -c4.5,
# -np and -ff 2, and compares the text, XML and DOT outputs, the score file,
# the log, the binary model and, for the default run, the binary table, with
# the checksums in bench/exactness.sha256. Elapsed times are the only figures
# that vary between runs (in the log and in the time fields of the binary
# files), so arbor runs with a wall clock that stands still: a preloaded
# gettimeofday that always answers the same instant. The checksums were recorded with the build that
# preceded the loading and growth engines, so every line must read identical.
#
# Usage: bench/exactness.sh [-r|--record] [-o OPTS] [-s SETS] [BUILD_DIR]
#   --record   write the checksums instead of comparing
#   -o OPTS    option sets to run, e.g. "default -ff2" (default: all four)
#   -s SETS    data sets to run, e.g. "golf syn1m" (default: all present)
set -eu
here=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
record=0 opts="default -c4.5 -np -ff2" sets=""
while [ $# -gt 0 ]; do
    case $1 in
        -r|--record) record=1 ;;
        -o) opts=$2; shift ;;
        -s) sets=$2; shift ;;
        *) break ;;
    esac
    shift
done
build=${1:-$here/build}
arbor=$build/arbor
sums=$here/bench/exactness.sha256
data=$here/../shared/data
scale=${ARBOR_SCALE:-/tmp/arbor-scale}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
[ $record = 1 ] && : > "$out/new.sha256"
failures=0

sum() { sha256sum | cut -d' ' -f1; }

printf '%s\n' '#include <sys/time.h>' \
    'int gettimeofday(struct timeval* tv, void* tz) {' \
    '  (void)tz;' \
    '  if (tv) { tv->tv_sec = 1000000000; tv->tv_usec = 0; }' \
    '  return 0;' \
    '}' > "$out/frozen.c"
cc -shared -fPIC -O2 -o "$out/frozen.so" "$out/frozen.c"

# The model file is gzip-compressed: its bytes are compared uncompressed.
model_sum() { gzip -dc "$1" | sum; }
log_sum() { sum < "$1"; }

check() { # set option kind checksum
    if [ $record = 1 ]; then
        echo "$1 $2 $3 $4" >> "$out/new.sha256"
        return
    fi
    want=$(awk -v s="$1" -v o="$2" -v k="$3" '$1 == s && $2 == o && $3 == k { print $4 }' "$sums")
    if [ -z "$want" ]; then
        echo "  $3: no recorded checksum"; failures=$((failures + 1))
    elif [ "$want" != "$4" ]; then
        echo "  $3: DIFFERENT"; failures=$((failures + 1))
    fi
}

run() { # set names data test
    name=$1 names=$2 file=$3 test=$4
    for o in $opts; do
        case $o in
            default) flags="" ;;
            -ff2) flags="-ff 2" ;;
            *) flags=$o ;;
        esac
        tf="" sf=""
        [ -n "$test" ] && tf="-ft $test" && sf="-fs $test -s $out/score"
        db=""; [ "$o" = default ] && db="-db $out/table.bin"
        before=$failures
        start=$(date +%s)
        LD_PRELOAD=$out/frozen.so "$arbor" -fm "$names" -fd "$file" $tf $sf $flags $db -tb "$out/model.bin" \
            -t "$out/text" -x "$out/xml" -d "$out/dot" -l "$out/log" > "$out/stdout"
        secs=$(( $(date +%s) - start ))
        check "$name" "$o" stdout "$(sum < "$out/stdout")"
        check "$name" "$o" text "$(sum < "$out/text")"
        check "$name" "$o" xml "$(sum < "$out/xml")"
        check "$name" "$o" dot "$(sum < "$out/dot")"
        check "$name" "$o" log "$(log_sum "$out/log")"
        check "$name" "$o" model "$(model_sum "$out/model.bin")"
        [ -n "$test" ] && check "$name" "$o" score "$(sum < "$out/score")"
        [ -n "$db" ] && check "$name" "$o" table "$(sum < "$out/table.bin")"
        if [ $record = 0 ]; then
            verdict=identical; [ $failures -gt $before ] && verdict=DIFFERENT
            printf '%-18s %-8s %-10s (%s s)\n' "$name" "$o" "$verdict" "$secs"
        fi
        rm -f "$out/stdout" "$out/text" "$out/xml" "$out/dot" "$out/log" "$out/model.bin" "$out/score" "$out/table.bin"
    done
}

wanted() { [ -z "$sets" ] || case " $sets " in *" $1 "*) true ;; *) false ;; esac; }

for name in golf iris vote car crx mushroom nursery adult letter covtype-10k kddcup10; do
    stem=$data/$name/$name
    [ -f "$stem.names" ] && wanted "$name" || continue
    d=$stem.data; [ -f "$d" ] || d=$stem.data.gz
    t=""; [ -f "$stem.test" ] && t=$stem.test
    run "$name" "$stem.names" "$d" "$t"
done
for name in syn1m syn1m-f9-missing syn10m; do
    stem=$scale/$name
    if [ ! -f "$stem.names" ]; then
        wanted "$name" && echo "$name: not found in $scale (make it with make_scaling_sets.sh), skipped"
        continue
    fi
    wanted "$name" || continue
    d=$stem.data; [ -f "$d" ] || d=$stem.data.gz
    t=$stem.test; [ -f "$t" ] || t=$t.gz
    run "$name" "$stem.names" "$d" "$t"
done

if [ $record = 1 ]; then
    # Recorded lines replace those of the same set, option and kind.
    touch "$sums"
    awk 'NR == FNR { seen[$1 " " $2 " " $3] = 1; print; next } !(($1 " " $2 " " $3) in seen)' \
        "$out/new.sha256" "$sums" | sort > "$out/merged"
    cp "$out/merged" "$sums"
    echo "recorded $(wc -l < "$out/new.sha256") checksums in $sums"
elif [ $failures -gt 0 ]; then
    echo "$failures outputs differ"
    exit 1
else
    echo "all outputs identical"
fi
