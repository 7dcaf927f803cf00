#include "core/ScriptOutcome.h"
#include "core/ShellRunners.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

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
    ASSERT_EQ(output("touch -d '2001-02-03 04:05:06' '" + folder.path("-Tüll 1.app/-dash") + "'"),
              "[0]\n");

    EXPECT_EQ(pack("./'-Tüll 1.app'/"), "packed: " + folder.path("-Tüll 1.zip") + "\n[0]\n");
    ASSERT_EQ(output("mkdir '" + folder.path("out") + "' && cd '" + folder.path("out") +
                     "' && LC_ALL=C.UTF-8 unzip -q ../'-Tüll 1.zip'"),
              "[0]\n");
    const std::string list =
        " && find . -printf '%P %y %m %l %T@\\n' | sed 's/\\.[0-9]*$//' | sort";
    const std::string before = output("cd '" + folder.path("-Tüll 1.app") + "'" + list);
    EXPECT_EQ(output("cd '" + folder.path("out/-Tüll 1.app") + "'" + list), before);
    EXPECT_THAT(before, HasSubstr("dangling l 777 no where"));
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
    standIn("kelpmoray-zip", "echo no room; exit 1");
    standIn("ditto", "echo half >\"$7\"; echo no room; exit 1");
    EXPECT_THAT(pack("X.app"), HasSubstr("no room\nerror: "));
    EXPECT_EQ(contentOf(folder.path("X.zip")), "older archive");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("X.app", "X.zip", "bin"));
}

TEST_F(Scripts, RemoveWhatAKilledRunLeft) {
    folder.makeFile("X.app/f");
    // Kills the script that started it, whose number the work folder's name ends in.
    standIn("zip", "echo half >\"$2\"; work=${2%/*}; kill -9 ${work##*-}");
    EXPECT_THAT(pack("X.app"), EndsWith("[137]\n"));
    EXPECT_THAT(namesIn(folder.path()),
                ElementsAre(StartsWith(".kelpmoray-packing-"), "X.app", "bin"));
    std::filesystem::remove(folder.path("bin/zip"));
    EXPECT_THAT(pack("X.app"), EndsWith("[0]\n"));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("X.app", "X.zip", "bin"));
}

TEST_F(Scripts, RefuseWhatIsNoPackage) {
    folder.makeFile("file.app");
    folder.makeLink("link.app", "file.app");
    folder.makeFile("X.app/f");
    folder.makeFolder("X.zip");
    for (const char* script : {"fenwoJustZipApps", "fenwoZipAppsDNP"}) {
        EXPECT_THAT(run(script, ""), StartsWith("error: no package given: usage"));
        EXPECT_THAT(run(script, "missing.app"), StartsWith("error: no package at missing.app: "));
        EXPECT_THAT(run(script, "file.app"), StartsWith("error: no package at file.app: "));
        EXPECT_THAT(run(script, "link.app"), StartsWith("error: link.app is a link: "));
        EXPECT_THAT(run(script, "X.app"), StartsWith("error: a folder is in the place of "));
        EXPECT_THAT(run(script, "X.app more"), EndsWith("[1]\n"));
        EXPECT_THAT(run(script, "--help"), StartsWith("usage: "));
    }
    EXPECT_THAT(sign("missing.app 'Jo (X1)'"), StartsWith("error: no package at missing.app: "));
    EXPECT_THAT(sign("--help"), StartsWith("usage: "));
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
    folder.makeExecutable("X.app/Contents/PlugIns/P.appex/Contents/MacOS/P", machineCode);
    folder.makeFile("X.app/Contents/PlugIns/P.appex/Contents/Info.plist", "<plist/>");

    EXPECT_EQ(sign("X.app 'Jo (X1)'"), "signed: " + folder.path("X.app") + "\n[0]\n");
    std::vector<std::string> signedCode;
    const std::string beginning =
        "--force --sign AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA --timestamp --options runtime "
        "--preserve-metadata=entitlements " +
        folder.path("X.app");
    std::istringstream calls(contentOf(folder.path("calls")));
    for (std::string line; std::getline(calls, line);)
        signedCode.push_back(line.starts_with(beginning) ? line.substr(beginning.size()) : line);
    ASSERT_EQ(signedCode.size(), 6U) << contentOf(folder.path("calls"));
    EXPECT_EQ(signedCode[4], "");
    EXPECT_EQ(signedCode[5], "--verify --deep --strict " + folder.path("X.app"));
    const auto place = [&](const std::string& code) {
        return std::ranges::find(signedCode, code) - signedCode.begin();
    };
    EXPECT_LT(place("/Contents/Frameworks/K.framework/Versions/A/Libraries/a b.dylib"),
              place("/Contents/Frameworks/K.framework/Versions/A"));
    EXPECT_LT(place("/Contents/Frameworks/K.framework/Versions/A"), 4);
    EXPECT_LT(place("/Contents/PlugIns/P.appex"), 4);
    EXPECT_LT(place("/Contents/MacOS/tool"), 4);
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

TEST_F(Scripts, SayWhereSigningIsNotToBeHad) {
    folder.makeFolder("X.app");
    EXPECT_THAT(sign("X.app 'Jo (X1)'"), StartsWith("error: no security on this system: "));
}
