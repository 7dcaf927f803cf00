#!/bin/sh
# Builds the fuzz targets (clang) and lets each make up inputs for SECONDS, starting from its
# corpus; says how many it ran and what it found: tests/fuzz/run.sh [SECONDS [TARGET...]]
set -eu
CDPATH='' cd -- "$(dirname "$0")/../.."

seconds=${1:-10}
[ "$#" -eq 0 ] || shift
[ "$#" -gt 0 ] || set -- ArchiveFuzz CmsFuzz CodeSignatureFuzz DamagedArchiveFuzz EncoderFuzz \
    ExpansionFuzz FormatFuzz MachOFuzz PropertyListFuzz PropertyListTreeFuzz SealFuzz

mkdir -p build
{ cmake --preset fuzz && cmake --build --preset fuzz; } >build/fuzz.log 2>&1 || {
    cat build/fuzz.log
    exit 1
}
# Where each execution makes a folder, in memory.
[ -n "${TMPDIR:-}" ] || [ ! -w /dev/shm ] || TMPDIR=/dev/shm
export TMPDIR="${TMPDIR:-/tmp}"

failed=0
for target; do
    log=build/fuzz/$target.log
    found=build/fuzz/found/$target
    mkdir -p "$found" "build/fuzz/corpus/$target"
    finding=none
    "build/fuzz/tests/fuzz/$target" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
        -artifact_prefix="$found/" "build/fuzz/corpus/$target" "tests/fuzz/corpus/$target" \
        >"$log" 2>&1 || {
        failed=1
        finding="see $log and $found"
    }
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "$target: ${executions:-no} executions, findings: $finding"
done
exit "$failed"
