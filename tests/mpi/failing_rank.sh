#!/bin/sh
# A rank that fails alone ends the whole job: a non-zero status, a message
# naming the rank, and no output file under its final name (rank 0 writes
# each under a temporary name until the run is done).
#   killed: rank 2 of 3 is killed a second after it starts, while the ranks
#           load and grow.
#   oom:    rank 1 of 2 runs out of memory: its address space is limited
#           (ulimit -v); the limit that makes its own allocations fail, and
#           not MPI's start-up, depends on the machine, so limits are tried
#           from high to low until one does. Near the limits where Open MPI's
#           own set-up fails (shared memory, its run-time), MPI may fail
#           first, print its own errors, or hang: such a run, without our
#           message, moves on to the next limit.
#
# Usage: failing_rank.sh killed|oom ARBOR_MPI WORK NAMES DATA
set -u
mode=$1 mpi=$2 work=$3 names=$4 data=$5
if [ ! -f "$data" ]; then echo "skipped: $data not found"; exit 77; fi
rm -rf "$work"
mkdir -p "$work"
cat > "$work/rank.sh" <<'INNER'
#!/bin/sh
if [ "$MODE" = killed ] && [ "${OMPI_COMM_WORLD_RANK:-}" = 2 ]; then
    "$@" & child=$!
    sleep 1
    kill -9 $child 2>/dev/null
    wait $child
    exit $?
fi
if [ "$MODE" = oom ] && [ "${OMPI_COMM_WORLD_RANK:-}" = 1 ]; then ulimit -v "$LIMIT" || exit 99; fi
exec "$@"
INNER

# run DIR RANKS LIMIT: one job, its outputs and streams in DIR; sets status.
run() {
    mkdir -p "$1"
    timeout "${RUN_SECONDS:-300}" mpirun --oversubscribe --allow-run-as-root -x MODE=$mode -x LIMIT=$3 -np "$2" sh "$work/rank.sh" \
        "$mpi" -fm "$names" -fd "$data" -t "$1/text" -l "$1/log" -x "$1/xml" > "$1/stdout" 2> "$1/stderr"
    status=$?
}

# verdict DIR PATTERN: the job ended with an error, naming the rank, and
# left no output under its final name.
verdict() {
    failures=0
    [ $status != 0 ] && [ $status != 124 ] || { echo "status $status: the job did not end with an error"; failures=1; }
    grep -q "$2" "$1/stdout" "$1/stderr" || { echo "no message matches '$2':"; head -20 "$1/stderr"; failures=1; }
    for f in text log xml; do
        [ ! -e "$1/$f" ] || { echo "$f left under its final name"; failures=1; }
    done
    [ $failures = 0 ] && echo "the job ended with status $status, naming the rank, with no output under its final name"
    exit $failures
}

if [ "$mode" = killed ]; then
    run "$work/run" 3 0
    if [ $status = 0 ] && [ -f "$work/run/text" ]; then
        echo "skipped: the run ended before rank 2 was killed"
        exit 77
    fi
    verdict "$work/run" "rank 2\|\[\[[0-9]*,1\],2\]"
fi
ours="arbor-mpi: rank 1 of 2 failed: out of memory; ending the job."
mpi_failed="PMIX ERROR\|MPI_Init\|orte_init\|ORTE_ERROR_LOG\|shared memory initialization"
RUN_SECONDS=60  # a run takes about a second; one that MPI left hanging ends here
for limit in 400000 300000 250000 200000 150000; do
    run "$work/$limit" 2 $limit
    if [ $status = 0 ]; then continue; fi  # not enough pressure yet
    if ! grep -q "$ours" "$work/$limit/stdout" "$work/$limit/stderr"; then
        if [ $status = 124 ] || grep -q "$mpi_failed" "$work/$limit/stderr"; then continue; fi  # MPI failed first
    fi
    echo "limit $limit KiB:"
    verdict "$work/$limit" "$ours"
done
echo "skipped: no limit tried made rank 1 run out of memory while MPI could start"
exit 77
