#!/bin/sh
# Installs what building (and, with --test, testing) needs on Debian, and on macOS if brew is there;
# says what is needed on other systems.
set -eu

if [ "$(uname)" = Darwin ] && command -v brew >/dev/null 2>&1; then
    formulas="cmake ninja qt libdeflate"
    [ "${1:-}" != --test ] || formulas="$formulas googletest p7zip"
    missing=
    for formula in $formulas; do
        brew list --versions "$formula" >/dev/null 2>&1 || missing="$missing $formula"
    done
    [ -n "$missing" ] || exit 0
    echo "Installing:$missing"
    # shellcheck disable=SC2086 # a list of names, split on purpose
    exec brew install $missing
fi

packages="g++ cmake ninja-build pkg-config libdeflate-dev zlib1g-dev libssl-dev libexpat1-dev libp11-dev"
packages="$packages libsecret-1-dev qt6-base-dev fonts-dejavu-core"
if [ "${1:-}" = --test ]; then
    packages="$packages libgtest-dev libgmock-dev clang-format-14 shellcheck unzip python3 git"
    packages="$packages zip p7zip-full libarchive-tools xvfb xauth openbox xdotool dbus-daemon mount"
    packages="$packages desktop-file-utils appstream groff-base libglib2.0-bin xdg-utils"
    packages="$packages lintian dpkg-dev file libarchive-dev clang-14 libclang-rt-14-dev gcovr"
    packages="$packages clang-19 libc++-19-dev libc++abi-19-dev googletest"
    packages="$packages lld-14 llvm-14 openssl softhsm2 gnome-keyring"
    packages="$packages parallel jq"
fi

if ! command -v dpkg-query >/dev/null 2>&1; then
    for tool in cmake ninja; do
        command -v "$tool" >/dev/null 2>&1 || {
            echo "missing: $tool (needed: $packages, or this system's equivalents)" >&2
            exit 1
        }
    done
    exit 0
fi

missing=
for package in $packages; do
    status=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

as_root=
if [ "$(id -u)" -ne 0 ]; then
    as_root=sudo
    command -v sudo >/dev/null 2>&1 || {
        echo "missing packages:$missing. Install them as root: apt-get install$missing" >&2
        exit 1
    }
fi
echo "Installing:$missing"
$as_root apt-get update -q
# shellcheck disable=SC2086 # a list of package names, split on purpose
$as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends $missing
