#!/bin/sh
# Every relative link in the documents leads to a file that is committed.
set -eu
CDPATH='' cd -- "$(dirname "$0")/.."

failed=0
for document in $(git ls-files '*.md'); do
    # shellcheck disable=SC2013 # a link has no blank
    for link in $(grep -oE '\]\([^)]+\)' "$document" | sed 's/^](//; s/)$//; s/#.*//'); do
        case "$link" in
        http:* | https:*) continue ;;
        esac
        git ls-files --error-unmatch -- "$(dirname "$document")/$link" >/dev/null 2>&1 || {
            echo "$document: $link leads nowhere" >&2
            failed=1
        }
    done
done
[ "$failed" -eq 0 ] && echo "links: clean"
exit "$failed"
