#!/bin/sh
# Packs an application package into Name.zip beside it.
set -u
case "$0" in */*) resources=${0%/*} ;; *) resources=. ;; esac
# shellcheck source=resources/scriptOutput.sh
. "$resources/scriptOutput.sh"

usage() {
    cat <<'USAGE'
usage: fenwoJustZipApps.sh PACKAGE

Writes Name.zip beside PACKAGE (Name.app), with the package folder as the archive's root. Kept are
symbolic links, modes, and times in whole seconds from 1970 to 2106. Not kept are owners, access control
lists and extended attributes; one line says so if the package has any. (On macOS a package with
signatures or resource forks in extended attributes is packed with them, by ditto.) An archive that is
already there is replaced once the new one is whole.

KELPMORAY_LEVEL is the level of compression, from 1 (quick) to 9 (small); KELPMORAY_THREADS how many
threads pack. With KELPMORAY_REPRODUCIBLE=1 every time in the archive is SOURCE_DATE_EPOCH, or 1980-01-01.

The last line says what became of the package:
  packed: PATH
  error: WHAT: REMEDY
USAGE
}

# Signatures of scripts and resource forks are extended attributes, which only ditto packs.
has_attributes_to_keep() {
    command -v ditto >/dev/null 2>&1 && command -v xattr >/dev/null 2>&1 &&
        xattr -r "$package" 2>/dev/null | grep -qE 'com\.apple\.(cs\.|ResourceFork|FinderInfo)'
}

# Sets packer to that of this installation: Contents/Helpers in a bundle, libexec elsewhere.
find_packer() {
    for packer in "$resources/../Helpers/kelpmoray-zip" \
        "$resources/../../libexec/kelpmoray/kelpmoray-zip"; do
        [ ! -x "$packer" ] || return 0
    done
    packer=$(command -v kelpmoray-zip) || fail "kelpmoray-zip is missing" "install Kelpmoray again"
}

# Packs with the system's archiver, and keeps what the packer promises: a source that stays as it is,
# an archive that is read back and on the disk before it gets its name, nothing overwritten but an
# older archive. After SIGKILL the hidden folder stays, as nobody can know whose it is.
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
        [ -z "${KELPMORAY_REPRODUCIBLE:-}" ] ||
            fail "ditto packs the extended attributes of $package with their times" \
                "do not ask for a reproducible archive"
        pack_with_ditto
        return
    fi
    find_packer
    set -- --verify ${KELPMORAY_LEVEL:+-l "$KELPMORAY_LEVEL"} ${KELPMORAY_THREADS:+-j "$KELPMORAY_THREADS"}
    [ -z "${KELPMORAY_REPRODUCIBLE:-}" ] || set -- "$@" --reproducible
    output=$("$packer" "$@" "$archive" "$package" 2>&1) || {
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

take_package "$1"
folder=${package%/*}
archive=${package%.*}.zip
[ ! -d "$archive" ] || fail "a folder is in the place of $archive" "move it away and try again"

pack
succeed packed "$archive"
