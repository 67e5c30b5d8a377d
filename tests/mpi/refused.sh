#!/bin/sh
# -db and -bd make no sense with the table spread over the ranks: arbor-mpi
# refuses them with a message and status 255 before opening any file.
#
# Usage: refused.sh ARBOR_MPI WORK NAMES DATA
set -u
mpi=$1 work=$2 names=$3 data=$4
rm -rf "$work"
mkdir -p "$work"
failures=0
for option in -db -bd; do
    timeout 120 mpirun --oversubscribe --allow-run-as-root -np 2 "$mpi" -fm "$names" -fd "$data" \
        $option "$work/table.bin" -l "$work/log" -t "$work/text" > "$work/stdout" 2> "$work/stderr"
    status=$?
    if [ $status != 255 ]; then echo "$option: status $status, not 255"; failures=$((failures + 1)); fi
    if ! grep -q -- "-bd and -db are not available" "$work/stdout"; then
        echo "$option: no message:"; cat "$work/stdout"; failures=$((failures + 1))
    fi
    left=$(find "$work" -name 'log*' -o -name 'text*' -o -name 'table.bin*')
    if [ -n "$left" ]; then echo "$option: files opened: $left"; failures=$((failures + 1)); fi
done
[ $failures = 0 ] || exit 1
echo "-db and -bd refused with status 255, no file opened"
