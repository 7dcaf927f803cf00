#!/bin/sh
# The floors: base/ knows nothing above it; core/, zip/ and sign/ stand on base/ alone; batch/ and app/
# stand on core/. No toolkit below app/. In sign/, the folders know nothing of what lies above them, but
# the programs do.
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
forbid '#include *[<"]Q' base core zip sign batch tests/base tests/core tests/zip tests/sign tests/batch tests/fuzz
forbid '#(include|import) *<(AppKit|Cocoa|Foundation)/' base core zip sign batch
forbid '#include *"(app|batch|core|sign|zip)/' base tests/base
forbid '#include *"(app|batch|sign|zip)/' core tests/core
forbid '#include *"(app|batch|core|sign)/' zip tests/zip
forbid '#include *"(app|batch|core|zip)/' sign tests/sign
forbid '#include *"(app|sign|zip)/' batch tests/batch
forbid '#include *"(batch|sign|zip)/' app
for folder in sign/*/; do
    [ "$folder" = sign/programs/ ] || forbid '#include *"sign/([A-Z]|programs/)' "${folder%/}"
done
forbid '#include *"sign/(bundle|cms|identity|macho|signature)/' sign/crypto sign/files sign/plist
forbid '#include *"app/([A-Z]|results|identities)' app/toolkit app/platform
# No files include each other in a circle.
git ls-files -co --exclude-standard '*.h' | while read -r header; do
    sed -n "s:^#include \"\(.*\)\"\$:$header \1:p" "$header"
done | tsort >/dev/null || failed=1
[ "$failed" -eq 0 ] && echo "layers: clean"
exit "$failed"
