#!/bin/sh
# Installs what is missing, builds, and processes the applications at the PATHs: ./run.sh [PATH...]
# Without a PATH it makes two sample applications and takes those. Where there is a display it opens the
# window; where there is none, or options are given, it does the same on the terminal. Where standard
# input is no terminal either, nobody is asked and everything is processed.
set -eu
here=$(CDPATH='' cd -- "$(dirname "$0")" && pwd)

"$here/tools/install-packages.sh"
mkdir -p "$here/build"
log=$here/build/run.log
(cd "$here" && cmake --preset release -DKELPMORAY_TESTS=OFF -DKELPMORAY_BENCH=OFF) >"$log" 2>&1 || {
    cat "$log"
    exit 1
}
echo "Building; that takes a minute or two the first time"
(cd "$here" && cmake --build --preset release) >&2

case "$(uname)" in
Darwin) bin=$here/build/release/Kelpmoray.app/Contents/MacOS ;;
*) bin=$here/build/release/bin ;;
esac
sample=$here/build/sample
case "${1:-}" in
-*) exec "$bin/kelpmoray-batch" "$@" ;;
"") "$here/tools/make-sample.sh" "$sample" ;;
esac
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] || [ "$(uname)" = Darwin ]; then
    exec "$bin/kelpmoray" "${@:-$sample}"
elif [ $# -gt 0 ] && [ -t 0 ]; then
    exec "$bin/kelpmoray-batch" "$@"
fi
exec "$bin/kelpmoray-batch" --process-all "${@:-$sample}"
