#!/bin/sh
# Packs an application package for the edition that never signs: the same archive, from the same script.
set -u

if [ "${1:-}" = --help ]; then
    cat <<'USAGE'
usage: fenwoZipAppsDNP.sh PACKAGE

Packs PACKAGE without signing it, exactly as fenwoJustZipApps.sh does. While this script lies among
the resources it is the only one that runs.
USAGE
    exit 0
fi
case "$0" in */*) exec "${0%/*}/fenwoJustZipApps.sh" "$@" ;; esac
exec ./fenwoJustZipApps.sh "$@"
