#include "core/ScriptOutcome.h"
#include "core/ShellRunners.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Tree.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

/// The names in a folder, hidden ones too, sorted.
std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

std::string output(const std::string& command) {
    return runShellCommand(command + " 2>&1; echo \"[$?]\"").value_or("none");
}

/// The shipped scripts, with a folder of stand-in tools first in the search path.
struct Scripts : testing::Test {
    [[nodiscard]] std::string run(const std::string& script, const std::string& arguments) const {
        return output("cd '" + folder.path() + "' && " KELPMORAY_RESOURCES "/" + script + ".sh " +
                      arguments);
    }
    [[nodiscard]] std::string pack(const std::string& arguments) const {
        return run("fenwoJustZipApps", arguments);
    }
    [[nodiscard]] std::string sign(const std::string& arguments) const {
        return run("fenwoCodesignApps", arguments);
    }
    void standIn(const std::string& tool, const std::string& body) const {
        folder.makeExecutable("bin/" + tool, "#!/bin/sh\n" + body + "\n");
    }
    /// A codesign that writes down what it was asked for.
    void standInForSigning(const std::string& identities) const {
        standIn("security", "cat <<'END'\n" + identities + "END");
        standIn("codesign", "printf '%s\\n' \"$*\" >>'" + folder.path("calls") + "'");
    }

    TemporaryFolder folder;
    ScopedEnvironment searchPath{"PATH", pathWith(folder.path("bin"))};
};

constexpr const char* oneIdentity =
    "  1) AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA \"Developer ID Application: Jo (X1)\"\n"
    "  2) BBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBB \"Apple Development: Jo (X1)\"\n"
    "     2 valid identities found\n";

} // namespace

TEST_F(Scripts, PackATreeThatExtractsToTheSameTree) {
    folder.makeExecutable("-Tüll 1.app/Contents/MacOS/run", "#!/bin/sh\n");
    folder.makeFile("-Tüll 1.app/Contents/Frameworks/K.framework/Versions/A/K", "k");
    folder.makeLink("-Tüll 1.app/Contents/Frameworks/K.framework/Versions/Current", "A");
    folder.makeLink("-Tüll 1.app/dangling", "no where");
    folder.makeFolder("-Tüll 1.app/empty");
    folder.makeFile("-Tüll 1.app/-dash");
    chmod(folder.makeFile("-Tüll 1.app/mode600").c_str(), 0600);
    ASSERT_EQ(output("touch -t 200102030405.06 '" + folder.path("-Tüll 1.app/-dash") + "'"),
              "[0]\n");

    EXPECT_EQ(pack("./'-Tüll 1.app'/"), "packed: " + folder.path("-Tüll 1.zip") + "\n[0]\n");
    ASSERT_EQ(output("mkdir '" + folder.path("out") + "' && cd '" + folder.path("out") +
                     "' && LC_ALL=C.UTF-8 unzip -q ../'-Tüll 1.zip'"),
              "[0]\n");
    EXPECT_EQ(treeAt(folder.path("out/-Tüll 1.app")), treeAt(folder.path("-Tüll 1.app")));
    EXPECT_EQ(output("diff -r --no-dereference '" + folder.path("-Tüll 1.app") + "' '" +
                     folder.path("out/-Tüll 1.app") + "'"),
              "[0]\n");
}

TEST_F(Scripts, ReplaceAnOlderArchive) {
    folder.makeFile("X.app/old");
    folder.makeFile("X.app/kept");
    ASSERT_THAT(pack("X.app"), EndsWith("[0]\n"));
    std::filesystem::remove(folder.path("X.app/old"));
    ASSERT_THAT(pack("X.app"), EndsWith("[0]\n"));
    const std::string listing = output("unzip -Z1 '" + folder.path("X.zip") + "'");
    EXPECT_THAT(listing, HasSubstr("X.app/kept"));
    EXPECT_THAT(listing, Not(HasSubstr("old")));
}

TEST_F(Scripts, LeaveNothingBehindWhenPackingFails) {
    folder.makeFile("X.app/f");
    folder.makeFile("X.zip", "older archive");
    for (const char* tool : {"zip", "ditto", "kelpmoray-zip"}) {
        standIn(tool,
                "for last in \"$@\"; do case $last in *.zip) echo half >\"$last\";; esac; done; "
                "echo no room; exit 1");
        if (tool == std::string("kelpmoray-zip"))
            standIn(tool, "echo no room; exit 1");
        EXPECT_THAT(pack("X.app"), HasSubstr(std::string("no room\nerror: ") + tool +
                                             " could not pack " + folder.path("X.app")));
        EXPECT_EQ(contentOf(folder.path("X.zip")), "older archive");
        EXPECT_THAT(namesIn(folder.path()), ElementsAre("X.app", "X.zip", "bin"));
    }
}

