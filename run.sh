#!/bin/sh
# Installs what is missing, builds, and processes the applications at the PATHs: ./run.sh [PATH...]
# Without a PATH it makes two sample applications, on Linux an identity to try signing with too, and processes
# them on the terminal. If there is a display it opens the window; if there is none, or if options are given,
# the terminal does the same. If standard input is no terminal either, nobody is asked.
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
# The samples are signed with an identity that is kept in the build folder, apart from the user's own.
holder=
if [ $# -eq 0 ] && [ "$(uname)" != Darwin ]; then
    holder="Kelpmoray Sample"
    export KELPMORAY_IDENTITIES="$sample-identities"
    export KELPMORAY_PASSPHRASE_FILE="$KELPMORAY_IDENTITIES/passphrase"
    export KELPMORAY_TIMESTAMP=none
    if ! [ -f "$KELPMORAY_PASSPHRASE_FILE" ]; then
        (
            umask 077
            mkdir -p "$KELPMORAY_IDENTITIES"
            echo "protects nothing but samples" >"$KELPMORAY_PASSPHRASE_FILE"
        )
        "$bin/kelpmoray-security" create-test-identity "$holder"
    fi
fi
if [ $# -eq 0 ]; then
    "$bin/kelpmoray-batch" --process-all ${holder:+--identity "$holder"} "$sample"
fi
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] || [ "$(uname)" = Darwin ]; then
    exec "$bin/kelpmoray" "${@:-$sample}"
elif [ $# -eq 0 ]; then
    exit 0
elif [ -t 0 ]; then
    exec "$bin/kelpmoray-batch" "$@"
fi
exec "$bin/kelpmoray-batch" --process-all "$@"
