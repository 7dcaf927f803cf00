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

# Signatures of scripts and resource forks are extended attributes, which only ditto packs.
has_attributes_to_keep() {
    command -v ditto >/dev/null 2>&1 && command -v xattr >/dev/null 2>&1 &&
        xattr -r "$package" 2>/dev/null | grep -qE 'com\.apple\.(cs\.|ResourceFork|FinderInfo)'
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

is_running() {
    [ -d "/proc/$1" ] || kill -0 "$1" 2>/dev/null
}

# Work folders of runs that were killed. Their names end in the process's number, and hold nothing of
# the package's: that may be as long as a name can be.
remove_leftovers() {
    for leftover in "$folder/.kelpmoray-packing-"*; do
        number=${leftover##*-}
        case "$number" in *[!0-9]*) continue ;; esac
        if [ "$number" = $$ ] || ! is_running "$number"; then rm -rf -- "$leftover"; fi
    done
}

# zip passes over folders it cannot read, and over pipes and devices, and calls that a success.
refuse_what_zip_would_lose() {
    (cd "$folder" && find "./$name" ! -type f ! -type d ! -type l -print) >"$work/lost" 2>&1
    [ ! -s "$work/lost" ] ||
        fail "not to be packed: $(head -n 1 "$work/lost")" "make it readable or remove it, and try again"
}

pack_with_common_tools() {
    work=$folder/.kelpmoray-packing-$$
    mkdir -- "$work" 2>/dev/null || fail "cannot write in $folder" "make the folder writable and try again"
    trap 'rm -rf -- "$work"' EXIT
    refuse_what_zip_would_lose
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
    rm -rf -- "$work"
}

exec 2>&1
# Whoever reads the lines may go away; the archive is still to be finished or cleaned up after.
trap '' PIPE
trap 'fail "interrupted" "run it again"' HUP INT TERM
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
name=${package##*/}
case "$name" in
?*.[Aa][Pp][Pp]) [ -d "$package" ] ;;
*) false ;;
esac || fail "no package at $package" "give the path of a folder whose name ends in .app"

case "$package" in */*) folder=${package%/*}/ ;; *) folder=. ;; esac
# The x keeps a line feed at the end of a name, which $() would drop.
folder=$(CDPATH='' cd -- "$folder" && pwd -P && echo x) ||
    fail "cannot enter the folder of $package" "make the folder readable and try again"
folder=${folder%?x}
folder=${folder%/}
package=$folder/$name
archive=$folder/${name%.*}.zip
[ ! -d "$archive" ] || fail "a folder is in the place of $archive" "move it away and try again"

remove_leftovers
if ! has_attributes_to_keep && packer=$(find_packer); then
    "$packer" --verify "$archive" "$package" ||
        fail "kelpmoray-zip could not pack $package" "see the lines above"
else
    pack_with_common_tools
fi
printf 'packed: %s\n' "$archive"
