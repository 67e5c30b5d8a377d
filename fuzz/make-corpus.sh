#!/bin/sh
# Rebuilds the seed corpora of fuzz/corpus/ from the first rows of the
# public data sets and a few hand-written files. Each seed starts with the
# control bytes its target reads first (see the comment at the top of each
# target). Needs a built arbor for the binary tables and models.
#
# Usage: fuzz/make-corpus.sh [BUILD_DIR]   (default: build)
set -eu
here=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
arbor=${1:-$here/build}/arbor
data=$here/../shared/data
corpus=$here/fuzz/corpus
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
rm -rf "$corpus"

# seed TARGET NAME CONTROL FILE...: the control bytes (printf escapes),
# then the files.
seed() {
    target=$1 name=$2 control=$3
    shift 3
    mkdir -p "$corpus/$target"
    { printf "$control"; cat "$@"; } > "$corpus/$target/$name"
}

# A small set over every data type, with unknowns and a weights column.
printf '%s\n' f,float,continuous u,uinteger,continuous i,integer,discrete d,double,discrete \
    s,string,ignore n,null,ignore w,float,weights k,string,class > "$tmp/mixed.names"
printf '%s\n' 1.5,3,-1,1e3,x,,1,a 2.5,4,-2,2e3,y,,2,b 0.5,?,?,?,z,,0.5,a 7,9,-1,1e3,x,,1,b \
    3.25,4,5,3e3,y,,1,a ?,1,-2,2e3,?,,3,b 9,12,5,1e3,x,,1,a 4,7,-1,?,z,,1,b > "$tmp/mixed.data"

# name:rows of the public sets that seed the corpora.
sets="golf:14 iris:40 vote:60 crx:40 car:40 mushroom:15 nursery:20 letter:15 adult:15 covtype-10k:6 kddcup10:8"
for entry in $sets mixed:8; do
    name=${entry%%:*} rows=${entry#*:}
    if [ "$name" = mixed ]; then
        stem=$tmp/mixed
    else
        stem=$data/$name/$name
        [ -f "$stem.names" ] || continue
    fi
    if [ -f "$stem.data.gz" ]; then gzip -dc "$stem.data.gz"; else cat "$stem.data"; fi | head -n "$rows" > "$tmp/$name.data"
    printf '\0' > "$tmp/nul"
    seed metadata "$name" '' "$stem.names"
    seed data "$name" '\0' "$stem.names" "$tmp/nul" "$tmp/$name.data"
    "$arbor" -fm "$stem.names" -fd "$tmp/$name.data" -db "$tmp/$name.tbl" -tb "$tmp/$name.model" > /dev/null
    seed table_binary "$name" '\0' "$tmp/$name.tbl"
    gzip -dc "$tmp/$name.model" > "$tmp/$name.plain"
    seed model_binary "$name" '\0' "$tmp/$name.plain"
done

# Compressed, cut, logged and pruned variants of the golf seeds.
golf=$data/golf/golf
seed data golf-gzip '\1' "$golf.names" "$tmp/nul" "$golf.data"
seed data golf-gzip-cut '\3' "$golf.names" "$tmp/nul" "$golf.data"
seed data golf-log '\14' "$golf.data"
seed data crx-c45 '\100' "$data/crx/crx.names" "$tmp/nul" "$tmp/crx.data"
seed table_binary golf-gzip '\1' "$tmp/golf.tbl"
seed table_binary golf-gzip-cut '\3' "$tmp/golf.tbl"
seed model_binary golf-gzip '\1' "$tmp/golf.plain"
seed model_binary golf-gzip-cut '\3' "$tmp/golf.plain"

# Score files: golf rows, rows with an identifier, another separator,
# compressed, and rows of the mixed model.
seed score golf '\0' "$golf.data"
sed 's/$/,id/' "$golf.data" > "$tmp/ids"
seed score golf-ids '\0' "$tmp/ids"
tr , ';' < "$golf.data" > "$tmp/semi"
seed score golf-semicolon '\2' "$tmp/semi"
seed score golf-gzip '\10' "$golf.data"
seed score mixed '\1' "$tmp/mixed.data"

# Line streams: separator byte, buffer byte, text.
printf 'a,b\r\nc,d\n\r\n,,\nlast line without end' > "$tmp/lines"
seed line_stream crlf ',\0' "$tmp/lines"
seed line_stream golf ',\7' "$golf.data"
seed line_stream tabs '\t\77' "$tmp/lines"
seed line_stream nul-separator '\0\1' "$golf.names"

# Metadata that must fail, each in its own way.
printf 'a,string\n' > "$tmp/m1"
printf 'a,string,discrete\nb,double,continuous\nc,string,class\n' > "$tmp/m2"
printf 'a,text,discrete\n' > "$tmp/m3"
printf 'a,null,class\n' > "$tmp/m4"
printf 'a,string,class\nb,string,class\n' > "$tmp/m5"
printf 'a,string,weights\n' > "$tmp/m6"
for m in m1 m2 m3 m4 m5 m6; do seed metadata "bad-$m" '' "$tmp/$m"; done
du -sh "$corpus"
