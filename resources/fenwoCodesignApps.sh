#!/bin/sh
# Signs an application package, the code nested in it first.
set -u

usage() {
    cat <<'USAGE'
usage: fenwoCodesignApps.sh PACKAGE [IDENTITY]

Signs PACKAGE with the identity whose holder is IDENTITY, such as "Jane Doe (TEAMID)". With the
identity "donotcodesign" nothing is touched. The last line says what became of it:
  signed: PATH
  unsigned: PATH
  error: WHAT: REMEDY
USAGE
}

fail() {
    printf 'error: %s: %s\n' "$1" "$2"
    exit 1
}

# The lines 'HASH LABEL' of the valid identities.
valid_identities() {
    security find-identity -v -p codesigning |
        sed -n 's/^ *[0-9][0-9]*) *\([0-9A-Fa-f]\{40\}\) *"\(.*\)".*$/\1 \2/p' | sort -u
}

# The hashes of the identities whose label equals, or ends in, the text given.
hashes_of_label() {
    printf '%s\n' "$identities" | WANTED=$2 awk -v how="$1" '{
        wanted = ENVIRON["WANTED"]
        label = substr($0, 42)
        at = length(label) - length(wanted) + 1
        if (label == wanted || (how == "suffix" && at > 0 && substr(label, at) == wanted)) print $1
    }'
}

# Sets hash to the one certificate that the holder's name stands for.
resolve_identity() {
    identities=$(valid_identities)
    hash=$(hashes_of_label whole "Developer ID Application: $identity")
    [ -n "$hash" ] || hash=$(hashes_of_label suffix ": $identity")
    case "$hash" in
    *"
"*)
        printf 'The valid identities:\n%s\n' "$identities"
        fail "several identities of $identity" "remove all but one from the keychain"
        ;;
    "")
        printf 'The valid identities:\n%s\n' "${identities:-none}"
        fail "no valid identity of $identity" "pick one of the identities in the list"
        ;;
    esac
}

# Signs one code object; the time stamp server may be busy, anything else will not get better.
sign() {
    tries=1
    until output=$(codesign --force --sign "$hash" --timestamp --options runtime \
        --preserve-metadata=entitlements "$1" 2>&1); do
        printf '%s\n' "$output"
        # What codesign says begins with the path, which may hold any word.
        case "${output##*": "}" in
        *[Tt]imestamp* | *"time stamp"*) ;;
        *) fail "codesign could not sign $1" "see the lines above" ;;
        esac
        [ "$tries" -lt 4 ] || fail "the time stamp server did not answer for $1" "try again later"
        tries=$((tries + 1))
        sleep "$tries"
    done
}

# The value of CFBundleExecutable in an Info.plist, whatever its form.
executable_named_in() {
    [ -f "$1" ] || return 0
    { plutil -convert xml1 -o - "$1" 2>/dev/null || cat "$1"; } | tr -d '\n\t' |
        sed -n 's:.*<key>CFBundleExecutable</key> *<string>\([^<]*\)</string>.*:\1:p'
}

is_machine_code() {
    case "$(od -An -tx1 -N4 "$1" 2>/dev/null | tr -d ' \n')" in
    feedface | feedfacf | cefaedfe | cffaedfe | cafebabe | cafebabf) return 0 ;;
    esac
    return 1
}

# A bundle's main executable is signed with the bundle, never before it.
is_main_executable() {
    folder=${1%/*}
    file=${1##*/}
    case "$folder" in
    */Contents/MacOS) info=${folder%/MacOS}/Info.plist bundle=${folder%/Contents/MacOS} ;;
    */Versions/*) info=$folder/Resources/Info.plist bundle=${folder%/Versions/*} ;;
    *) info=$folder/Info.plist bundle=$folder ;;
    esac
    [ -f "$info" ] || return 1
    main=$(executable_named_in "$info")
    if [ -z "$main" ]; then
        main=${bundle##*/}
        main=${main%.*}
    fi
    [ "$file" = "$main" ]
}

# Whether a folder is code by itself: a version of a framework, or a bundle.
is_bundle() {
    case "${1%/*}" in *.framework/Versions) return 0 ;; esac
    # A framework with versions is signed version by version.
    case "$1" in *.framework) [ ! -d "$1/Versions" ] && return 0 || return 1 ;; esac
    case "$1" in
    *.[Aa][Pp][Pp] | *.appex | *.xpc | *.bundle | *.plugin | *.kext) return 0 ;;
    esac
    [ -f "$1/Contents/Info.plist" ]
}

sign_nested() {
    if [ -d "$1" ]; then
        is_bundle "$1" || return 0
    else
        # Everything beside the main executable counts as code, scripts too.
        case "${1%/*}" in
        */Contents/MacOS) ;;
        *) is_machine_code "$1" || return 0 ;;
        esac
        ! is_main_executable "$1" || return 0
    fi
    sign "$1"
}

exec 2>&1
trap '' PIPE
trap 'fail "interrupted" "run it again"' HUP INT TERM
case "${1:-}" in
--help)
    usage
    exit 0
    ;;
# Called again by find, below, once for each batch of nested code.
--nested)
    hash=$2
    package=$3
    shift 3
    for code in "$@"; do sign_nested "$package/${code#./}"; done
    exit 0
    ;;
"") fail "no package given" "usage: fenwoCodesignApps.sh PACKAGE [IDENTITY]" ;;
esac

[ $# -le 2 ] || fail "more than one identity given" "usage: fenwoCodesignApps.sh PACKAGE [IDENTITY]"

script=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)/${0##*/}
package=$1
identity=${2:-}
while [ "${package%/}" != "$package" ] && [ "$package" != / ]; do package=${package%/}; done
case "$package" in /*) ;; *) package=$PWD/$package ;; esac
[ ! -L "$package" ] || fail "$package is a link" "give the package that it points at"
case "${package##*/}" in
?*.[Aa][Pp][Pp]) [ -d "$package" ] ;;
*) false ;;
esac || fail "no package at $package" "give the path of a folder whose name ends in .app"
if [ "$identity" = donotcodesign ]; then
    printf 'unsigned: %s\n' "$package"
    exit 0
fi
[ -n "$identity" ] || fail "no identity to sign $package with" "pick a signing identity"
for tool in security codesign; do
    command -v "$tool" >/dev/null 2>&1 ||
        fail "no $tool on this system" "sign on a Mac, or choose not to codesign"
done

resolve_identity
# -depth gives what a folder holds before the folder: from the inside out. The status of find is not
# looked at: where the signal of ended children is ignored, as the caller does, it is no use.
nested=$(cd "$package" && find . -depth ! -path . \( -type d -o -type f \( -path '*/Contents/MacOS/*' \
    -o -perm -100 -o -perm -010 -o -perm -001 -o -name '*.dylib' -o -name '*.so' \) \) \
    -exec "$script" --nested "$hash" "$package" {} + 2>&1)
[ -z "$nested" ] || printf '%s\n' "$nested"
case "$nested" in "error: "* | *"
error: "*) exit 1 ;; esac
sign "$package"
output=$(codesign --verify --deep --strict "$package" 2>&1) || {
    printf '%s\n' "$output"
    fail "the signature of $package does not hold" "see the lines above"
}
printf 'signed: %s\n' "$package"
