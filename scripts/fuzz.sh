#!/usr/bin/env bash
# Builds the fuzz targets as libFuzzer binaries (clang, ASan + UBSan, preset "fuzz") and runs
# each for FUZZ_SECONDS seconds (default 60). The seed corpora of fuzz/corpus/ are copied into a
# writable corpus under build/fuzz-corpus/, which keeps growing from run to run; crashes,
# timeouts and out-of-memory inputs go to build/fuzz-findings/<target>/, the output of each run
# to build/fuzz-findings/<target>.log.
#
#   FUZZ_SECONDS=600 FUZZ_TARGETS="vcard cii" scripts/fuzz.sh
#
# FUZZ_TARGETS picks targets (default: all of fuzz/corpus/), FUZZ_JOBS how many run at once
# (default 1), FUZZ_TIMEOUT the seconds one input may take (default 30; wall clock, so raise it
# on a busy machine, where a timeout may be no more than a starved process), FUZZ_RSS_MB the
# memory one run may use (default 2048); FUZZ_NO_BUILD skips the build, FUZZ_BIN_DIR takes the
# binaries from elsewhere. Exits non-zero when a target found something.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${FUZZ_SECONDS:-60}
timeout=${FUZZ_TIMEOUT:-30}
rss=${FUZZ_RSS_MB:-2048}
jobs=${FUZZ_JOBS:-1}
targets=${FUZZ_TARGETS:-$(ls fuzz/corpus)}

if [ -z "${FUZZ_NO_BUILD:-}" ]; then
    cmake --preset fuzz
    cmake --build --preset fuzz -j "${JOBS:-$(nproc)}"
fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-new_delete_type_mismatch=0:detect_leaks=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/sanitizers/lsan.supp:print_suppressions=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LC_ALL=C.UTF-8 QT_QPA_PLATFORM=offscreen

run_target() {
    local target=$1
    local binary=${FUZZ_BIN_DIR:-build/fuzz/fuzz}/${target}_fuzzer
    local corpus=build/fuzz-corpus/$target
    local findings=build/fuzz-findings/$target
    mkdir -p "$corpus" "$findings"
    cp -n fuzz/corpus/"$target"/* "$corpus"/ 2>/dev/null || true
    local options=()
    if [ -f fuzz/options/"$target".options ]; then
        mapfile -t options < <(grep -v '^#' fuzz/options/"$target".options | grep -v '^$')
    fi
    echo "fuzz: $target for ${seconds}s"
    local status=0
    nice "$binary" "$corpus" "${options[@]}" -max_total_time="$seconds" -timeout="$timeout" \
        -rss_limit_mb="$rss" -artifact_prefix="$findings"/ -print_final_stats=1 \
        >"build/fuzz-findings/$target.log" 2>&1 || status=$?
    local stats
    stats=$(grep -E '^(stat::number_of_executed_units|#[0-9]+.*(DONE|cov:))' "build/fuzz-findings/$target.log" | tail -2 | tr '\n' ' ')
    if [ "$status" -ne 0 ]; then
        echo "fuzz: $target FOUND something (exit $status), see $findings/ and build/fuzz-findings/$target.log"
        return 1
    fi
    echo "fuzz: $target clean: $stats"
}

failed=0
running=0
pids=()
for target in $targets; do
    run_target "$target" &
    pids+=($!)
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait "${pids[0]}" || failed=1
        pids=("${pids[@]:1}")
        running=$((running - 1))
    fi
done
for pid in "${pids[@]}"; do
    wait "$pid" || failed=1
done
exit "$failed"
