#!/bin/sh
# Installs what is missing, builds, and runs every test: ./test.sh [--sanitizers]
set -eu
CDPATH='' cd -- "$(dirname "$0")"

case "${1:-}" in
"") presets=dev ;;
--sanitizers) presets="asan tsan" ;;
*)
    echo "usage: ./test.sh [--sanitizers]" >&2
    exit 2
    ;;
esac

tools/install-packages.sh --test
mkdir -p build
for preset in $presets; do
    echo "== $preset"
    log=build/$preset.log
    cmake --preset "$preset" >"$log" 2>&1 || {
        cat "$log"
        exit 1
    }
    cmake --build --preset "$preset"
    ctest --preset "$preset"
done
