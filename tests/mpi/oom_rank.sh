#!/bin/sh
# A rank that runs out of memory ends the whole job: a non-zero status, the
# message "arbor-mpi: rank 1 of 2 failed: out of memory; ending the job."
# and no output file under its final name. Rank 1's address space is
# limited (ulimit -v); the limit that makes its own allocations fail, and
# not MPI's start-up, depends on the machine, so limits are tried from high
# to low until one does.
#
# Usage: oom_rank.sh ARBOR_MPI WORK NAMES DATA
set -u
mpi=$1 work=$2 names=$3 data=$4
if [ ! -f "$data" ]; then echo "skipped: $data not found"; exit 77; fi
rm -rf "$work"
mkdir -p "$work"
cat > "$work/rank.sh" <<'INNER'
#!/bin/sh
if [ "${OMPI_COMM_WORLD_RANK:-}" = 1 ]; then ulimit -v "$LIMIT" || exit 99; fi
exec "$@"
INNER
message="arbor-mpi: rank 1 of 2 failed: out of memory; ending the job."
for limit in 400000 300000 250000 200000 150000; do
    out=$work/$limit
    mkdir -p "$out"
    timeout 300 mpirun --oversubscribe --allow-run-as-root -x LIMIT=$limit -np 2 sh "$work/rank.sh" "$mpi" \
        -fm "$names" -fd "$data" -t "$out/text" -l "$out/log" -x "$out/xml" > "$out/stdout" 2> "$out/stderr"
    status=$?
    if [ $status = 0 ]; then continue; fi  # not enough pressure yet
    if grep -q "PMIX ERROR\|MPI_Init\|orte_init" "$out/stderr"; then continue; fi  # MPI itself did not start
    failures=0
    grep -qF "$message" "$out/stderr" || { echo "limit $limit: status $status without the message:"; head -20 "$out/stderr"; failures=1; }
    for f in text log xml; do
        [ ! -e "$out/$f" ] || { echo "limit $limit: $f left under its final name"; failures=1; }
    done
    [ $failures = 0 ] && echo "limit $limit KiB: the job ended with status $status, naming rank 1, with no output under its final name"
    exit $failures
done
echo "skipped: no limit tried made rank 1 run out of memory while MPI could start"
exit 77