TEST_F(Scripts, PreferThePackerThenTheSystemsArchiver) {
    folder.makeFile("X.app/f");
    const std::string note = "printf '%s|' \"$@\" >>'" + folder.path("calls") + "'; ";
    standIn("ditto", note + "eval last=\\${$#}; echo archive >\"$last\"");
    EXPECT_THAT(pack("X.app"), EndsWith("[0]\n"));
    EXPECT_THAT(contentOf(folder.path("calls")),
                StartsWith("-c|-k|--sequesterRsrc|--keepParent|--noqtn|./X.app|" + folder.path() +
                           "/.kelpmoray-packing-"));
    EXPECT_EQ(contentOf(folder.path("X.zip")), "archive\n");

    std::filesystem::remove(folder.path("calls"));
    folder.makeExecutable("in/libexec/kelpmoray/kelpmoray-zip", "#!/bin/sh\n" + note);
    folder.makeFolder("in/share/kelpmoray");
    std::filesystem::copy(KELPMORAY_RESOURCES "/fenwoJustZipApps.sh",
                          folder.path("in/share/kelpmoray"));
    EXPECT_EQ(output("'" + folder.path("in/share/kelpmoray/fenwoJustZipApps.sh") + "' '" +
                     folder.path("X.app") + "'"),
              "packed: " + folder.path("X.zip") + "\n[0]\n");
    EXPECT_EQ(contentOf(folder.path("calls")),
              "--verify|" + folder.path("X.zip") + "|" + folder.path("X.app") + "|");

    standIn("kelpmoray-zip", "echo 'the packer does not carry attributes'; exit 1");
    standIn("xattr", "echo \"$2/f: com.apple.cs.CodeSignature\"");
    EXPECT_THAT(pack("X.app"), EndsWith("[0]\n"));
}

TEST_F(Scripts, RefuseWhatZipWouldLeaveOut) {
    folder.makeFile("X.app/f");
    mkfifo(folder.path("X.app/pipe").c_str(), 0600);
    EXPECT_THAT(pack("X.app"), StartsWith("error: not to be packed: ./X.app/pipe: "));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("X.app"));
}

TEST_F(Scripts, CleanUpAlthoughNobodyReadsTheirLines) {
    folder.makeFile("X.app/f");
    // The reader is gone before the first line comes.
    standIn("zip", "while [ ! -e '" + folder.path("gone") + "' ]; do :; done; echo noise; exit 1");
    EXPECT_EQ(output("{ cd '" + folder.path() +
                     "'; " KELPMORAY_RESOURCES
                     "/fenwoJustZipApps.sh X.app; touch ended; } | { exec <&-; touch '" +
                     folder.path("gone") + "'; }"),
              "[0]\n");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("X.app", "bin", "ended", "gone"));
}

TEST_F(Scripts, RemoveWhatAKilledRunLeft) {
    folder.makeFile("X.app/f");
    // Kills the script that started it, whose number the work folder's name ends in.
    standIn("zip", "echo half >\"$2\"; work=${2%/*}; kill -9 ${work##*-}");
    EXPECT_THAT(pack("X.app"), EndsWith("[137]\n"));
    EXPECT_THAT(namesIn(folder.path()),
                ElementsAre(StartsWith(".kelpmoray-packing-"), "X.app", "bin"));
    std::filesystem::remove(folder.path("bin/zip"));
    const std::string running = ".kelpmoray-packing-" + std::to_string(getpid());
    folder.makeFolder(running);
    folder.makeFolder(".kelpmoray-packing-notes");
    EXPECT_THAT(pack("X.app"), EndsWith("[0]\n"));
    EXPECT_THAT(namesIn(folder.path()),
                ElementsAre(running, ".kelpmoray-packing-notes", "X.app", "X.zip", "bin"))
        << "what others still work with or own is left alone";
}

