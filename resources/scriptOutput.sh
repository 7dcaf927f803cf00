# shellcheck shell=sh
# What the scripts beside this file print, and how they fail. Read by them with the command ".".

# Sets printable to the text with its control characters, those beyond ASCII (U+0080 to U+009F) too, as
# question marks, and without what is not UTF-8: a name must not look like a line of ours, nor a terminal
# obey it, and the reader takes text only.
make_printable() {
    printable=$1
    case "$1" in
    *[![:print:]]*) printable=$(printf '%s' "$1" | LC_ALL=C tr '\001-\037\177' '[?*]' | replace_c1) ;;
    esac
}

# Filters: a process less for each package matters, so they run only where something is to be replaced.
replace_c1() {
    LC_ALL=C sed "s/$(printf '\302[\200-\237]')/?/g" | iconv -c -f UTF-8 -t UTF-8 2>/dev/null
}

# Prints what a tool said. The blanks tell its lines from ours.
quote() {
    [ -z "$1" ] || printf '%s\n' "$1" | LC_ALL=C tr '\001-\010\013-\037\177' '[?*]' | replace_c1 | sed 's/^/  /'
}

# Prints the last line, 'error: WHAT: REMEDY', and ends.
failure_status=1
fail() {
    make_printable "$1"
    printf 'error: %s: %s\n' "$printable" "$2"
    exit "$failure_status"
}

# Prints the last line, 'RESULT: PATH', and ends.
succeed() {
    make_printable "$2"
    printf '%s: %s\n' "$1" "$printable"
    exit 0
}

# Sets package to the absolute path of the package given, and name to its last part; fails if it is none.
take_package() {
    package=$1
    while [ "${package%/}" != "$package" ] && [ "$package" != / ]; do package=${package%/}; done
    [ ! -L "$package" ] || fail "$package is a link" "give the package that it points at"
    name=${package##*/}
    case "$name" in
    ?*.[Aa][Pp][Pp]) [ -d "$package" ] ;;
    *) false ;;
    esac || fail "no package at $package" "give the path of a folder whose name ends in .app"
    case "$package" in
    /*) return ;;
    */*) folder=${package%/*} ;;
    *) folder=. ;;
    esac
    # The x keeps a line feed at the end of a name, which $() would drop.
    folder=$(CDPATH='' cd -- "$folder" && pwd -P && echo x) ||
        fail "cannot enter the folder of $package" "make the folder readable and try again"
    folder=${folder%?x}
    package=${folder%/}/$name
}
