#!/bin/bash
# Builds real, package-shaped folders from Debian and npm packages: corpus.sh DIR (about 1 GB).
# They end up in DIR/corpus: a small, b fifteen applications, c like a browser, d many small files,
# e one huge binary, f odd names, modes and links. What is there already is kept.
set -euo pipefail

mkdir -p "${1:?usage: corpus.sh DIR}"
root=$(cd "$1" && pwd)
debs=$root/deb npm=$root/npm corpus=$root/corpus unpacked=$root/unpacked
mkdir -p "$debs" "$npm" "$corpus" "$unpacked"

download() (
    cd "$debs"
    for package in "$@"; do
        compgen -G "${package}_*.deb" >/dev/null || apt-get download -q "$package"
    done
)

unpack() { # TARGET DEB...
    target=$1
    shift
    for deb in "$@"; do dpkg -x "$deb" "$target"; done
}

property_list() {
    cat <<'END'
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
<key>CFBundleIdentifier</key><string>org.example.bigbrowser</string>
<key>CFBundleExecutable</key><string>BigBrowser</string>
<key>CFBundlePackageType</key><string>APPL</string>
<key>CFBundleShortVersionString</key><string>1.0</string>
</dict></plist>
END
}

build_a() {
    (cd "$npm" && npm pack --silent node-notifier >/dev/null && tar xzf node-notifier-*.tgz)
    mkdir -p "$corpus/a"
    cp -a "$npm/package/vendor/mac.noindex/terminal-notifier.app" "$corpus/a/"
    rm -rf "$npm/package"
}