TEST_F(Scripts, RefuseWhatIsNoPackage) {
    folder.makeFile("file.app");
    folder.makeFolder("plain");
    folder.makeFolder("X.app");
    folder.makeLink("link.app", "X.app");
    for (const std::string script : {"fenwoJustZipApps", "fenwoZipAppsDNP", "fenwoCodesignApps"}) {
        EXPECT_THAT(run(script, ""), StartsWith("error: no package given: usage"));
        for (const std::string path : {"missing.app", "file.app", "plain", ".", "..", "/"})
            EXPECT_THAT(run(script, path), HasSubstr("error: no package at ")) << path;
        EXPECT_THAT(run(script, "link.app/"), HasSubstr("link.app is a link: give "));
        EXPECT_THAT(run(script, "X.app two three"), StartsWith("error: more than one "));
        EXPECT_THAT(run(script, "--help"), StartsWith("usage: "));
    }
    folder.makeFolder("X.zip");
    EXPECT_THAT(pack("X.app"), StartsWith("error: a folder is in the place of "));
}

TEST_F(Scripts, TellPackagesApartWhoseFoldersDifferInALineBreak) {
    folder.makeFile("a/X.app/wrong");
    folder.makeFile("a\n/X.app/right");
    EXPECT_THAT(pack("'a\n/X.app'"), EndsWith("[0]\n"));
    EXPECT_THAT(namesIn(folder.path("a")), ElementsAre("X.app"));
    EXPECT_THAT(namesIn(folder.path("a\n")), ElementsAre("X.app", "X.zip"));
}

TEST_F(Scripts, PackForTheEditionThatNeverSigns) {
    folder.makeFile("X.app/f");
    EXPECT_EQ(run("fenwoZipAppsDNP", "X.app"), "packed: " + folder.path("X.zip") + "\n[0]\n");
}

TEST_F(Scripts, LeaveThePackageUnsignedWithoutAnIdentity) {
    standInForSigning(oneIdentity);
    folder.makeFolder("X.app");
    EXPECT_EQ(sign("X.app donotcodesign"), "unsigned: " + folder.path("X.app") + "\n[0]\n");
    EXPECT_THAT(sign("X.app"), StartsWith("error: no identity to sign "));
    EXPECT_EQ(contentOf(folder.path("calls")), "");
}

TEST_F(Scripts, SignNestedCodeFromTheInsideOut) {
    standInForSigning(oneIdentity);
    const std::string machineCode = "\xCF\xFA\xED\xFE rest";
    const std::string plist =
        "<plist><dict>\n<key>CFBundleExecutable</key>\n\t<string>main</string>"
        "</dict></plist>";
    folder.makeFile("X.app/Contents/Info.plist", plist);
    folder.makeExecutable("X.app/Contents/MacOS/main", machineCode);
    folder.makeExecutable("X.app/Contents/MacOS/tool", machineCode);
    folder.makeExecutable("X.app/Contents/MacOS/script", "#!/bin/sh\n");
    const std::string framework = "X.app/Contents/Frameworks/K.framework/Versions/A";
    folder.makeExecutable(framework + "/K", machineCode);
    folder.makeFile(framework + "/Resources/Info.plist", "<plist/>");
    folder.makeFile(framework + "/Libraries/a b.dylib", machineCode);
    folder.makeLink("X.app/Contents/Frameworks/K.framework/Versions/Current", "A");
    folder.makeExecutable(framework + "/Frameworks/N.framework/Versions/B/N", machineCode);
    folder.makeFile("X.app/Contents/Library/Q.qlgenerator/Contents/Info.plist", "<plist/>");
    folder.makeExecutable("X.app/Contents/PlugIns/P.appex/Contents/MacOS/P", machineCode);
    folder.makeFile("X.app/Contents/PlugIns/P.appex/Contents/Info.plist", "<plist/>");

    // Where SIGCHLD is ignored some implementations of find take every success for a failure.
    standIn("find", "/usr/bin/find \"$@\"; exit 1");

    EXPECT_EQ(sign("X.app 'Jo (X1)'"), "signed: " + folder.path("X.app") + "\n[0]\n");
    std::vector<std::string> signedCode;
    const std::string beginning =
        "--force --sign AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA --timestamp --options runtime "
        "--preserve-metadata=entitlements " +
        folder.path("X.app");
    std::istringstream calls(contentOf(folder.path("calls")));
    for (std::string line; std::getline(calls, line);)
        signedCode.push_back(line.starts_with(beginning) ? line.substr(beginning.size()) : line);
    ASSERT_EQ(signedCode.size(), 10U) << contentOf(folder.path("calls"));
    EXPECT_EQ(signedCode[8], "") << "the package itself comes last";
    EXPECT_EQ(signedCode[9], "--verify --deep --strict " + folder.path("X.app"));
    const auto place = [&](const std::string& code) {
        return std::ranges::find(signedCode, code) - signedCode.begin();
    };
    const std::string version = "/Contents/Frameworks/K.framework/Versions/A";
    EXPECT_LT(place(version + "/Libraries/a b.dylib"), place(version));
    EXPECT_LT(place(version + "/Frameworks/N.framework/Versions/B"), place(version));
    for (const std::string& code :
         {version, std::string("/Contents/PlugIns/P.appex"), std::string("/Contents/MacOS/tool"),
          std::string("/Contents/MacOS/script"), std::string("/Contents/Library/Q.qlgenerator")})
        EXPECT_LT(place(code), 8) << code;
}

