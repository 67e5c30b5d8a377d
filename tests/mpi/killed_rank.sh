#!/bin/sh
# A rank killed in the middle of a run ends the whole job: a non-zero
# status, a message naming the rank, and no output file under its final
# name (rank 0 writes each under a temporary name until the run is done).
#
# Usage: killed_rank.sh ARBOR_MPI WORK NAMES DATA
set -u
mpi=$1 work=$2 names=$3 data=$4
if [ ! -f "$data" ]; then echo "skipped: $data not found"; exit 77; fi
rm -rf "$work"
mkdir -p "$work"
# Rank 2 is killed a second after it starts, while the ranks load and grow.
cat > "$work/rank.sh" <<'INNER'
#!/bin/sh
if [ "${OMPI_COMM_WORLD_RANK:-}" = 2 ]; then
    "$@" & child=$!
    sleep 1
    kill -9 $child 2>/dev/null
    wait $child
    exit $?
fi
exec "$@"
INNER
start=$(date +%s)
timeout 300 mpirun --oversubscribe --allow-run-as-root -np 3 sh "$work/rank.sh" "$mpi" -fm "$names" -fd "$data" \
    -t "$work/text" -l "$work/log" -x "$work/xml" > "$work/stdout" 2> "$work/stderr"
status=$?
echo "status $status after $(( $(date +%s) - start )) s"
if [ $status = 0 ] && [ -f "$work/text" ]; then
    echo "skipped: the run ended before rank 2 was killed"
    exit 77
fi
failures=0
[ $status != 0 ] && [ $status != 124 ] || { echo "status $status: the job did not end with an error"; failures=1; }
grep -q "rank 2\|\[\[[0-9]*,1\],2\]" "$work/stdout" "$work/stderr" || { echo "no message names rank 2:"; cat "$work/stderr"; failures=1; }
for f in text log xml; do
    [ ! -e "$work/$f" ] || { echo "$f left under its final name"; failures=1; }
done
[ $failures = 0 ] && echo "the job ended, naming rank 2, with no output under its final name"
exit $failures
