#!/bin/sh
# Formats the C++ sources in place; with --check only says which files would change, and fails.
set -eu
CDPATH='' cd -- "$(dirname "$0")/.."

format=$(command -v clang-format-14 || command -v clang-format)
if [ "${1:-}" = --check ]; then
    git ls-files -z -co --exclude-standard '*.cpp' '*.h' | xargs -0 -r "$format" --dry-run --Werror
    echo "style: clean"
else
    git ls-files -z -co --exclude-standard '*.cpp' '*.h' | xargs -0 -r "$format" -i
fi
