#!/bin/sh
# Makes a small folder of well-formed application packages to try things on: make-sample.sh FOLDER
set -eu
folder=${1:?usage: make-sample.sh FOLDER}

make_application() {
    contents=$folder/$1.app/Contents
    mkdir -p "$contents/MacOS" "$contents/Resources/en.lproj"
    cat >"$contents/Info.plist" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
<key>CFBundleExecutable</key><string>$1</string>
<key>CFBundleIdentifier</key><string>org.example.sample</string>
<key>CFBundlePackageType</key><string>APPL</string>
<key>CFBundleShortVersionString</key><string>1.0</string>
</dict></plist>
PLIST
    printf '#!/bin/sh\necho "This is %s."\n' "$1" >"$contents/MacOS/$1"
    chmod +x "$contents/MacOS/$1"
    echo '"Hello" = "Hello";' >"$contents/Resources/en.lproj/Localizable.strings"
}

make_application "Übung"
make_application "Sample Notes"
version="$folder/Sample Notes.app/Contents/Frameworks/Notes.framework/Versions/A"
mkdir -p "$version/Resources"
echo 'the code of a framework' >"$version/Notes"
ln -sfn A "$version/../Current"
ln -sfn Versions/Current/Notes "$version/../../Notes"
ln -sfn Versions/Current/Resources "$version/../../Resources"