TEST_F(Scripts, ResolveTheHolderToOneCertificate) {
    folder.makeFolder("X.app");
    standInForSigning(
        "  1) BBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBB \"Apple Development: Jo (X1)\"\n"
        "  2) CCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCC \"Any: Kim (Y2)\"\n"
        "  3) DDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDDD \"Other: Kim (Y2)\"\n");
    EXPECT_THAT(sign("X.app 'Jo (X1)'"), StartsWith("signed: "));
    EXPECT_THAT(contentOf(folder.path("calls")), HasSubstr("--sign BBBB"));
    EXPECT_THAT(sign("X.app 'Kim (Y2)'"),
                testing::AllOf(HasSubstr("DDDD Other: Kim (Y2)"),
                               HasSubstr("\nerror: several identities of Kim (Y2): ")));
    EXPECT_THAT(sign("X.app 'im (Y2)'"), HasSubstr("\nerror: no valid identity of im (Y2): "));
}

TEST_F(Scripts, RetryOnlyTimeStampFailures) {
    folder.makeFolder("X.app");
    standInForSigning(oneIdentity);
    standIn("sleep", "");
    const std::string count = "echo x >>'" + folder.path("tries") + "'; ";
    const std::string busy = "echo 'The timestamp service is not available.' >&2; exit 1";
    standIn("codesign",
            count + "[ $(wc -l <'" + folder.path("tries") + "') -gt 2 ] || { " + busy + "; }");
    EXPECT_THAT(sign("X.app 'Jo (X1)'"), EndsWith("signed: " + folder.path("X.app") + "\n[0]\n"));
    EXPECT_EQ(contentOf(folder.path("tries")), "x\nx\nx\nx\n")
        << "two failures, success, verification";

    standIn("codesign", count + busy);
    EXPECT_THAT(sign("X.app 'Jo (X1)'"), HasSubstr("error: the time stamp server did not answer"));
    std::filesystem::remove(folder.path("tries"));
    standIn("codesign", count + "echo 'resource fork not allowed' >&2; exit 1");
    EXPECT_THAT(sign("X.app 'Jo (X1)'"),
                HasSubstr("resource fork not allowed\nerror: codesign could not sign "));
    EXPECT_EQ(contentOf(folder.path("tries")), "x\n");

    std::filesystem::remove(folder.path("tries"));
    folder.makeFolder("Timestamp.app");
    standIn("codesign", count + "echo \"$8: errSecInternalComponent\" >&2; exit 1");
    EXPECT_THAT(sign("Timestamp.app 'Jo (X1)'"), HasSubstr("error: codesign could not sign "));
    EXPECT_EQ(contentOf(folder.path("tries")), "x\n") << "the word is in the path only";
}

TEST_F(Scripts, SayWhenASignatureDoesNotHold) {
    folder.makeExecutable("X.app/tool", "\xCA\xFE\xBA\xBE");
    standInForSigning(oneIdentity);
    standIn("codesign",
            "case $1 in --verify) echo 'a sealed resource is missing' >&2; exit 3;; esac");
    EXPECT_THAT(sign("X.app 'Jo (X1)'"),
                StartsWith("a sealed resource is missing\nerror: the signature of "));
    standIn("codesign", "case $* in */tool) echo broken >&2; exit 1;; esac");
    EXPECT_THAT(sign("X.app 'Jo (X1)'"),
                EndsWith("error: codesign could not sign " + folder.path("X.app") +
                         "/tool: see the lines above\n[1]\n"));
}

#ifndef __APPLE__
TEST_F(Scripts, SayWhereSigningIsNotToBeHad) {
    folder.makeFolder("X.app");
    EXPECT_THAT(sign("X.app 'Jo (X1)'"), StartsWith("error: no security on this system: "));
}
#endif
