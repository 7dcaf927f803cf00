#!/bin/sh
# Packs an application package into Name.zip beside it.
set -u

usage() {
    cat <<'USAGE'
usage: fenwoJustZipApps.sh PACKAGE

Writes Name.zip beside PACKAGE (Name.app), with the package folder as the archive's root. Symbolic
links, modes and times are kept. An archive that is already there is replaced once the new one is
whole. The last line says what became of it:
  packed: PATH
  error: WHAT: REMEDY
USAGE
}

fail() {
    printf 'error: %s: %s\n' "$1" "$2"
    exit 1
}

# The packer of this installation: Contents/Helpers in a bundle, libexec elsewhere.
find_packer() {
    for candidate in "$resources/../Helpers/kelpmoray-zip" \
        "$resources/../../libexec/kelpmoray/kelpmoray-zip"; do
        if [ -x "$candidate" ]; then
            printf '%s\n' "$candidate"
            return
        fi
    done
    command -v kelpmoray-zip
}

# Work folders of runs that were killed. Their names end in the process's number, and hold nothing of
# the package's: that may be as long as a name can be.
remove_leftovers() {
    for leftover in "$folder/.kelpmoray-packing-"*; do
        [ -d "$leftover" ] || continue
        kill -0 "${leftover##*-}" 2>/dev/null || rm -rf -- "$leftover"
    done
}

pack_with_common_tools() {
    work=$folder/.kelpmoray-packing-$$
    trap 'rm -rf -- "$work"' EXIT
    trap 'exit 1' HUP INT TERM
    mkdir -- "$work" 2>/dev/null || fail "cannot write in $folder" "make the folder writable and try again"
    if command -v ditto >/dev/null 2>&1; then
        tool=ditto
        (cd "$folder" && ditto -c -k --sequesterRsrc --keepParent --noqtn "./$name" "$work/whole.zip")
    elif command -v zip >/dev/null 2>&1; then
        tool=zip
        # With "./" in front a name may begin with a dash; zip itself drops it.
        (cd "$folder" && LC_ALL=C.UTF-8 zip -qry "$work/whole.zip" "./$name")
    else
        fail "no tool that makes zip archives" "install zip"
    fi || fail "$tool could not pack $package" "see the lines above"
    mv -f -- "$work/whole.zip" "$archive" ||
        fail "cannot put the archive at $archive" "make room there and try again"
}

exec 2>&1
case "${1:-}" in
--help)
    usage
    exit 0
    ;;
"") fail "no package given" "usage: fenwoJustZipApps.sh PACKAGE" ;;
esac
[ $# -eq 1 ] || fail "more than one package given" "usage: fenwoJustZipApps.sh PACKAGE"

resources=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
package=$1
while [ "${package%/}" != "$package" ] && [ "$package" != / ]; do package=${package%/}; done
[ ! -L "$package" ] || fail "$package is a link" "give the package that it points at"
[ -d "$package" ] || fail "no package at $package" "give the path of a folder whose name ends in .app"

# The x keeps line feeds at the end of a name, which $() would drop.
folder=$(CDPATH='' cd -- "$(dirname -- "$package")" && pwd -P && echo x)
folder=${folder%?x}
name=$(basename -- "$package" && echo x)
name=${name%?x}
stem=${name%.*}
[ -n "$stem" ] || stem=$name
package=${folder%/}/$name
archive=${folder%/}/$stem.zip
[ ! -d "$archive" ] || fail "a folder is in the place of $archive" "move it away and try again"

if packer=$(find_packer); then
    "$packer" --verify "$archive" "$package" ||
        fail "kelpmoray-zip could not pack $package" "see the lines above"
else
    remove_leftovers
    pack_with_common_tools
fi
printf 'packed: %s\n' "$archive"
