#!/bin/sh
# Installs what is missing, builds, and runs every test: ./test.sh [--sanitizers | --libcxx]
set -eu
CDPATH='' cd -- "$(dirname "$0")"

case "${1:-}" in
"") presets=dev ;;
--sanitizers) presets="asan tsan" ;;
--libcxx) presets=libcxx ;;
*)
    echo "usage: ./test.sh [--sanitizers | --libcxx]" >&2
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
    # That standard library is not the toolkit's: what is linked with it is not built.
    if [ "$preset" = libcxx ]; then
        for part in base batch core sign zip; do
            ctest --test-dir "build/libcxx/tests/$part" --output-on-failure --no-tests=error -j 2
        done
    else
        ctest --preset "$preset"
    fi
done
