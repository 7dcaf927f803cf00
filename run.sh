#!/bin/sh
# Installs what is missing, builds, and packs the applications at the PATHs: ./run.sh [PATH...]
# Without a PATH it makes two sample applications and packs those. Where standard input is no terminal
# nobody is asked, and everything is processed.
set -eu
here=$(CDPATH='' cd -- "$(dirname "$0")" && pwd)

"$here/tools/install-packages.sh"
echo "Building (the log is build/run.log)"
log=$here/build/run.log
mkdir -p "$here/build"
(cd "$here" && cmake --preset release -DKELPMORAY_TESTS=OFF -DKELPMORAY_BENCH=OFF &&
    cmake --build --preset release) >"$log" 2>&1 || {
    cat "$log"
    exit 1
}

batch=$here/build/release/bin/kelpmoray-batch
if [ $# -eq 0 ]; then
    "$here/tools/make-sample.sh" "$here/build/sample"
    set -- --process-all "$here/build/sample"
elif [ ! -t 0 ]; then
    set -- --process-all "$@"
fi
exec "$batch" "$@"
