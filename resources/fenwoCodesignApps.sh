#!/bin/sh
# Signs an application package, the code nested in it first.
set -u
case "$0" in */*) resources=${0%/*} ;; *) resources=. ;; esac
# shellcheck source=resources/scriptOutput.sh
. "$resources/scriptOutput.sh"

usage() {
    cat <<'USAGE'
usage: fenwoCodesignApps.sh PACKAGE [IDENTITY]

Signs PACKAGE (Name.app) with the identity whose holder is IDENTITY, such as "Jane Doe (TEAMID)", or whose
certificate has IDENTITY as its SHA-1 hash (40 hexadecimal digits). With the identity "donotcodesign"
nothing is touched. The system's tools sign if it has them, else those of this installation.

If they are there, these files beside the package give the entitlements:
  Name.entitlements          of the application
  Name.inherit.entitlements  of the helper applications in it
Other code keeps the entitlements that it has.

KELPMORAY_ENTITLEMENTS names a file that takes the place of Name.entitlements.
KELPMORAY_TIMESTAMP is the URL of the time stamp server, or "none"; Apple's server if it is not set.

The last line says what became of the package:
  signed: PATH
  unsigned: PATH
  error: WHAT: REMEDY
USAGE
}

# A program of this installation: Contents/MacOS in a bundle, bin elsewhere.
find_own() {
    for candidate in "$resources/../MacOS/$1" "$resources/../../bin/$1"; do
        if [ -x "$candidate" ]; then
            printf '%s\n' "$candidate"
            return
        fi
    done
    command -v "$1" || fail "no $1 in this installation" "install Kelpmoray again, or choose not to codesign"
}

# Sets security and codesign to the system's tools, or to ours where it has none.
find_tools() {
    own_codesign=$(find_own kelpmoray-codesign) || fail_with "$own_codesign"
    if command -v security >/dev/null 2>&1 && command -v codesign >/dev/null 2>&1; then
        security=security codesign=codesign
    else
        security=$(find_own kelpmoray-security) || fail_with "$security"
        codesign=$own_codesign
    fi
}

# Hands on the last line of a function that failed in a subshell.
fail_with() {
    printf '%s\n' "$1"
    exit 1
}

# The lines 'HASH LABEL' of the valid identities.
valid_identities() {
    "$security" find-identity -v -p codesigning |
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

# Sets hash to the one certificate that the holder's name stands for. A hash stands for itself: the tool
# that signs looks for it anyway.
resolve_identity() {
    case "$identity" in
    *[!0-9A-Fa-f]*) ;;
    *)
        hash=$identity
        [ ${#hash} -ne 40 ] || return 0
        ;;
    esac
    identities=$(valid_identities)
    hash=$(hashes_of_label whole "Developer ID Application: $identity")
    [ -n "$hash" ] || hash=$(hashes_of_label suffix ": $identity")
    case "$hash" in
    *"
"*)
        quote "The valid identities:
$identities"
        fail "several identities of $identity" "remove all but one"
        ;;
    "")
        quote "The valid identities:
${identities:-none}"
        fail "no valid identity of $identity" "pick one of the identities in the list, or import yours"
        ;;
    esac
}

# Signs one code object with the system's tool, which signs what is nested in it only badly. A time
# stamp server may be busy; anything else will not get better.
sign_one() {
    set -- "$1" --force --sign "$hash" "--timestamp${KELPMORAY_TIMESTAMP:+=$KELPMORAY_TIMESTAMP}" \
        --options runtime --preserve-metadata=entitlements
    case "$1" in
    "$package") given=$entitlements ;;
    *.[Aa][Pp][Pp]) given=$inherited ;;
    *) given= ;;
    esac
    code=$1
    shift
    [ -z "$given" ] || set -- "$@" --entitlements "$given"
    tries=1
    until output=$(codesign "$@" "$code" 2>&1); do
        quote "$output"
        # What codesign says begins with the path, which may hold any word.
        case "${output##*": "}" in
        *[Tt]imestamp* | *"time stamp"*) ;;
        *) fail "codesign could not sign $code" "see the lines above" ;;
        esac
        [ "$tries" -lt 4 ] || fail "the time stamp server did not answer for $code" "try again later"
        tries=$((tries + 1))
        sleep "$tries"
    done
}

# Signs every code object with the system's tool, from the inside out. Each one that is signed prints a
# line: their number tells whether all were, even if a process was killed or could not start.
sign_with_system() {
    output=$("$own_codesign" --plan "$package" 2>&1 >/dev/null) || {
        quote "$output"
        fail "the code in $package could not be listed" "see the lines above"
    }
    planned=$("$own_codesign" --plan "$package" | tr -dc '\000' | wc -c)
    output=$("$own_codesign" --plan "$package" |
        xargs -0 -n 1 "$0" --sign-one "$hash" "$package" "$entitlements" "$inherited" 2>/dev/null)
    case "$output" in "error: "* | *"
error: "*) fail_with "$output" ;; esac
    done=$(printf '%s\n' "$output" | grep -cx 'done') || :
    [ "$done" -eq "$planned" ] || {
        printf '%s\n' "$output"
        fail "signing $package ended early" "try again"
    }
}

# Signs all at once with our own tool.
sign_with_own() {
    set -- --force --deep --sign "$hash" "--timestamp${KELPMORAY_TIMESTAMP:+=$KELPMORAY_TIMESTAMP}" \
        --options runtime --preserve-metadata=entitlements
    [ -z "$entitlements" ] || set -- "$@" --entitlements "$entitlements"
    [ -z "$inherited" ] || set -- "$@" --helper-entitlements "$inherited"
    output=$("$codesign" "$@" "$package" 2>&1) || {
        quote "$output"
        case "${output##*": "}" in
        *"timestamp service is not available"*)
            fail "the time stamp server did not answer for $package" "try again later, or name another in KELPMORAY_TIMESTAMP"
            ;;
        esac
        case "$output" in
        *'The key of "'*'" is locked. '*)
            holder=${output#*'The key of "'}
            fail "the key of ${holder%%'" is locked. '*} is locked" "see the lines above"
            ;;
        esac
        fail "kelpmoray-codesign could not sign $package" "see the lines above"
    }
    quote "$output"
}

exec 2>&1
trap '' PIPE
trap 'fail "interrupted" "run it again"' HUP INT TERM
case "${1:-}" in
--help)
    usage
    exit 0
    ;;
# Called again by xargs, above, once for each code object.
--sign-one)
    hash=$2 package=$3 entitlements=$4 inherited=$5
    failure_status=255 # then xargs goes no further
    sign_one "$6"
    echo "done"
    exit 0
    ;;
"") fail "no package given" "usage: fenwoCodesignApps.sh PACKAGE [IDENTITY]" ;;
esac

[ $# -le 2 ] || fail "more than one identity given" "usage: fenwoCodesignApps.sh PACKAGE [IDENTITY]"

take_package "$1"
identity=${2:-}
[ "$identity" != donotcodesign ] || succeed unsigned "$package"
find_tools
[ -n "$identity" ] || fail "no identity to sign $package with" "import one and pick it, or choose not to codesign"

entitlements=${KELPMORAY_ENTITLEMENTS:-${package%.*}.entitlements}
inherited=${package%.*}.inherit.entitlements
[ -z "${KELPMORAY_ENTITLEMENTS:-}" ] || [ -f "$entitlements" ] ||
    fail "no file is at $entitlements" "correct KELPMORAY_ENTITLEMENTS"
for file in "$entitlements" "$inherited"; do
    if [ -f "$file" ]; then
        quote "The entitlements are in $file"
    elif [ -e "$file" ] || [ -L "$file" ]; then
        fail "$file is no file with entitlements" "correct or remove it"
    fi
done
[ -f "$entitlements" ] || entitlements=
[ -f "$inherited" ] || inherited=

resolve_identity
if [ "$codesign" = codesign ]; then sign_with_system; else sign_with_own; fi
output=$("$codesign" --verify --deep --strict -vv "$package" 2>&1) || {
    quote "$output"
    fail "the signature of $package does not hold" "see the lines above"
}
succeed signed "$package"
