#!/bin/sh
# Packs an application package into Name.zip beside it.
set -u

usage() {
    cat <<'USAGE'
usage: fenwoJustZipApps.sh PACKAGE

Writes Name.zip beside PACKAGE (Name.app), with the package folder as the archive's root. Kept are
symbolic links, modes, and times in whole seconds from 1970 to 2106. Not kept are owners, access control
lists and extended attributes; one line says so if the package has any. (On macOS a package with
signatures or resource forks in extended attributes is packed with them, by ditto.) An archive that is
already there is replaced once the new one is whole. The last line says what became of the package:
  packed: PATH
  error: WHAT: REMEDY
USAGE
}

# Control characters, those beyond ASCII (U+0080 to U+009F) too, as question marks: a name must not
# look like a line of ours, nor a terminal obey it. The second also keeps line ends.
control_sign=$(printf '\302[\200-\237]')
printable() {
    case "$1" in
    *[[:cntrl:]]* | *"${control_sign%%"["*}"*)
        printf '%s' "$1" | LC_ALL=C tr '\001-\037\177' '[?*]' | LC_ALL=C sed "s/$control_sign/?/g"
        ;;
    *) printf '%s' "$1" ;;
    esac
}
printable_lines() {
    LC_ALL=C tr '\001-\010\013-\037\177' '[?*]' | LC_ALL=C sed "s/$control_sign/?/g"
}

# What a tool said. The blanks tell its lines from ours.
quote() {
    [ -z "$1" ] || printf '%s\n' "$1" | printable_lines | sed 's/^/  /'
}

fail() {
    printf 'error: %s: %s\n' "$(printable "$1")" "$2"
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

# Packs with the system's archiver, and keeps what the packer promises: a source that stays as it is,
# an archive that is read back and on the disk before it gets its name, nothing overwritten but an
# older archive. After SIGKILL the hidden folder stays: no later run can know that it is ours.
pack_with_ditto() {
    work=$(mktemp -d "$folder/.kelpmoray-packing-XXXXXXXXXX" 2>/dev/null) ||
        fail "cannot write in $folder" "make the folder writable and try again"
    trap 'rm -rf -- "$work"' EXIT
    # Should a folder take the archive's place, mv would move into it: under a name that only we have.
    whole=$work/${work##*/}.zip
    : >"$work/start"
    other=$(find "$package" ! -type f ! -type d ! -type l -print 2>&1)
    [ -z "$other" ] || fail "not to be packed: $other" "make it readable or remove it, and try again"
    output=$(cd "$folder" && ditto -c -k --sequesterRsrc --keepParent --noqtn "./$name" "$whole" 2>&1 &&
        unzip -tqq "$whole" 2>&1) || {
        quote "$output"
        fail "ditto could not pack $package" "see the lines above"
    }
    changed=$(find "$package" -cnewer "$work/start" -print 2>&1)
    [ -z "$changed" ] || fail "$changed was changed meanwhile" "try again when nothing writes to the package"
    sync
    if ! mv -f -- "$whole" "$archive" 2>/dev/null || [ -d "$archive" ]; then
        rm -f -- "$archive/${whole##*/}"
        fail "cannot put the archive at $archive" "make room there and try again"
    fi
}

pack() {
    if has_attributes_to_keep; then
        pack_with_ditto
        return
    fi
    packer=$(find_packer) || fail "kelpmoray-zip is missing" "install Kelpmoray again"
    output=$("$packer" --verify "$archive" "$package" 2>&1) || {
        quote "$output"
        fail "kelpmoray-zip could not pack $package" "see the lines above"
    }
    quote "$output"
}

exec 2>&1
# The reader of the lines may go away; the archive is still to be finished, or what is left removed.
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

pack
printf 'packed: %s\n' "$(printable "$archive")"
