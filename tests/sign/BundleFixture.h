#pragma once

#include "tests/support/TemporaryFolder.h"

#include <string>

/// The first bytes of a Mach-O file for arm64 of the given type (2 executable, 6 library, 1
/// object).
[[nodiscard]] inline std::string machO(char fileType = 6) {
    std::string header = "\xCF\xFA\xED\xFE";
    header += std::string("\x0C\0\0\1\0\0\0\0", 8) + fileType;
    return header + std::string(51, '\0');
}

[[nodiscard]] inline std::string infoPlist(const std::string& executable,
                                           const std::string& more = {}) {
    return "<plist version=\"1.0\"><dict>" +
           (executable.empty()
                ? ""
                : "<key>CFBundleExecutable</key><string>" + executable + "</string>") +
           more + "</dict></plist>";
}

/// An application with everything that seals treat in their own way.
inline std::string makeRichApplication(const TemporaryFolder& folder) {
    const std::string app = "Rich App.app";
    const std::string contents = app + "/Contents/";
    folder.makeFile(contents + "Info.plist", infoPlist("run"));
    folder.makeFile(contents + "PkgInfo", "APPL????");
    folder.makeFile(contents + "CodeResources", "ticket");
    folder.makeFile(contents + "_MASReceipt/receipt");
    folder.makeFile(contents + "_CodeSignature/CodeResources", "stale");
    folder.makeFile(contents + "MacOS/run", machO(2));
    folder.makeFile(contents + "MacOS/helper", machO(2));
    folder.makeFile(contents + "MacOS/script", "#!/bin/sh\n");
    folder.makeFile(contents + "Resources/a.txt", "a");
    folder.makeFile(contents + "Resources/line\nfeed & <caf\u00e9>", "b");
    folder.makeFile(contents + "Resources/.DS_Store", "c");
    folder.makeFile(contents + "Resources/en.lproj/x.strings", "d");
    folder.makeFile(contents + "Resources/en.lproj/locversion.plist", "e");
    folder.makeFile(contents + "Resources/Base.lproj/x.nib", "f");
    folder.makeFile(contents + "Resources/tool", machO(2));
    folder.makeFile(contents + "Resources/code.o", machO(1));
    folder.makeFile(contents + "Resources/Java.class",
                    std::string("\xCA\xFE\xBA\xBE\0\0\0\x34", 8) + std::string(40, 'j'));
    folder.makeLink(contents + "Resources/link", "a.txt");
    folder.makeFile(contents + "Resources/Inner.app/Contents/Info.plist", infoPlist("inner"));
    folder.makeFile(contents + "Resources/Inner.app/Contents/MacOS/inner", machO(2));
    folder.makeFile(contents + "Resources/Pictures.bundle/Info.plist", infoPlist(""));
    folder.makeFile(contents + "Frameworks/libx.dylib", machO());
    folder.makeLink(contents + "Frameworks/liby.dylib", "libx.dylib");
    const std::string framework = contents + "Frameworks/Foo.framework/";
    for (const std::string version : {"A", "B"}) {
        folder.makeFile(framework + "Versions/" + version + "/Foo", machO());
        folder.makeFile(framework + "Versions/" + version + "/Resources/Info.plist",
                        infoPlist("Foo"));
        folder.makeFile(framework + "Versions/" + version + "/libz.dylib", machO());
    }
    folder.makeLink(framework + "Versions/Current", "B");
    folder.makeLink(framework + "Foo", "Versions/Current/Foo");
    folder.makeLink(framework + "Resources", "./Versions/B/Resources");
    folder.makeFile(contents + "PlugIns/Flat.appex/Info.plist", infoPlist("Flat"));
    folder.makeFile(contents + "PlugIns/Flat.appex/Flat", machO(2));
    folder.makeFile(contents + "PlugIns/Flat.appex/libq.dylib", machO());
    folder.makeFile(contents + "PlugIns/Symbols.dSYM/Contents/Info.plist", infoPlist(""));
    return folder.path(app);
}
