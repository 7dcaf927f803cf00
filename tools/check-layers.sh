#!/bin/sh
# The layers: core/ and zip/ know no toolkit and nothing above them; batch/ knows only core/.
set -eu
CDPATH='' cd -- "$(dirname "$0")/.."

failed=0
forbid() {
    pattern=$1
    shift
    for folder in "$@"; do
        [ -d "$folder" ] || continue
        if grep -rnE "$pattern" "$folder"; then
            echo "layers: $folder/ must not include the lines above" >&2
            failed=1
        fi
    done
}
forbid '#include *[<"]Q' core zip batch tests/core tests/zip tests/batch tests/fuzz
forbid '#(include|import) *<(AppKit|Cocoa|Foundation)/' core zip batch
forbid '#include *"(app|batch|zip)/' core tests/core
forbid '#include *"(app|batch|core)/' zip tests/zip
forbid '#include *"(app|zip)/' batch tests/batch
[ "$failed" -eq 0 ] && echo "layers: clean"
exit "$failed"
