#!/bin/sh
# Tries the Debian package where nothing else is: try-package.sh PACKAGE.deb
# Makes a bare Debian 12 in a temporary folder, installs the package there, processes a folder from the
# desktop, uninstalls, and looks for what is left. As root; needs debootstrap.
set -eu

identifier=com.quenbark.kelpmoray
entry=/usr/share/applications/$identifier.desktop

say() { printf '== %s\n' "$*"; }
fail() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

outside() {
    root=$(mktemp -d)
    chmod 755 "$root"
    trap 'rm -rf --one-file-system -- "$root"' EXIT
    trap 'exit 1' HUP INT TERM
    say "making a bare Debian 12"
    # shellcheck disable=SC2016 # apt-get's own variable
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Codename: bookworm' | head -n 1)
    debootstrap --variant=minbase bookworm "$root" "$mirror" >"$root.log" || fail "see $root.log"
    rm -f -- "$root.log"
    echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/quick"
    cp -- "$1" "$root/kelpmoray.deb"
    here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
    cp -- "$here/try-package.sh" "$here/../../tools/make-sample.sh" "$root/usr/local/bin/"
    # Whatever runs in there ends with it.
    # shellcheck disable=SC2016 # expanded inside
    unshare --mount --pid --fork --kill-child sh -c 'mount -t proc proc "$1/proc" &&
        mount --bind /dev "$1/dev" && exec chroot "$1" try-package.sh --inside' sh "$root"
}

all_paths() {
    find / -xdev \( -path /proc -o -path /dev -o -path /tmp \) -prune -o -print | sort
}

install_quietly() {
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q "$@" >/tmp/apt.log 2>&1 ||
        { cat /tmp/apt.log && fail "apt-get install $*"; }
}

inside() {
    apt-get update -q >/dev/null
    say "installing the package, and what it depends on"
    install_quietly /kelpmoray.deb
    say "installing what plays the person"
    install_quietly --no-install-recommends xvfb xauth xdotool libglib2.0-bin unzip
    useradd --create-home jane

    dpkg --purge kelpmoray >/dev/null
    all_paths >/tmp/before
    dpkg --install /kelpmoray.deb >/dev/null
    su --login jane --command "xvfb-run -a dbus-run-session -- try-package.sh --as-jane" \
        2>/tmp/session.log || { cat /tmp/session.log && fail "the session failed"; }
    dpkg --purge kelpmoray >/dev/null
    all_paths >/tmp/after

    say "left behind outside of the home folder, or of Kelpmoray in it:"
    comm -3 /tmp/before /tmp/after | sed 's/^\t//' >/tmp/changed
    grep -v '^/home/jane/' /tmp/changed && fail "the package leaves these behind"
    grep kelpmoray /tmp/changed
    [ "$(grep kelpmoray /tmp/changed)" = "/home/jane/.config/$identifier.ini" ] ||
        fail "more than the settings is left"
    ! grep -rl kelpmoray /usr/share/applications || fail "a cache still knows it"
    say "all is well"
}

window() {
    timeout 60 xdotool search --sync --onlyvisible "$@" | head -n 1
}

# Answers the question of the running program, and waits until it has ended.
answer() {
    sheet=$(window --name '^Process this Folder')
    process=$(gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
        --method org.freedesktop.DBus.GetConnectionUnixProcessID $identifier | tr -dc '0-9 ')
    sleep 0.5 # it takes no answer before the time of a double click is over
    xdotool windowfocus --sync "$sheet" key --clearmodifiers "$@"
    # shellcheck disable=SC2086 # "uint32 N", of which the digits before N are the type's
    set -- $process
    timeout 60 tail --pid="$2" -f /dev/null
}

as_jane() {
    cd /
    apps=$HOME/Apps
    make-sample.sh "$apps"
    say "opens folders: $(xdg-mime query default inode/directory)"

    say "starting it from its desktop entry, and asking it to open a folder"
    gio launch "$entry" >/tmp/kelpmoray.log 2>&1
    window --name '^Kelpmoray$' >/dev/null
    gdbus call --session --dest $identifier --object-path /com/quenbark/kelpmoray \
        --method org.freedesktop.Application.Open "['file://$apps']" '{}' >/dev/null
    answer Tab Tab space
    for package in "$apps"/*.app; do
        unzip -tq "${package%.app}.zip"
    done
    say "shown by: $(xdotool getwindowname "$(window --class pcmanfm)")"

    say "letting the bus start it for a folder"
    gapplication launch $identifier "$apps"
    answer Tab Tab Tab space
}

case "${1:-}" in
--inside) inside ;;
--as-jane) as_jane ;;
*.deb) outside "$1" ;;
*)
    echo "usage: try-package.sh PACKAGE.deb" >&2
    exit 2
    ;;
esac
