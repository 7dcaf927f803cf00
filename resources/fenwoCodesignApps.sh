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
        quote "The valid identities:
$identities"
        fail "several identities of $identity" "remove all but one from the keychain"
        ;;
    "")
        quote "The valid identities:
${identities:-none}"
        fail "no valid identity of $identity" "pick one of the identities in the list"
        ;;
    esac
}

# Signs one code object; the time stamp server may be busy, anything else will not get better.
sign() {
    tries=1
    until output=$(codesign --force --sign "$hash" --timestamp --options runtime \
        --preserve-metadata=entitlements "$1" 2>&1); do
        quote "$output"
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

# Signs one object in the package, if it is code of its own.
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

# Signs what is nested in the package, what a folder holds before the folder. Each path that find
# prints begins with ".//.", which nothing in a path looks like, so that a line which does not begin
# with it goes on with a name. The package itself comes last: without it the list is not whole.
sign_all_nested() {
    list=$(cd "$package" && find .//. -depth \( -type d -o -type f \( -path '*/Contents/MacOS/*' \
        -o -perm -100 -o -perm -010 -o -perm -001 -o -name '*.dylib' -o -name '*.so' \) \) -print \
        2>/dev/null) || list=
    code=
    while IFS= read -r line <&3; do
        case "$line" in
        .//.*)
            [ -z "$code" ] || sign_nested "$package${code#.//.}"
            code=$line
            ;;
        *) code="$code
$line" ;;
        esac
    done 3<<LIST
$list
LIST
    [ "$code" = .//. ] ||
        fail "what is in $package could not be listed" "make all of it readable and try again"
}

exec 2>&1
trap '' PIPE
trap 'fail "interrupted" "run it again"' HUP INT TERM
case "${1:-}" in
--help)
    usage
    exit 0
    ;;
"") fail "no package given" "usage: fenwoCodesignApps.sh PACKAGE [IDENTITY]" ;;
esac

[ $# -le 2 ] || fail "more than one identity given" "usage: fenwoCodesignApps.sh PACKAGE [IDENTITY]"

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
    printf 'unsigned: %s\n' "$(printable "$package")"
    exit 0
fi
for tool in security codesign; do
    command -v "$tool" >/dev/null 2>&1 ||
        fail "no $tool on this system" "sign on a Mac, or choose not to codesign"
done
[ -n "$identity" ] || fail "no identity to sign $package with" "pick a signing identity"

resolve_identity
sign_all_nested
sign "$package"
output=$(codesign --verify --deep --strict "$package" 2>&1) || {
    quote "$output"
    fail "the signature of $package does not hold" "see the lines above"
}
printf 'signed: %s\n' "$(printable "$package")"
