#!/bin/sh
# Runs every fuzz target over its seed corpus (fuzz/corpus/<target>/) with
# AddressSanitizer and UndefinedBehaviorSanitizer, a 1 GB memory limit and
# 10 s per input, building the targets first (clang with libFuzzer) when
# they are not built yet. New inputs go to a working corpus beside the build,
# never into the committed seeds; a finding is written there as
# crash-*, leak-*, oom-* or timeout-* and makes the script fail.
#
# Usage: fuzz/run.sh [SECONDS]        each target for SECONDS (default 60)
#   FUZZ_RUNS=N      each target for at most N inputs; without SECONDS, for
#                    N inputs from a fixed random seed (the test command's
#                    short run: the seeds, then mutations)
#   FUZZ_TARGETS=... only these targets (default: all six)
#   FUZZ_BUILD=DIR   build directory (default: build-fuzz)
#   FUZZ_ARGS=...    further libFuzzer options
# Long campaigns on a busy shared machine, where a starved process can
# overrun the 10 s limit on an input that takes milliseconds: run under
# nice, in fork mode, and replay every timeout-* input afterwards:
#   FUZZ_ARGS="-fork=1 -ignore_timeouts=1 -ignore_ooms=0 -ignore_crashes=0" \
#   FUZZ_RUNS=1000000 nice -n 19 fuzz/run.sh 1800
set -eu
here=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
seconds=${1:-}
build=${FUZZ_BUILD:-$here/build-fuzz}
targets=${FUZZ_TARGETS:-line_stream metadata data table_binary model_binary score}

missing=""
for t in $targets; do [ -x "$build/fuzz_$t" ] || missing="$missing fuzz_$t"; done
if [ -n "$missing" ]; then
    CC=clang CXX=clang++ cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DARBOR_FUZZ=ON \
        -DARBOR_BUILD_TESTS=OFF -DARBOR_BUILD_BENCH=OFF > /dev/null
    cmake --build "$build" -j"$(nproc)" --target $missing
fi

# The targets write their scratch files to memory when they can.
if [ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
work=$build/fuzz-work
mkdir -p "$work"
failed=0
for t in $targets; do
    mkdir -p "$work/$t" "$work/findings-$t"
    limit=""
    [ -n "${FUZZ_RUNS:-}" ] && limit="-runs=$FUZZ_RUNS"
    if [ -n "$seconds" ]; then
        limit="$limit -max_total_time=$seconds"
    elif [ -n "$limit" ]; then
        limit="$limit -seed=1"
    else
        limit="-max_total_time=60"
    fi
    log=$work/$t.log
    # shellcheck disable=SC2086
    if "$build/fuzz_$t" $limit ${FUZZ_ARGS:-} -rss_limit_mb=1024 -timeout=10 -print_final_stats=1 \
        -artifact_prefix="$work/findings-$t/" "$work/$t" "$here/fuzz/corpus/$t" > "$log" 2>&1; then
        status=ok
    else
        status=FAILED
        failed=1
    fi
    # The final statistics, or in fork mode the last progress line.
    last=$(grep -E '^#[0-9]+' "$log" | tail -n 1)
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    [ -n "$runs" ] || runs=$(echo "$last" | sed -n 's/^#\([0-9]*\).*/\1/p')
    secs=$(sed -n -e 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' -e 's/^INFO: exiting: .* time: \([0-9]*\)s.*/\1/p' "$log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    [ -n "$rate" ] || rate=$(echo "$last" | sed -n 's/.*exec\/s:\{0,1\} \([0-9]*\).*/\1/p')
    cov=$(echo "$last" | sed -n 's/.*\(cov: [0-9]* ft: [0-9]*\).*/\1/p')
    if [ "${secs:-0}" -gt 0 ]; then pace="${secs} s (${rate:-?}/s)"; else pace="under a second"; fi
    echo "fuzz_$t: $status, ${runs:-?} runs in $pace, $cov"
    if [ $status = FAILED ]; then
        grep -E 'ERROR|SUMMARY|invariant broken|Test unit written' "$log" | head -n 5
        echo "  (full log: $log)"
    fi
done
exit $failed