# A link out of the package (into /usr/share) is replaced by what it points at.
inline_outer_links() { # COPY ORIGINAL
    find "$1" -type l -print0 | while IFS= read -r -d '' link; do
        target=$(readlink "$link")
        case $target in
        /*) target=$unpacked/gnustep$target ;;
        *) target=$(realpath -m "$(dirname "$2/${link#"$1/"}")/$target") ;;
        esac
        case $target in
        "$2"/*) ;;
        "$unpacked/gnustep"/*)
            if [ -e "$target" ]; then
                rm "$link"
                cp -a "$target" "$link"
            fi
            ;;
        esac
    done
}

build_b() {
    packages=(gorm.app gworkspace.app textedit.app projectcenter.app cenon.app cenon.app-common
        terminal.app preview.app pikopixel.app gnumail.app gnumail.app-common price.app
        systempreferences.app viewpdf.app adun.app lynkeos.app lynkeos.app-common)
    download "${packages[@]}" gworkspace-common
    unpack "$unpacked/gnustep" "$debs"/*.app_*.deb "$debs"/*.app-common_*.deb \
        "$debs"/gworkspace-common_*.deb
    mkdir -p "$corpus/b"
    find "$unpacked/gnustep" -path '*/GNUstep/*' -type d -name '*.app' -prune -print0 | sort -z |
        while IFS= read -r -d '' application; do
            copy=$corpus/b/$(basename "$application")
            [ ! -e "$copy" ] || continue
            cp -a "$application" "$copy"
            inline_outer_links "$copy" "$application"
        done
}

build_c() {
    download chromium chromium-common chromium-l10n
    unpack "$unpacked/browser" "$debs"/chromium_*.deb "$debs"/chromium-common_*.deb \
        "$debs"/chromium-l10n_*.deb
    source=$unpacked/browser/usr/lib/chromium
    application=$corpus/c/BigBrowser.app
    framework="$application/Contents/Frameworks/BigBrowser Framework.framework"
    version=$framework/Versions/A
    mkdir -p "$application/Contents/MacOS" "$application/Contents/Resources" \
        "$version/Resources" "$version/Libraries" "$version/Helpers"
    property_list >"$application/Contents/Info.plist"
    printf 'APPL????' >"$application/Contents/PkgInfo"
    cp /bin/true "$application/Contents/MacOS/BigBrowser"
    cp -a "$source/chromium" "$version/BigBrowser Framework"
    for file in "$source"/*; do
        case $(basename "$file") in
        chromium) ;;
        *.so*) cp -a "$file" "$version/Libraries/" ;;
        chrome_crashpad_handler | chrome-sandbox | chrome-management-service)
            cp -a "$file" "$version/Helpers/"
            ;;
        *) cp -a "$file" "$version/Resources/" ;;
        esac
    done
    for pak in "$version"/Resources/locales/*.pak; do
        folder=$version/Resources/$(basename "$pak" .pak).lproj
        mkdir -p "$folder"
        mv "$pak" "$folder/locale.pak"
    done
    rmdir --ignore-fail-on-non-empty "$version/Resources/locales"
    cp -a "$unpacked/browser/usr/share/." "$application/Contents/Resources/"
    find "$application" -type l ! -exec test -e {} \; -delete
    ln -s A "$framework/Versions/Current"
    for name in "BigBrowser Framework" Resources Libraries Helpers; do
        ln -s "Versions/Current/$name" "$framework/$name"
    done
    for kind in Renderer GPU Plugin Alerts; do
        contents="$version/Helpers/BigBrowser Helper ($kind).app/Contents"
        mkdir -p "$contents/MacOS"
        cp /bin/true "$contents/MacOS/BigBrowser Helper ($kind)"
        property_list >"$contents/Info.plist"
    done
}

build_d() {
    mkdir -p "$npm/many"
    (
        cd "$npm/many"
        echo '{"name":"many","version":"1.0.0"}' >package.json
        npm install --silent --ignore-scripts --no-audit --no-fund --no-optional \
            lodash@4 lodash-es@4 rxjs@7 date-fns@3 core-js@3 webpack@5 eslint@8 typescript@5 \
            jest@29 @babel/preset-env@7 react@18 react-dom@18 express@4 ramda@0.29
    )
    contents=$corpus/d/ManyFiles.app/Contents
    mkdir -p "$contents/MacOS" "$contents/Resources/app"
    cp /bin/true "$contents/MacOS/ManyFiles"
    property_list >"$contents/Info.plist"
    cp -a "$npm/many/node_modules" "$contents/Resources/app/"
}

build_e() {
    contents=$corpus/e/OneBinary.app/Contents
    mkdir -p "$contents/MacOS"
    cp -a "$unpacked/browser/usr/lib/chromium/chromium" "$contents/MacOS/OneBinary"
    property_list >"$contents/Info.plist"
}

build_f() {
    contents="$corpus/f/Ödd Nämes.app/Contents"
    resources=$contents/Resources
    framework=$contents/Frameworks/K.framework
    mkdir -p "$contents/MacOS" "$resources/de.lproj" "$resources/leer" "$framework/Versions/A"
    cp /bin/true "$contents/MacOS/Ödd"
    chmod 755 "$contents/MacOS/Ödd"
    for name in 'de.lproj/日本語 ファイル.strings' $'u\xcc\x88 decomposed.txt' 'emoji 😀.txt' \
        -dash 'star*[q]?.txt' 'back\slash.txt' $'new\nline.txt' mode600 mode444 mode4755 \
        m1975 m2001odd m2045; do
        printf 'x' >"$resources/$name"
    done
    : >"$resources/empty"
    chmod 600 "$resources/mode600"
    chmod 444 "$resources/mode444"
    chmod 4755 "$resources/mode4755"
    touch -d '1975-06-01 12:00:00 UTC' "$resources/m1975"
    touch -d '2001-02-03 04:05:07 UTC' "$resources/m2001odd"
    touch -d '2045-06-01 12:00:01 UTC' "$resources/m2045"
    head -c 300000 /dev/urandom >"$resources/random.bin"
    ln -s A "$framework/Versions/Current"
    ln -s Versions/Current "$framework/Latest"
    ln -s nowhere "$resources/dangling"
    ln -s /etc/hosts "$resources/absolute"
    ln -s 'de.lproj/日本語 ファイル.strings' "$resources/utf8 link"
    ln -s . "$resources/loop"
    chmod 700 "$resources/leer"
}

for letter in a b c d e f; do
    [ -d "$corpus/$letter" ] || "build_$letter"
    printf '%s: %s files, %s bytes\n' "$letter" "$(find "$corpus/$letter" -type f | wc -l)" \
        "$(find "$corpus/$letter" -type f -printf '%s\n' | awk '{ sum += $1 } END { print sum + 0 }')"
done
